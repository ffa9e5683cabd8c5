// The arm-image demonstration: per-view fringe captures compressed into
// ".armraw" files by the output manager, then extracted back into a BMP tree
// and compared frame by frame with what was captured.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "cli_common.h"

namespace grabsys {

struct ArmDemoOptions {
    uint32_t views = 3;
    uint32_t cameras = 2;
    uint32_t width = 1224;
    uint32_t height = 1024;
    int sinDimA = 1;
    int sinDimB = 2;
    int sinDimC = 12;
    int threads = 1;  // compressing and extracting threads (the library's own)
    std::string outputDir;  // ".armraw" files go to <out>\armraw, BMPs to <out>\armbmp
};

// Returns false when a frame read back differs from the one captured.
// Every file goes through `env`.
bool RunArmDemo(const ArmDemoOptions& options, GrabSystem::platform::Env* env, std::ostream& out,
                std::vector<StageSummary>& summary);

}  // namespace grabsys
