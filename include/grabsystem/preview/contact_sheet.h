// Contact sheets: a capture, a package or an image file drawn as one
// picture of small thumbnails, so that fringes, white frames and cameras
// can be judged at a glance before anything is extracted.
//
// A sheet is rows of cells. Each row starts with its label (one or more
// lines of text), then its cells, perRow to a line:
//
//   +-- margin -------------------------------------------------------+
//   | VIEW 0  CAM0P  IMG 0-11, W                       (label lines)  |
//   | [thumb] gap [thumb] gap ...                                     |
//   | [strip]     [strip]                                             |
//   | gap                                                             |
//   | VIEW 0  CAM0Q  IMG 0-11                                         |
//   | ...                                                             |
//
// Geometry, for cell width W (thumbWidth, or imageWidth for an image file)
// and box height B (the tallest thumbnail of the sheet):
//   width  = max(kMinSheetWidth, 2 kMargin + C W + (C - 1) kGap), where C is
//            min(perRow, the most cells of any row), at least 1
//   height = 2 kMargin + the sum over rows of
//            labelLines x kLineHeight + ceil(cells / perRow) x (B + kStripHeight + kGap)
// Cell j of a row whose cells start at y lies at
//   x = kMargin + (j mod perRow)(W + kGap),  y + (j div perRow)(B + kStripHeight + kGap).
// The geometry does not depend on `labels`: a sheet without labels is the
// same picture with the text left out.
//
// A thumbnail is its frame scaled down by area averaging: thumbnail pixel
// (X, Y) is the mean of the frame over the rectangle it covers, partial
// pixels weighted by the part covered, rounded to the nearest level. Every
// thumbnail pixel covers the same area, so a thumbnail's mean is its
// frame's mean within half a level. Its width is min(W, frame width), its
// height the frame's aspect at that width, rounded, at least 1, at most the
// frame's height and 4 W. Frames are never enlarged. It sits in the top
// left corner of its cell.
//
// Under each thumbnail a strip of kStripHeight rows: at rows 1-2 a bar of
// the frame's mean (light, round(mean / 255 x W) pixels long), at rows 4-5
// the clipped share, in blue for pixels at 0 and then red for pixels at 255
// (each rounded up, so that one clipped pixel shows), then two lines of
// text from row 8: the frame's name, and its mean and clipped share in
// percent. "Clipped" is every channel value at 0 or 255: under- and
// overexposed pixels alike.
//
// Pixels are RGB (3 channels, interleaved, rows top first, no padding). The
// background is dark grey, text light grey, in a built-in 5 x 7 font
// (capitals, digits, some punctuation). Text is made of fields (a label
// line's parts, two spaces apart; a name's or a cause's words and the mean
// and the clipped share, one space apart): a field that does not fit the
// room left drops whole, with every field after it, so no number is ever
// cut in two, at any thumbnail width.
//
// Every size is computed in 64 bits and checked before memory is taken: a
// sheet whose side would pass kMaxSheetSide or whose pixels would pass
// kMaxSheetPixels is refused with a message giving its size, whatever the
// file claims, before any thumbnail is made.
//
// The renderers answer with a Status: the file's own error (I/O error, not
// found) when it cannot be read, through the Env given (the default Env
// when null); corruption, naming the file and the cause, when it cannot be
// shown; invalid argument for options out of range.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace preview {

constexpr uint32_t kMargin = 4;
constexpr uint32_t kGap = 4;
constexpr uint32_t kLineHeight = 10;
constexpr uint32_t kStripHeight = 26;
constexpr uint32_t kMinSheetWidth = 256;
constexpr uint32_t kMaxSheetSide = 65535;
constexpr uint64_t kMaxSheetPixels = uint64_t{1} << 26;

struct Sheet {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 3;       // RGB
    std::vector<uint8_t> pixels;  // height x width x channels
};

