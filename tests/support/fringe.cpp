#include "fringe.h"

#include <cmath>
#include <cstddef>

namespace grabsys_test {

// M_PI is not standard C++ and mingw hides it.
constexpr double kPi = 3.14159265358979323846;

void FillFringe(uint8_t* pixels, uint32_t w, uint32_t h, double period, double phase, uint32_t seed) {
    uint32_t noise = seed * 2654435761u + 1;
    for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = 0; x < w; ++x) {
            const double dx = (x - w / 2.0) / (w * 0.35), dy = (y - h / 2.0) / (h * 0.4);
            const bool object = dx * dx + dy * dy < 1.0;
            noise = noise * 1664525u + 1013904223u;
            const int jitter = static_cast<int>(noise >> 30);  // 0..3
            const double v = object ? 120 + 90 * std::cos(2 * kPi * x / period + phase) : 8;
            pixels[size_t{y} * w + x] = static_cast<uint8_t>(v + jitter);
        }
    }
}

}  // namespace grabsys_test
