// The debug-package demonstration: captured frames bundled into an image
// package and a general package (with a project file), saved, exported with
// CDebugPackageExporterP into the BMP tree under the drive root, and
// compared frame by frame.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "cli_common.h"

namespace grabsys {

struct PackageDemoOptions {
    uint32_t cameras = 2;
    uint32_t frames = 8;  // per camera
    uint32_t width = 640;
    uint32_t height = 480;
    int threads = 1;  // threads writing the image package's frames
    std::string outputDir;  // packages in <out>/packages; D: maps to <out>/D (the caller's UseDriveRoot)
};

// Every file goes through `env`.
bool RunPackageDemo(const PackageDemoOptions& options, GrabSystem::platform::Env* env, std::ostream& out,
                    std::vector<StageSummary>& summary);

}  // namespace grabsys
