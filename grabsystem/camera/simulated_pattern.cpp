#include "grabsystem/camera/simulated_pattern.h"

#include <cstring>

namespace GrabSystem {
namespace camera {

PatternCheck CheckSimulatedPattern(const void* pixels, uint32_t width, uint32_t height, unsigned bits, uint64_t frameId) {
    PatternCheck check;
    const auto* bytes = static_cast<const uint8_t*>(pixels);
    // Walked along each row so that no pixel costs a division: a step in x
    // adds 1 mod 255 (Mono8) or 256 mod 65535 (Mono16).
    const uint32_t modulus = bits == 16 ? 65535u : 255u, step = bits == 16 ? 256u : 1u;
    for (uint32_t y = 0; y < height; ++y) {
        uint32_t want = static_cast<uint32_t>(((frameId + y) * step) % modulus);
        for (uint32_t x = 0; x < width; ++x) {
            const size_t at = size_t{y} * width + x;
            uint32_t got = bytes[at];
            if (bits == 16) {
                uint16_t word;
                std::memcpy(&word, bytes + at * 2, 2);
                got = word;
            }
            if (got != want && check.wrong++ == 0) {
                check.firstX = x;
                check.firstY = y;
            }
            want += step;
            if (want >= modulus) want -= modulus;
        }
    }
    return check;
}

}  // namespace camera
}  // namespace GrabSystem