struct SheetOptions {
    uint32_t thumbWidth = 96;  // cell width of capture sheets, 8..2048
    uint32_t perRow = 13;      // cells on one line, 1..4096: a camera's 12 phases and its white frame
    uint32_t imageWidth = 480;  // cell width of an image file's sheet, 8..8192
    bool labels = true;
    // The root a view's tree is taken to be extracted under, as the
    // extractor is given it (ending with "\"): its path is part of the
    // extractor's renumbering test (arm_tree.h), so a root that names
    // Cam0P..Cam7P numbers every folder from 4. Empty: the tree below any
    // other root.
    std::string treeRoot;
};

// What the strip under a thumbnail shows: over every channel value.
struct FrameStats {
    double mean = 0;
    double zeroShare = 0;  // values at 0, 0..1
    double fullShare = 0;  // values at 255
};

GRABSYSTEM_EXPORT FrameStats MeasureFrame(const uint8_t* pixels, uint64_t values);

// The thumbnail's size for a frame, as the sheet gives it (see above).
GRABSYSTEM_EXPORT void ThumbnailSize(uint32_t width, uint32_t height, uint32_t cellWidth, uint32_t& thumbWidth,
                                     uint32_t& thumbHeight);
// Area-averages a frame (packed, `channels` interleaved) down to tw x th,
// neither larger than the frame nor 0; `out` receives tw x th x channels
// bytes. False for a size outside those bounds.
GRABSYSTEM_EXPORT bool Downscale(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t channels,
                                 uint32_t tw, uint32_t th, uint8_t* out);

// One row per directory the extractor writes for the view under
// options.treeRoot (LayOutArmTree, arm_tree.h), Cam<c><P|Q>\<view>\ in
// the order the view's frames first reach it, its Sin frames in
// image-number order under the numbers of the tree (img<k>.bmp), then the
// white frame (imgW.bmp). A frame that the tree would overwrite (a number
// written twice, as more than one pass or Q group does) is shown as the
// tree keeps it: the later one. A view the extractor has no whole tree for
// (more than 8 cameras, Sin frames with a third dimension of 0, a frame
// past the directory list) is refused.
GRABSYSTEM_EXPORT Status RenderArmViewSheet(const capture::ArmViewContent& view, int viewIndex,
                                            const SheetOptions& options, Sheet& sheet);

// One row per run: camera, group, jump index, size and the frame numbers
// the export gives its files (frames x group + jump + j).
GRABSYSTEM_EXPORT Status RenderPackageSheet(const capture::PackageContent& package, const SheetOptions& options,
                                            Sheet& sheet);

// A raw, BMP, float raw or double raw image, loaded with the library's
// image classes (capture/image_file.h) and shown whole at imageWidth, labelled with its
// information block (size, channels, bits, camera, frame attribute, file
// format, resolution). 8-bit images show as they are (three or four
// channels in colour, BMP order turned into RGB); float images exactly as
// their BMP (grey_render.h); double, 16- and 32-bit images by the same
// stretch. Images of more than one channel and more than 8 bits are refused.
GRABSYSTEM_EXPORT Status RenderImageSheet(const std::string& path, const SheetOptions& options, Sheet& sheet,
                                          platform::Env* env = nullptr);

// Any of the above, chosen by what the file is (capture::IdentifyFile); an
// arm view's number is the file's stem.
GRABSYSTEM_EXPORT Status RenderFileSheet(const std::string& path, const SheetOptions& options, Sheet& sheet,
                                         platform::Env* env = nullptr);

// An index of a folder of ".armraw" files: one row per view in view order,
// labelled with its counts and size, holding for each directory of the
// view its first frame by number and its white frame. Views that cannot be
// read keep their row, labelled with the cause, and each adds its Status to
// `unreadable` (when given) while the sheet is still made; an error (and no
// sheet) when the folder cannot be listed, holds no view file or the sheet
// would be too large.
GRABSYSTEM_EXPORT Status RenderFolderSheet(const std::string& directory, const SheetOptions& options, Sheet& sheet,
                                           std::vector<Status>* unreadable = nullptr, platform::Env* env = nullptr);

}  // namespace preview
}  // namespace GrabSystem
