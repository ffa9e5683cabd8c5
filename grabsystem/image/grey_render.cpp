#include "grabsystem/image/grey_render.h"

#include <algorithm>
#include <cmath>

namespace GrabSystem {

namespace {

constexpr float kNoData = -99999.0f;  // CImgFloatP::kNoData

template <typename T>
void Stretch(const T* values, uint64_t n, uint8_t* grey) {
    double max = 2.2250738585072014e-308;
    double min = 1.7976931348623157e308;
    for (uint64_t i = 0; i < n; ++i) {
        if (values[i] == kNoData) continue;
        max = std::max(max, static_cast<double>(values[i]));
        min = std::min(min, static_cast<double>(values[i]));
    }
    // The scale is rounded to a float, as the BMP saver has always done:
    // saved BMPs stay byte for byte what they were.
    const auto scale = static_cast<float>(255.0 / (max - min));
    for (uint64_t i = 0; i < n; ++i) {
        if (values[i] == kNoData) {
            grey[i] = 0;
            continue;
        }
        // Truncation toward zero, then the low 8 bits; out of the 32-bit
        // range the conversion gives 0, as the x86 conversion instruction
        // does, instead of undefined behaviour.
        const double v = (static_cast<double>(values[i]) - min) * static_cast<double>(scale);
        const int32_t whole = std::isfinite(v) && v > -2147483649.0 && v < 2147483648.0 ? static_cast<int32_t>(v) : 0;
        grey[i] = static_cast<uint8_t>(whole & 0xFF);
    }
}

}  // namespace

void StretchToGrey(const float* values, uint64_t n, uint8_t* grey) { Stretch(values, n, grey); }
void StretchToGrey(const double* values, uint64_t n, uint8_t* grey) { Stretch(values, n, grey); }
void StretchToGrey(const uint16_t* values, uint64_t n, uint8_t* grey) { Stretch(values, n, grey); }
void StretchToGrey(const uint32_t* values, uint64_t n, uint8_t* grey) { Stretch(values, n, grey); }

}  // namespace GrabSystem
