// The grab-path demonstration: synthetic camera frames through a chunk pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>

namespace grabsys {

struct GrabDemoOptions {
    uint32_t width = 2448;
    uint32_t height = 2048;
    uint32_t rowGap = 64;        // padding bytes after each camera row
    uint32_t frames = 240;       // frames per mode
    uint32_t chunks = 4;         // images in the pool
    double cameraFps = 120.0;    // 0: as fast as the pool takes them
    uint32_t consumerMs = 10;    // simulated work per consumed frame
};

// Runs the demonstration in normal and in ring mode and prints a table.
// Returns false when a consumed frame did not hold the pixels pushed.
bool RunGrabDemo(const GrabDemoOptions& options, std::ostream& out);

}  // namespace grabsys
