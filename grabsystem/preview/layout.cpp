#include "grabsystem/preview/layout.h"

#include <algorithm>

namespace GrabSystem {
namespace preview {

namespace {

uint32_t BoxHeight(const FrameRef& f, uint32_t cellWidth) {
    uint32_t tw = 0, th = 0;
    ThumbnailSize(f.width, f.height, cellWidth, tw, th);
    return th;
}

// Any sheet of more cells than this passes kMaxSheetPixels: each cell takes
// at least cellWidth columns and 1 + kStripHeight + kGap rows of it.
uint64_t MostCells(uint32_t cellWidth) {
    return kMaxSheetPixels / (uint64_t{cellWidth} * (1 + kStripHeight + kGap));
}

}  // namespace

std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words;
    size_t start = 0;
    for (size_t space = text.find(' '); space != std::string::npos; space = text.find(' ', start)) {
        words.push_back(text.substr(start, space - start));
        start = space + 1;
    }
    words.push_back(text.substr(start));
    return words;
}

std::string Ranges(const std::vector<int64_t>& numbers) {
    std::string out;
    for (size_t i = 0; i < numbers.size();) {
        size_t j = i;
        while (j + 1 < numbers.size() && numbers[j + 1] == numbers[j] + 1) ++j;
        out += (out.empty() ? "" : ", ") + Num(numbers[i]) + (j > i ? "-" + Num(numbers[j]) : "");
        i = j + 1;
    }
    return out;
}

void ThumbnailSize(uint32_t width, uint32_t height, uint32_t cellWidth, uint32_t& tw, uint32_t& th) {
    tw = th = 0;
    if (width == 0 || height == 0 || cellWidth == 0) return;
    tw = std::min(cellWidth, width);
    const uint64_t scaled = (uint64_t{height} * tw + width / 2) / width;
    th = static_cast<uint32_t>(
        std::clamp<uint64_t>(scaled, 1, std::min<uint64_t>(height, uint64_t{kMaxThumbAspect} * cellWidth)));
}

bool TooManyCells(uint64_t cells, uint32_t cellWidth, std::string& error) {
    if (cells <= MostCells(cellWidth)) return false;
    error = "a sheet of " + std::to_string(cells) + " thumbnails " + std::to_string(cellWidth) +
            " pixels wide passes the limit of " + std::to_string(kMaxSheetPixels) + " pixels; use smaller thumbnails";
    return true;
}

bool Layout(const std::vector<Row>& rows, uint32_t cellWidth, uint32_t perRow, Grid& grid, std::string& error) {
    grid = Grid{cellWidth, perRow, 0, 0, 0};
    uint64_t cells = 0, widest = 0;
    for (const Row& row : rows) {
        cells += row.frames.size();
        widest = std::max<uint64_t>(widest, row.frames.size());
        for (const FrameRef& f : row.frames) grid.boxHeight = std::max(grid.boxHeight, BoxHeight(f, cellWidth));
    }
    if (TooManyCells(cells, cellWidth, error)) return false;
    const uint64_t cols = std::max<uint64_t>(1, std::min<uint64_t>(perRow, widest));
    const uint64_t width = std::max<uint64_t>(kMinSheetWidth, 2 * kMargin + cols * cellWidth + (cols - 1) * kGap);
    const uint64_t pitch = uint64_t{grid.boxHeight} + kStripHeight + kGap;
    uint64_t height = 2 * kMargin;
    for (const Row& row : rows) {
        const uint64_t lines = (row.frames.size() + perRow - 1) / perRow;
        height += uint64_t{kLineHeight} * row.label.size() + lines * pitch;
        if (height > kMaxSheetSide) break;  // stops before any sum could wrap
    }
    if (width > kMaxSheetSide || height > kMaxSheetSide || width * height > kMaxSheetPixels) {
        error = "a sheet of " + std::to_string(width) + " x " + (height > kMaxSheetSide ? "more than " : "") +
                std::to_string(std::min<uint64_t>(height, kMaxSheetSide + 1)) + " pixels passes the limit (" +
                std::to_string(kMaxSheetSide) + " a side, " + std::to_string(kMaxSheetPixels) +
                " in all); use smaller thumbnails or fewer files";
        return false;
    }
    grid.width = static_cast<uint32_t>(width);
    grid.height = static_cast<uint32_t>(height);
    return true;
}

bool CheckOptions(const SheetOptions& o, std::string& error) {
    if (o.thumbWidth < 8 || o.thumbWidth > 2048) error = "thumbnail width " + Num(o.thumbWidth) + " outside 8..2048";
    else if (o.perRow < 1 || o.perRow > 4096) error = "thumbnails per row " + Num(o.perRow) + " outside 1..4096";
    else if (o.imageWidth < 8 || o.imageWidth > 8192) error = "image width " + Num(o.imageWidth) + " outside 8..8192";
    else return true;
    return false;
}

}  // namespace preview
}  // namespace GrabSystem
