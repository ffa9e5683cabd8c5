// Shared by the fuzz targets: every input is written to a file in a scratch
// folder (which is also the drive root), because the parsers read files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "grabsystem/platform/os/os.h"

namespace grabsys_fuzz {

inline const std::string& Scratch() {
    static const std::string dir = [] {
        const auto path = std::filesystem::temp_directory_path() / ("grabsys_fuzz_" + std::to_string(std::random_device{}()));
        std::filesystem::create_directories(path);
        GrabSystem::platform::SetDriveRoot(path.string());
        return path.string();
    }();
    return dir;
}

// Writes the input as `name` inside the scratch folder; returns its path.
inline std::string WriteInput(const std::string& name, const uint8_t* data, size_t size) {
    const std::string path = Scratch() + "/" + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f != nullptr) {
        if (size != 0) std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    return path;
}

// Empties what a target wrote, so that runs do not fill the disk.
inline void Clean(const std::string& sub) {
    std::error_code ec;
    std::filesystem::remove_all(Scratch() + "/" + sub, ec);
}

}  // namespace grabsys_fuzz
