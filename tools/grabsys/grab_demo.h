// The grab-path demonstration: synthetic camera frames through a chunk pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "cli_common.h"

namespace grabsys {

struct GrabDemoOptions {
    uint32_t width = 2448;
    uint32_t height = 2048;
    uint32_t rowGap = 64;        // padding bytes after each camera row
    uint32_t frames = 240;       // frames per mode
    uint32_t chunks = 4;         // images in the pool
    double cameraFps = 120.0;    // 0: as fast as the pool takes them
    uint32_t consumerMs = 10;    // simulated work per consumed frame
    uint32_t savedFrames = 3;    // frames saved as raw and BMP, then reloaded
    std::string outputDir;       // where they go (a path the library accepts)
};

// Runs the demonstration in normal and in ring mode and prints a table.
// Frames enter through CImgPoolCtrlP::PushImg with their number as frame
// attribute; the consumer fetches them with GetImg, saves a few as raw and
// BMP files, loads those back, and releases with ReleaseUsingStatus.
// Returns false when a frame or a reloaded file did not hold what was pushed.
// Every file goes through `env`.
bool RunGrabDemo(const GrabDemoOptions& options, GrabSystem::platform::Env* env, std::ostream& out,
                 std::vector<StageSummary>& summary);

struct CameraDemoOptions {
    uint32_t width = 1024;  // the simulated camera's sensor is 2048 x 2048
    uint32_t height = 1024;
    uint32_t frames = 150;  // the simulated camera's ids start at 65401: 150 frames wrap
};

// Grabs from Aravis's in-process simulated camera through the camera layer
// into a pool and checks every pixel of every frame against its picture.
// False when a frame differs or a frame is not accounted for; a build
// without camera support says so and passes.
bool RunCameraDemo(const CameraDemoOptions& options, std::ostream& out, std::vector<StageSummary>& summary);

}  // namespace grabsys
