// The pixels of a sheet and its lettering: filled boxes, thumbnails copied
// in, and text in the built-in 5 x 7 font (font5x7.h). Text is laid out by
// fields: a field is drawn whole or not at all, so that no number is ever
// cut in two by the room a cell or a line has.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/preview/contact_sheet.h"

namespace GrabSystem {
namespace preview {

constexpr uint8_t kBackground[3] = {24, 24, 24};
constexpr uint8_t kInk[3] = {220, 220, 220};

// The leading fields of `fields` that fit in `width` pixels of text joined
// by `separator`; the first field that does not fit drops it and the rest.
std::string FitFields(const std::vector<std::string>& fields, const std::string& separator, uint32_t width);

// Draws onto a sheet it sizes and fills with the background; clips at the
// sheet's edges.
class Canvas {
public:
    Canvas(Sheet& sheet, uint32_t width, uint32_t height);

    void Fill(uint32_t x, uint32_t y, uint32_t w, uint32_t h, const uint8_t* rgb);
    // `channels` 1 (grey) or 3 (RGB) pixels of w x h at (x, y).
    void Blit(uint32_t x, uint32_t y, const uint8_t* px, uint32_t w, uint32_t h, uint32_t channels);
    // The fields that fit between x and `right` (FitFields), from (x, y).
    void Fields(uint32_t x, uint32_t y, const std::vector<std::string>& fields, const std::string& separator,
                uint32_t right);

private:
    uint8_t* At(uint32_t x, uint32_t y) { return &m_sheet.pixels[(uint64_t{y} * m_sheet.width + x) * 3]; }
    Sheet& m_sheet;
};

}  // namespace preview
}  // namespace GrabSystem
