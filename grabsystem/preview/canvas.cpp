#include "grabsystem/preview/canvas.h"

#include <algorithm>

#include "grabsystem/preview/font5x7.h"

namespace GrabSystem {
namespace preview {

std::string FitFields(const std::vector<std::string>& fields, const std::string& separator, uint32_t width) {
    // n glyphs take n advances less the last one's gap.
    const uint64_t room = width < kGlyphWidth ? 0 : (width - kGlyphWidth) / kGlyphAdvance + 1;
    std::string text;
    for (const std::string& field : fields) {
        const std::string next = text.empty() ? field : text + separator + field;
        if (next.size() > room) break;
        text = next;
    }
    return text;
}

Canvas::Canvas(Sheet& sheet, uint32_t width, uint32_t height) : m_sheet(sheet) {
    sheet.width = width;
    sheet.height = height;
    sheet.channels = 3;
    sheet.pixels.assign(uint64_t{width} * height * 3, 0);
    for (uint64_t i = 0; i < sheet.pixels.size(); i += 3) std::copy(kBackground, kBackground + 3, &sheet.pixels[i]);
}

void Canvas::Fill(uint32_t x, uint32_t y, uint32_t w, uint32_t h, const uint8_t* rgb) {
    for (uint32_t r = y; r < std::min(y + h, m_sheet.height); ++r)
        for (uint32_t c = x; c < std::min(x + w, m_sheet.width); ++c) std::copy(rgb, rgb + 3, At(c, r));
}

void Canvas::Blit(uint32_t x, uint32_t y, const uint8_t* px, uint32_t w, uint32_t h, uint32_t channels) {
    for (uint32_t r = 0; r < h; ++r)
        for (uint32_t c = 0; c < w; ++c) {
            const uint8_t* s = px + (uint64_t{r} * w + c) * channels;
            uint8_t* d = At(x + c, y + r);
            d[0] = s[0];
            d[1] = s[channels == 3 ? 1 : 0];
            d[2] = s[channels == 3 ? 2 : 0];
        }
}

void Canvas::Fields(uint32_t x, uint32_t y, const std::vector<std::string>& fields, const std::string& separator,
                    uint32_t right) {
    right = std::min(right, m_sheet.width);
    if (x >= right || y + kGlyphHeight > m_sheet.height) return;
    for (char ch : FitFields(fields, separator, right - x)) {
        const uint8_t* rows = Glyph(ch);
        for (uint32_t r = 0; r < kGlyphHeight; ++r)
            for (uint32_t c = 0; c < kGlyphWidth; ++c)
                if (rows[r] & (0x10 >> c)) std::copy(kInk, kInk + 3, At(x + c, y + r));
        x += kGlyphAdvance;
    }
}

}  // namespace preview
}  // namespace GrabSystem
