// The picture Aravis's simulated cameras send (the in-process one and the
// GigE Vision one, at their default gain and exposure), so that every pixel
// of every frame that went through the grab path can be checked: a frame
// with id f has at (x, y) of its region
//
//   Mono8:  (x + y + f) mod 255
//   Mono16: ((x + y + f) * 256) mod 65535, little-endian
//
// Any change of gain or exposure changes the picture, and the check fails.
#pragma once

#include <cstddef>
#include <cstdint>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace camera {

struct PatternCheck {
    uint64_t wrong = 0;  // pixels that differ
    uint32_t firstX = 0, firstY = 0;  // the first of them, in row order
};

// Checks a packed frame of `bits` 8 or 16 (rows of width pixels, no gap).
GRABSYSTEM_EXPORT PatternCheck CheckSimulatedPattern(const void* pixels, uint32_t width, uint32_t height, unsigned bits,
                                                     uint64_t frameId);

}  // namespace camera
}  // namespace GrabSystem
