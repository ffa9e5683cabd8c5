// The geometry of a sheet (contact_sheet.h draws it): rows of label lines
// and cells, where each cell goes, how tall the sheet is, and the limits a
// sheet is refused at before any memory is taken for it. The sheets of
// every kind are built as rows of this model.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/preview/contact_sheet.h"

namespace GrabSystem {
namespace preview {

// A frame to be shown: pixels (1 channel grey or 3 RGB) that stay alive
// until the sheet is drawn, or a thumbnail already made, with the stats of
// the frame it came from.
struct FrameRef {
    const uint8_t* pixels = nullptr;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 1;
    std::string name;  // words that are shown whole or not at all
    bool measured = false;
    FrameStats stats;
};

// One line of text: fields that are shown whole or not at all, in order.
struct Label {
    std::vector<std::string> fields;
    std::string separator = "  ";
};

struct Row {
    std::vector<Label> label;
    std::vector<FrameRef> frames;
    std::string tag;  // an arm folder's camera and group ("0P"), for the folder index
};

struct Grid {
    uint32_t cellWidth = 0;
    uint32_t perRow = 0;
    uint32_t boxHeight = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

constexpr uint32_t kMaxThumbAspect = 4;  // a thumbnail is at most this many cells' widths tall

// False, with the cause, for a sheet of more cells of `cellWidth` than the
// pixel limit leaves room for.
bool TooManyCells(uint64_t cells, uint32_t cellWidth, std::string& error);
// The grid of `rows`; false, with the sheet's size in the cause, when it
// passes the limits.
bool Layout(const std::vector<Row>& rows, uint32_t cellWidth, uint32_t perRow, Grid& grid, std::string& error);
// False, with the cause, for options out of range.
bool CheckOptions(const SheetOptions& options, std::string& error);

// Decimal text.
inline std::string Num(int64_t v) { return std::to_string(v); }
// The words of a text between single spaces, empty ones included, so that
// joined with " " they give the text again.
std::vector<std::string> Words(const std::string& text);
// "0-3, 5, 7-11": numbers in ascending order.
std::string Ranges(const std::vector<int64_t>& numbers);

}  // namespace preview
}  // namespace GrabSystem
