#include "grabsystem/preview/contact_sheet.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <utility>

#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/format/bmp.h"
#include "grabsystem/format/info_block.h"
#include "grabsystem/format/package.h"
#include "grabsystem/format/raw_image.h"
#include "grabsystem/format/value_raw.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/tracking_env.h"
#include "grabsystem/platform/toolkit/win_helper.h"
#include "grabsystem/preview/font5x7.h"
#include "grabsystem/image/grey_render.h"

namespace GrabSystem {
namespace preview {

namespace {

using DrasselSpace::CWinHelper;

constexpr uint32_t kMaxThumbAspect = 4;  // a thumbnail is at most this many cells' widths tall
constexpr uint8_t kBackground[3] = {24, 24, 24};
constexpr uint8_t kInk[3] = {220, 220, 220};
constexpr uint8_t kBarBack[3] = {56, 56, 56};
constexpr uint8_t kMeanBar[3] = {200, 200, 200};
constexpr uint8_t kZeroBar[3] = {70, 130, 255};
constexpr uint8_t kFullBar[3] = {255, 70, 70};

// A frame to be shown: pixels (1 channel grey or 3 RGB) that stay alive
// until the sheet is drawn, or a thumbnail already made, with the stats of
// the frame it came from.
struct FrameRef {
    const uint8_t* pixels = nullptr;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 1;
    std::string name;
    bool measured = false;
    FrameStats stats;
};

struct Row {
    std::vector<std::string> label;
    std::vector<FrameRef> frames;
    std::string tag;  // an arm directory's camera and group ("0P"), for the folder index
};

struct Grid {
    uint32_t cellWidth = 0;
    uint32_t perRow = 0;
    uint32_t boxHeight = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

std::string Num(int64_t v) { return std::to_string(v); }

// "0-3, 5, 7-11": numbers in ascending order.
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

bool TooManyCells(uint64_t cells, uint32_t cellWidth, std::string& error) {
    if (cells <= MostCells(cellWidth)) return false;
    error = "a sheet of " + std::to_string(cells) + " thumbnails " + std::to_string(cellWidth) +
            " pixels wide passes the limit of " + std::to_string(kMaxSheetPixels) +
            " pixels; use smaller thumbnails";
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

class Canvas {
public:
    Canvas(Sheet& sheet, uint32_t width, uint32_t height) : m_sheet(sheet) {
        sheet.width = width;
        sheet.height = height;
        sheet.channels = 3;
        sheet.pixels.assign(uint64_t{width} * height * 3, 0);
        for (uint64_t i = 0; i < sheet.pixels.size(); i += 3) std::copy(kBackground, kBackground + 3, &sheet.pixels[i]);
    }

    void Fill(uint32_t x, uint32_t y, uint32_t w, uint32_t h, const uint8_t* rgb) {
        for (uint32_t r = y; r < std::min(y + h, m_sheet.height); ++r)
            for (uint32_t c = x; c < std::min(x + w, m_sheet.width); ++c) std::copy(rgb, rgb + 3, At(c, r));
    }

    // Whole glyphs only: text stops before `right`.
    void Text(uint32_t x, uint32_t y, const std::string& text, uint32_t right) {
        for (char ch : text) {
            if (x + kGlyphWidth > std::min(right, m_sheet.width) || y + kGlyphHeight > m_sheet.height) return;
            const uint8_t* rows = Glyph(ch);
            for (uint32_t r = 0; r < kGlyphHeight; ++r)
                for (uint32_t c = 0; c < kGlyphWidth; ++c)
                    if (rows[r] & (0x10 >> c)) std::copy(kInk, kInk + 3, At(x + c, y + r));
            x += kGlyphAdvance;
        }
    }

    void Blit(uint32_t x, uint32_t y, const uint8_t* px, uint32_t w, uint32_t h, uint32_t channels) {
        for (uint32_t r = 0; r < h; ++r)
            for (uint32_t c = 0; c < w; ++c) {
                const uint8_t* s = px + (uint64_t{r} * w + c) * channels;
                uint8_t* d = At(x + c, y + r);
                d[0] = s[0];
                d[1] = s[channels == 3 ? 1 : 0];
                d[2] = s[channels == 3 ? 2 : 0];
            }
    }

private:
    uint8_t* At(uint32_t x, uint32_t y) { return &m_sheet.pixels[(uint64_t{y} * m_sheet.width + x) * 3]; }
    Sheet& m_sheet;
};

std::string Percent(double share) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f%%", 100.0 * share);
    return text;
}

uint32_t BarLength(double share, uint32_t width, bool roundUp) {
    const double v = share * width;
    return static_cast<uint32_t>(std::min<double>(width, roundUp ? std::ceil(v - 1e-9) : std::floor(v + 0.5)));
}

// The thumbnail of `f` and its stats; false when memory runs out.
bool MakeThumb(const FrameRef& f, uint32_t cellWidth, std::vector<uint8_t>& thumb, uint32_t& tw, uint32_t& th,
               FrameStats& stats) {
    ThumbnailSize(f.width, f.height, cellWidth, tw, th);
    const uint64_t values = uint64_t{f.width} * f.height * f.channels;
    stats = f.measured ? f.stats : MeasureFrame(f.pixels, values);
    if (tw == 0) return true;
    try {
        thumb.resize(uint64_t{tw} * th * f.channels);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return Downscale(f.pixels, f.width, f.height, f.channels, tw, th, thumb.data());
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
    std::snprintf(mean, sizeof mean, "%.0f ", stats.mean);
    canvas.Text(x, s + 8, f.name, x + w);
    canvas.Text(x, s + 17, mean + Percent(stats.zeroShare + stats.fullShare), x + w);
}

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
            for (const std::string& line : row.label) {
                if (o.labels) canvas.Text(kMargin, y + 1, line, grid.width - kMargin);
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

bool CheckOptions(const SheetOptions& o, std::string& error) {
    if (o.thumbWidth < 8 || o.thumbWidth > 2048) error = "thumbnail width " + Num(o.thumbWidth) + " outside 8..2048";
    else if (o.perRow < 1 || o.perRow > 4096) error = "thumbnails per row " + Num(o.perRow) + " outside 1..4096";
    else if (o.imageWidth < 8 || o.imageWidth > 8192) error = "image width " + Num(o.imageWidth) + " outside 8..8192";
    else return true;
    return false;
}

// ---------------------------------------------------------------- arm views

// The tree's directories of one view, as the extractor lays them out.
struct ArmDir {
    int camera = 0;  // the camera's index in the header's table
    bool p = true;
    std::map<int64_t, uint32_t> sin;  // image number -> Sin frame; later frames win, as in the tree
    int64_t white = -1;
    std::string Name() const { return "CAM" + Num(camera) + (p ? "P" : "Q"); }
};

int64_t SaturatingProduct(int64_t a, int64_t b) {
    constexpr int64_t kCap = int64_t{1} << 62;
    return b != 0 && a > kCap / b ? kCap : a * b;
}

bool ArmDirs(const capture::ArmViewContent& view, std::vector<ArmDir>& dirs, std::string& error) {
    const OneViewArmImageDataHeader& h = view.header;
    const int64_t cams = h.camCount, dimA = h.sinDimA, dimB = h.sinDimB, dimC = h.sinDimC;
    if (cams > format::kArmIdentityCameras) {
        error = "arm view: " + Num(cams) + " cameras, the extractor takes at most " + Num(format::kArmIdentityCameras);
        return false;
    }
    if (view.sin.count != 0 && dimC == 0) {
        error = "arm view: Sin frames with a third dimension of 0";
        return false;
    }
    const int64_t groups = SaturatingProduct(std::max<int64_t>(dimA, 0), std::max<int64_t>(dimB, 0));
    const int64_t sinDirs = SaturatingProduct(std::max<int64_t>(cams, 0), groups);
    std::map<std::pair<int, bool>, size_t> known;
    auto dirOf = [&](int64_t d, uint64_t frame) -> ArmDir* {
        int64_t camera = d - sinDirs;
        bool p = true;
        if (d < sinDirs) {
            camera = d / groups;
            p = d % dimB == 0;
        }
        if (camera >= cams || camera >= static_cast<int64_t>(view.cameras.size())) {
            error = "arm view: frame " + std::to_string(frame) + " lies past the cameras' directories";
            return nullptr;
        }
        const std::pair<int, bool> key(view.cameras[static_cast<size_t>(camera)], p);
        auto it = known.find(key);
        if (it == known.end()) {
            it = known.emplace(key, dirs.size()).first;
            dirs.push_back(ArmDir{key.first, p, {}, -1});
        }
        return &dirs[it->second];
    };
    int64_t d = 0, k = 0;
    for (uint32_t i = 0; i < view.sin.count; ++i) {
        ArmDir* dir = dirOf(d, i);
        if (dir == nullptr) return false;
        // P directories of cameras 0..7 number their frames from 4, wrapping
        // at 12; past 11 the extractor's table gives 0.
        const bool fromFour = dir->p && dir->camera >= 0 && dir->camera < format::kArmIdentityCameras;
        dir->sin[fromFour ? (k < 12 ? (k + 4) % 12 : 0) : k] = i;
        k = (k + 1) % dimC;
        if (k == 0) ++d;
    }
    for (uint32_t i = 0; i < view.white.count; ++i, ++d) {
        ArmDir* dir = dirOf(d, uint64_t{view.sin.count} + i);
        if (dir == nullptr) return false;
        dir->white = i;
    }
    return true;
}

FrameRef SinRef(const capture::ArmViewContent& view, uint32_t i, std::string name) {
    FrameRef f;
    f.pixels = view.sin.Frame(i);
    f.width = view.sin.width;
    f.height = view.sin.height;
    f.name = std::move(name);
    return f;
}

FrameRef WhiteRef(const capture::ArmViewContent& view, uint32_t i, std::string name) {
    FrameRef f = SinRef(view, 0, std::move(name));
    f.pixels = view.white.Frame(i);
    return f;
}

bool ArmRows(const capture::ArmViewContent& view, int viewIndex, uint32_t cellWidth, std::vector<Row>& rows,
             std::string& error) {
    std::vector<ArmDir> dirs;
    if (!ArmDirs(view, dirs, error)) return false;
    uint64_t cells = 0;
    for (const ArmDir& dir : dirs) cells += dir.sin.size() + (dir.white >= 0 ? 1 : 0);
    if (TooManyCells(cells, cellWidth, error)) return false;
    for (const ArmDir& dir : dirs) {
        Row row;
        std::vector<int64_t> numbers;
        for (const auto& [number, frame] : dir.sin) {
            numbers.push_back(number);
            row.frames.push_back(SinRef(view, frame, "IMG" + Num(number)));
        }
        if (dir.white >= 0) row.frames.push_back(WhiteRef(view, static_cast<uint32_t>(dir.white), "IMGW"));
        std::string images = Ranges(numbers);
        if (dir.white >= 0) images += images.empty() ? "W" : ", W";
        row.label.push_back("VIEW " + Num(viewIndex) + "  " + dir.Name() + "  IMG " + images);
        row.tag = dir.Name().substr(3);
        rows.push_back(std::move(row));
    }
    return true;
}

int ViewOfPath(const std::string& path) {
    const std::string stem = CWinHelper::GetFileNameWithoutExtension(path);
    char* end = nullptr;
    const long v = std::strtol(stem.c_str(), &end, 10);
    return !stem.empty() && end != nullptr && *end == '\0' && v >= INT32_MIN && v <= INT32_MAX ? static_cast<int>(v)
                                                                                                : -1;
}

// ---------------------------------------------------------------- image files

enum class ImageKind { kBmp, kWithInfo, kFloatRaw, kDoubleRaw, kPlainRaw };

const char* KindName(ImageKind kind) {
    switch (kind) {
        case ImageKind::kBmp: return "BMP";
        case ImageKind::kFloatRaw: return "FLOAT RAW";
        case ImageKind::kDoubleRaw: return "DOUBLE RAW";
        default: return "RAW";
    }
}

const char* FormatName(VormexDataStructure::eImgFileFormat format) {
    switch (format) {
        case VormexDataStructure::eImgFmtRaw: return "RAW";
        case VormexDataStructure::eImgFmtFFC: return "FLAT-FIELD TABLE";
        case VormexDataStructure::eImgFmtBmp: return "BMP";
        case VormexDataStructure::eImgFmtJpg: return "JPEG";
        default: return "UNKNOWN";
    }
}

// A float (4) or double (8) raw whose header accounts for every byte.
uint32_t ValueRawBytes(format::Bytes file) {
    if (file.size < format::kValueRawHeaderBytes) return 0;
    const format::ValueRawView v = format::DecodeValueRaw(file);
    const uint64_t values = uint64_t{v.width} * v.height * v.channels;
    if (v.version != format::kValueRawVersion || values == 0) return 0;
    if (values * 4 == v.values.size) return 4;
    if (values * 8 == v.values.size) return 8;
    return 0;
}

std::string Fixed(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

// The pixels of an image as the sheet shows them: grey or RGB bytes.
struct Shown {
    std::vector<uint8_t> owned;
    const uint8_t* pixels = nullptr;
    uint32_t channels = 1;
};

bool ShowPixels(IImgP& img, bool values, Shown& shown, std::string& error) {
    const uint64_t n = img.GetArea();
    const uint32_t ch = img.GetChCnt(), bytes = img.GetBytePerCh();
    if (img.GetMemSize() < n * ch * bytes || (n != 0 && img.GetData() == nullptr)) {
        error = "the image holds fewer pixels than its size";
        return false;
    }
    const unsigned char* data = img.GetImg();
    if (bytes == 1 && !values) {
        if (ch == 1) {
            shown.pixels = data;
            return true;
        }
        if (ch != 3 && ch != 4) {
            error = "an 8-bit image of " + Num(ch) + " channels (only 1, 3 and 4 are shown)";
            return false;
        }
        shown.owned.resize(n * 3);
        for (uint64_t i = 0; i < n; ++i)
            for (uint32_t c = 0; c < 3; ++c) shown.owned[i * 3 + c] = data[i * ch + 2 - c];  // BGR(A) to RGB
        shown.pixels = shown.owned.data();
        shown.channels = 3;
        return true;
    }
    if (ch != 1) {
        error = "an image of " + Num(ch) + " channels of " + Num(img.GetBitPerCh()) + " bits (shown only with one)";
        return false;
    }
    shown.owned.resize(n);
    if (values && bytes == 4) StretchToGrey(reinterpret_cast<const float*>(data), n, shown.owned.data());
    else if (values && bytes == 8) StretchToGrey(reinterpret_cast<const double*>(data), n, shown.owned.data());
    else if (bytes == 2) StretchToGrey(reinterpret_cast<const uint16_t*>(data), n, shown.owned.data());
    else if (bytes == 4) StretchToGrey(reinterpret_cast<const uint32_t*>(data), n, shown.owned.data());
    else {
        error = "an image of " + Num(img.GetBitPerCh()) + " bits per channel";
        return false;
    }
    shown.pixels = shown.owned.data();
    return true;
}

bool ImageSheet(platform::Env* env, const std::string& path, format::Bytes file, ImageKind kind, const SheetOptions& o,
                Sheet& sheet, std::string& error, Status& readError) {
    CImgInfo block;
    const bool hasBlock = format::DecodeInfoBlockAtEnd(file, block) == format::Status::kOk;
    // Nothing is loaded that the file cannot fill: the classes size the
    // image by the header alone.
    int bits = 8;
    if (kind == ImageKind::kBmp) {
        format::BmpLayout layout;
        const format::Status status = format::DecodeBmpLayout(file, layout);
        if (status != format::Status::kOk) {
            error = std::string("BMP: ") + format::Describe(status);
            return false;
        }
    } else if (kind == ImageKind::kWithInfo || kind == ImageKind::kPlainRaw) {
        if (kind == ImageKind::kWithInfo && block.fileFormat != VormexDataStructure::eImgFmtRaw) {
            error = block.fileFormat == VormexDataStructure::eImgFmtBmp
                        ? "the information block names a BMP, but the file does not start as one"
                        : std::string("a ") + FormatName(block.fileFormat) + " image: sheets show raw and BMP images";
            return false;
        }
        format::RawImageView raw;
        const format::Status status = format::DecodeRawImage(file, raw);
        if (status != format::Status::kOk || !raw.complete) {
            error = std::string("raw image: ") + (status != format::Status::kOk ? format::Describe(status)
                                                                                : "the pixels end early");
            return false;
        }
        bits = raw.size.GetBitPerChannel();
    }
    std::unique_ptr<IImgP> img;
    bool loaded = false, values = false;
    // The image classes answer only true or false; what the file met on the
    // way is kept here.
    platform::TrackingEnv reads(env);
    if (kind == ImageKind::kFloatRaw) {
        auto f = std::make_unique<CImgFloatP>();
        f->SetEnv(&reads);
        loaded = f->LoadFromRaw(path);
        img = std::move(f);
        values = true;
    } else if (kind == ImageKind::kDoubleRaw) {
        auto d = std::make_unique<CImgDoubleP>();
        d->SetEnv(&reads);
        loaded = d->LoadFromRaw(path);
        img = std::move(d);
        values = true;
    } else {
        if (bits == 8) img = std::make_unique<CImg8P>();
        else if (bits == 16) img = std::make_unique<CImg16P>();
        else if (bits == 32) img = std::make_unique<CImg32P>();
        else {
            error = "raw image of " + Num(bits) + " bits per channel (8, 16 and 32 are shown)";
            return false;
        }
        img->SetEnv(&reads);
        loaded = img->LoadFile(path.c_str());
    }
    if (!loaded) {
        readError = reads.status();
        error = "the image class cannot load it";
        return false;
    }
    Shown shown;
    if (!ShowPixels(*img, values, shown, error)) return false;

    CImgInfo& info = img->GetInfo();
    Row row;
    row.label.push_back(std::string(KindName(kind)) + "  " + Num(img->GetWidth()) + " X " + Num(img->GetHeight()) +
                        " X " + Num(img->GetChCnt()) + "  " + Num(img->GetBitPerCh()) + " BIT");
    if (hasBlock)
        row.label.push_back("CAM " + Num(info.camIdx) + "  ATTR " + Num(info.frameAttr) + "  FORMAT " +
                            FormatName(info.fileFormat) + "  MODE " + Num(info.memMode));
    else
        row.label.push_back("NO INFORMATION BLOCK");
    const ImgRes& res = info.resolution;
    row.label.push_back("RES " + Fixed(res.dX) + " " + Fixed(res.dY) + " " + Fixed(res.dZ));
    FrameRef f;
    f.pixels = shown.pixels;
    f.width = img->GetWidth();
    f.height = img->GetHeight();
    f.channels = shown.channels;
    f.name = CWinHelper::GetFileNameWithoutExtension(path);
    row.frames.push_back(f);
    return Compose({row}, o.imageWidth, o, sheet, error);
}

// What a failed sheet of `path` says: the read error when the file failed,
// else the cause the sheet was refused for.
Status Refused(const std::string& path, const std::string& error, const Status& readError) {
    if (!readError.ok()) return readError;
    return Status::Corruption(path, error);
}

bool DetectImage(const std::string& path, format::Bytes file, ImageKind& kind) {
    CImgInfo block;
    const uint32_t valueBytes = ValueRawBytes(file);
    if (format::HasBmpSignature(file)) kind = ImageKind::kBmp;
    else if (format::DecodeInfoBlockAtEnd(file, block) == format::Status::kOk) kind = ImageKind::kWithInfo;
    else if (valueBytes == 4) kind = ImageKind::kFloatRaw;
    else if (valueBytes == 8) kind = ImageKind::kDoubleRaw;
    else if (CWinHelper::GetFileExtension(path) == ".raw" || CWinHelper::GetFileExtension(path) == ".RAW")
        kind = ImageKind::kPlainRaw;
    else return false;
    return true;
}

}  // namespace

// ---------------------------------------------------------------- arithmetic

FrameStats MeasureFrame(const uint8_t* pixels, uint64_t values) {
    FrameStats s;
    if (values == 0) return s;
    uint64_t sum = 0, zeros = 0, full = 0;
    for (uint64_t i = 0; i < values; ++i) {
        sum += pixels[i];
        zeros += pixels[i] == 0;
        full += pixels[i] == 255;
    }
    const auto n = static_cast<double>(values);
    s.mean = static_cast<double>(sum) / n;
    s.zeroShare = static_cast<double>(zeros) / n;
    s.fullShare = static_cast<double>(full) / n;
    return s;
}

void ThumbnailSize(uint32_t width, uint32_t height, uint32_t cellWidth, uint32_t& tw, uint32_t& th) {
    tw = th = 0;
    if (width == 0 || height == 0 || cellWidth == 0) return;
    tw = std::min(cellWidth, width);
    const uint64_t scaled = (uint64_t{height} * tw + width / 2) / width;
    th = static_cast<uint32_t>(std::clamp<uint64_t>(scaled, 1, std::min<uint64_t>(height, uint64_t{kMaxThumbAspect} * cellWidth)));
}

bool Downscale(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t channels, uint32_t tw, uint32_t th,
               uint8_t* out) {
    if (tw == 0 || th == 0 || tw > width || th > height || channels == 0 || pixels == nullptr) return false;
    // In units of 1 / (width x tw) of a row, source pixel x covers
    // [x tw, (x + 1) tw) and thumbnail pixel X covers [X width, (X + 1) width):
    // as tw <= width, each source pixel falls into one or two of them.
    std::vector<uint32_t> firstX(width), firstWeight(width);
    for (uint32_t x = 0; x < width; ++x) {
        const uint64_t lo = uint64_t{x} * tw;
        firstX[x] = static_cast<uint32_t>(lo / width);
        firstWeight[x] = static_cast<uint32_t>(std::min<uint64_t>(lo + tw, (uint64_t{firstX[x]} + 1) * width) - lo);
    }
    const size_t line = size_t{tw} * channels;
    std::vector<uint64_t> sums(line), cur(line, 0), next(line, 0);
    const uint64_t area = uint64_t{width} * height;
    uint32_t y0 = 0;
    auto flush = [&] {
        for (size_t i = 0; i < line; ++i) out[y0 * line + i] = static_cast<uint8_t>((cur[i] + area / 2) / area);
        cur.swap(next);
        std::fill(next.begin(), next.end(), 0);
        ++y0;
    };
    for (uint32_t y = 0; y < height; ++y) {
        const uint64_t lo = uint64_t{y} * th;
        const auto outY = static_cast<uint32_t>(lo / height);
        const uint64_t upper = std::min<uint64_t>(lo + th, (uint64_t{outY} + 1) * height) - lo;
        while (y0 < outY) flush();
        std::fill(sums.begin(), sums.end(), 0);
        const uint8_t* src = pixels + uint64_t{y} * width * channels;
        for (uint32_t x = 0; x < width; ++x) {
            const size_t at = size_t{firstX[x]} * channels;
            const uint32_t w0 = firstWeight[x], w1 = tw - w0;
            for (uint32_t c = 0; c < channels; ++c) {
                const uint64_t p = src[size_t{x} * channels + c];
                sums[at + c] += p * w0;
                if (w1 != 0) sums[at + channels + c] += p * w1;
            }
        }
        for (size_t i = 0; i < line; ++i) {
            cur[i] += sums[i] * upper;
            if (upper != th) next[i] += sums[i] * (th - upper);
        }
    }
    while (y0 < th) flush();
    return true;
}

// ---------------------------------------------------------------- sheets

Status RenderArmViewSheet(const capture::ArmViewContent& view, int viewIndex, const SheetOptions& options,
                          Sheet& sheet) {
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument("", error);
    std::vector<Row> rows;
    if (ArmRows(view, viewIndex, options.thumbWidth, rows, error) && Compose(rows, options.thumbWidth, options, sheet, error))
        return Status::OK();
    return Status::Corruption("", error);
}

namespace {

bool PackageSheet(const capture::PackageContent& package, const SheetOptions& options, Sheet& sheet,
                  std::string& error) {
    uint64_t cells = 0;
    for (const capture::PackageRun& run : package.runs) cells += run.frames.count;
    if (TooManyCells(cells, options.thumbWidth, error)) return false;
    if (package.runs.size() > kMaxSheetSide / kLineHeight) {
        error = Num(static_cast<int64_t>(package.runs.size())) + " runs: more rows than a sheet can hold";
        return false;
    }
    std::vector<Row> rows(1);
    rows[0].label.push_back(std::string(package.general ? "GENERAL" : "IMAGE") + " PACKAGE V" + Num(package.version) +
                            "  " + Num(static_cast<int64_t>(package.runs.size())) + " RUNS" +
                            (package.hasProjectFile
                                 ? "  PROJECT FILE " + Num(static_cast<int64_t>(package.projectFile.size)) + " BYTES"
                                 : ""));
    for (size_t i = 0; i < package.runs.size(); ++i) {
        const capture::PackageRun& run = package.runs[i];
        Row row;
        std::vector<int64_t> numbers;
        for (uint32_t j = 0; j < run.frames.count; ++j) {
            // The export's own 32-bit rule, wrap included.
            const uint32_t number = run.info.FrameCount * run.info.GroupIdx + run.info.JumpIdx + j;
            numbers.push_back(number);
            FrameRef f;
            f.pixels = run.frames.Frame(j);
            f.width = run.frames.width;
            f.height = run.frames.height;
            f.name = "IMG" + Num(number);
            row.frames.push_back(f);
        }
        std::sort(numbers.begin(), numbers.end());
        row.label.push_back("RUN " + Num(static_cast<int64_t>(i)) + "  CAM" + Num(run.info.CamIdx) + "  GROUP " +
                            Num(run.info.GroupIdx) + "  JUMP " + Num(run.info.JumpIdx) + "  " + Num(run.frames.width) +
                            " X " + Num(run.frames.height) + "  IMG " + Ranges(numbers));
        rows.push_back(std::move(row));
    }
    return Compose(rows, options.thumbWidth, options, sheet, error);
}

}  // namespace

Status RenderPackageSheet(const capture::PackageContent& package, const SheetOptions& options, Sheet& sheet) {
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument("", error);
    return PackageSheet(package, options, sheet, error) ? Status::OK() : Status::Corruption("", error);
}

Status RenderImageSheet(const std::string& path, const SheetOptions& options, Sheet& sheet, platform::Env* env) {
    env = platform::Env::Or(env);
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument(path, error);
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = env->ReadFile(path, data, size);
    if (!read.ok()) return read;
    const format::Bytes file(data.get(), static_cast<size_t>(size));
    ImageKind kind;
    if (!DetectImage(path, file, kind)) return Status::Corruption(path, "not a raw, BMP, float raw or double raw image");
    Status readError;
    if (ImageSheet(env, path, file, kind, options, sheet, error, readError)) return Status::OK();
    return Refused(path, error, readError);
}

Status RenderFileSheet(const std::string& path, const SheetOptions& options, Sheet& sheet, platform::Env* env) {
    env = platform::Env::Or(env);
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument(path, error);
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = env->ReadFile(path, data, size);
    if (!read.ok()) return read;
    const format::Bytes file(data.get(), static_cast<size_t>(size));
    Status readError;
    if (CWinHelper::GetFileExtension(path) == ".armraw") {
        capture::ArmViewContent view;
        const Status decoded = capture::DecodeArmView(file, view);
        if (!decoded.ok()) return Status::Corruption(path, decoded.cause());
        data.reset();
        const Status shown = RenderArmViewSheet(view, ViewOfPath(path), options, sheet);
        return shown.ok() ? shown : Status::Corruption(path, shown.cause());
    }
    ImageKind kind;
    if (DetectImage(path, file, kind) && kind != ImageKind::kPlainRaw) {
        if (ImageSheet(env, path, file, kind, options, sheet, error, readError)) return Status::OK();
        return Refused(path, error, readError);
    }
    // Only versions a package reader takes: any other first word would be
    // reported as a damaged general package, which a stray file is not.
    const uint32_t first = file.size >= 4 ? format::GetU32(file.data) : 0;
    if (format::HoldsPackageHead(file) &&
        (format::IsImagePackageVersion(first) || first == format::kGeneralPackageVersion)) {
        data.reset();
        capture::PackageContent package;
        const Status loaded = capture::ReadPackage(path, package, env);
        if (!loaded.ok()) return loaded;
        return PackageSheet(package, options, sheet, error) ? Status::OK() : Status::Corruption(path, error);
    }
    if (DetectImage(path, file, kind)) {
        if (ImageSheet(env, path, file, kind, options, sheet, error, readError)) return Status::OK();
        return Refused(path, error, readError);
    }
    return Status::Corruption(path, "not a file of this system (arm view, debug package, raw, BMP, float or double raw image)");
}

Status RenderFolderSheet(const std::string& directory, const SheetOptions& options, Sheet& sheet,
                         std::vector<Status>* unreadable, platform::Env* env) {
    if (unreadable != nullptr) unreadable->clear();
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument(directory, error);
    std::vector<int> views;
    {
        platform::TrackingEnv listing(platform::Env::Or(env));
        ArmImageExtractor extractor;
        extractor.SetEnv(&listing);
        extractor.ParseArmRawFile(directory, views);
        if (!listing.ok()) return listing.status();
    }
    if (views.empty()) return Status::NotFound(directory, "no .armraw files named by a view number");
    std::sort(views.begin(), views.end());
    if (views.size() > kMaxSheetSide / kLineHeight)
        return Status::InvalidArgument(directory,
                                       Num(static_cast<int64_t>(views.size())) + " views: more rows than a sheet can hold");
    const std::string prefix =
        directory.empty() || directory.back() == '/' || directory.back() == '\\' ? directory : directory + "/";
    std::vector<Row> rows;
    std::deque<std::vector<uint8_t>> thumbs;  // the index keeps thumbnails, not views
    for (int v : views) {
        capture::ArmViewContent view;
        std::string why;
        std::vector<Row> viewRows;
        Row index;
        const std::string path = prefix + Num(v) + ".armraw";
        Status read = capture::ReadArmView(path, view, env);
        if (read.ok() && !ArmRows(view, v, options.thumbWidth, viewRows, why)) read = Status::Corruption(path, why);
        if (!read.ok()) {
            index.label.push_back("VIEW " + Num(v) + ": " + read.cause());
            if (unreadable != nullptr) {
                const std::string cause = "view " + Num(v) + ": " + read.cause();
                unreadable->push_back(read.IsIOError()    ? Status::IOError(read.subject(), cause)
                                      : read.IsNotFound() ? Status::NotFound(read.subject(), cause)
                                                          : Status::Corruption(read.subject(), cause));
            }
            rows.push_back(std::move(index));
            continue;
        }
        const OneViewArmImageDataHeader& h = view.header;
        index.label.push_back("VIEW " + Num(v) + "  " + Num(h.camCount) + " CAMERAS  " + Num(h.sinDimA) + " X " +
                              Num(h.sinDimB) + " X " + Num(h.sinDimC) + "  " + Num(h.sinFrameCount) + " SIN + " +
                              Num(h.whiteFrameCount) + " W  " + Num(h.width) + " X " + Num(h.height));
        for (const Row& dirRow : viewRows) {
            std::vector<const FrameRef*> picked{&dirRow.frames.front()};
            if (dirRow.frames.size() > 1 && dirRow.frames.back().name == "IMGW") picked.push_back(&dirRow.frames.back());
            for (const FrameRef* f : picked) {
                FrameRef small = *f;
                small.name = dirRow.tag + " " + f->name.substr(3);
                uint32_t tw = 0, th = 0;
                thumbs.emplace_back();
                if (!MakeThumb(*f, options.thumbWidth, thumbs.back(), tw, th, small.stats))
                    return Status::IOError(directory, "out of memory for a thumbnail");
                small.measured = true;
                small.pixels = thumbs.back().data();
                small.width = tw;
                small.height = th;
                index.frames.push_back(small);
            }
        }
        rows.push_back(std::move(index));
        Grid grid;
        if (!Layout(rows, options.thumbWidth, options.perRow, grid, error)) return Status::InvalidArgument(directory, error);
    }
    if (!Compose(rows, options.thumbWidth, options, sheet, error)) return Status::InvalidArgument(directory, error);
    return Status::OK();
}

}  // namespace preview
}  // namespace GrabSystem
