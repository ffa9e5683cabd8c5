#include "grabsystem/preview/compose.h"

#include <cmath>
#include <cstdio>
#include <new>

#include "grabsystem/preview/canvas.h"
#include "grabsystem/preview/thumbnail.h"

namespace GrabSystem {
namespace preview {

namespace {

constexpr uint8_t kBarBack[3] = {56, 56, 56};
constexpr uint8_t kMeanBar[3] = {200, 200, 200};
constexpr uint8_t kZeroBar[3] = {70, 130, 255};
constexpr uint8_t kFullBar[3] = {255, 70, 70};

std::string Percent(double share) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f%%", 100.0 * share);
    return text;
}

uint32_t BarLength(double share, uint32_t width, bool roundUp) {
    const double v = share * width;
    return static_cast<uint32_t>(std::min<double>(width, roundUp ? std::ceil(v - 1e-9) : std::floor(v + 0.5)));
}

void DrawCell(Canvas& canvas, const Grid& grid, uint32_t x, uint32_t y, const FrameRef& f,
              const std::vector<uint8_t>& thumb, uint32_t tw, uint32_t th, const FrameStats& stats, bool labels) {
    if (tw != 0) canvas.Blit(x, y, thumb.data(), tw, th, f.channels);
    const uint32_t w = grid.cellWidth;
    const uint32_t s = y + grid.boxHeight;
    canvas.Fill(x, s + 1, w, 2, kBarBack);
    canvas.Fill(x, s + 1, BarLength(stats.mean / 255.0, w, false), 2, kMeanBar);
    canvas.Fill(x, s + 4, w, 2, kBarBack);
    const uint32_t zeros = BarLength(stats.zeroShare, w, true);
    canvas.Fill(x, s + 4, zeros, 2, kZeroBar);
    canvas.Fill(x + zeros, s + 4, std::min(w - zeros, BarLength(stats.fullShare, w, true)), 2, kFullBar);
    if (!labels) return;
    char mean[32];
    std::snprintf(mean, sizeof mean, "%.0f", stats.mean);
    canvas.Fields(x, s + 8, Words(f.name), " ", x + w);
    canvas.Fields(x, s + 17, {mean, Percent(stats.zeroShare + stats.fullShare)}, " ", x + w);
}

}  // namespace

bool Compose(const std::vector<Row>& rows, uint32_t cellWidth, const SheetOptions& o, Sheet& sheet,
             std::string& error) {
    Grid grid;
    if (!Layout(rows, cellWidth, o.perRow, grid, error)) return false;
    Sheet out;
    try {
        Canvas canvas(out, grid.width, grid.height);
        const uint32_t pitch = grid.boxHeight + kStripHeight + kGap;
        uint32_t y = kMargin;
        std::vector<uint8_t> thumb;
        for (const Row& row : rows) {
            for (const Label& line : row.label) {
                if (o.labels) canvas.Fields(kMargin, y + 1, line.fields, line.separator, grid.width - kMargin);
                y += kLineHeight;
            }
            for (size_t j = 0; j < row.frames.size(); ++j) {
                const uint32_t x = kMargin + static_cast<uint32_t>(j % o.perRow) * (cellWidth + kGap);
                const uint32_t cy = y + static_cast<uint32_t>(j / o.perRow) * pitch;
                uint32_t tw = 0, th = 0;
                FrameStats stats;
                if (!MakeThumb(row.frames[j], cellWidth, thumb, tw, th, stats)) {
                    error = "out of memory for a thumbnail";
                    return false;
                }
                DrawCell(canvas, grid, x, cy, row.frames[j], thumb, tw, th, stats, o.labels);
            }
            y += static_cast<uint32_t>((row.frames.size() + o.perRow - 1) / o.perRow) * pitch;
        }
    } catch (const std::bad_alloc&) {
        error = "out of memory for a sheet of " + std::to_string(grid.width) + " x " + std::to_string(grid.height);
        return false;
    }
    sheet = std::move(out);
    return true;
}

}  // namespace preview
}  // namespace GrabSystem
