// Shared by the fuzz targets: every input is written to a file in a scratch
// folder (which is also the drive root), because the parsers read files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "grabsystem/format/data_structure.h"
#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/file_tool.h"

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

// Inputs whose own numbers ask for more than this are skipped. The library
// honours what its formats ask for up to the 4 GiB their 32-bit sizes reach
// (memory, and the bytes it then writes); a fuzzer has far less room, and an
// input that merely asks for much finds no fault by it.
constexpr uint64_t kMaxBytes = uint64_t{8} << 20;
// Frames an input may make the library write (each export frame is a file).
constexpr uint64_t kMaxFrames = 256;

// The little-endian word at `at`; bytes past the end read as zeros, as the
// library's readers take them.
inline uint32_t Word(const uint8_t* data, size_t size, uint64_t at) {
    uint32_t v = 0;
    for (uint64_t i = 0; i < 4; ++i)
        if (at + i < size) v |= static_cast<uint32_t>(data[at + i]) << (8 * i);
    return v;
}

// What an image of `bitsPerChannel` reserves for w x h x channels: the
// library's 32-bit rule.
inline uint64_t ImageBytes(uint32_t w, uint32_t h, uint32_t channels, uint32_t bitsPerChannel) {
    const auto bitsPerPixel = static_cast<uint8_t>(channels * bitsPerChannel);
    return static_cast<uint32_t>(VormexDataStructure::ImgSize::BytesPerPixelFor(bitsPerPixel) * (w * h));
}

// A raw image (version word, then the size record: width at 4, height at 8,
// channels at 28) loaded into kinds of up to 32 bits per channel.
inline bool RawImageTooLarge(const uint8_t* data, size_t size) {
    const uint32_t w = Word(data, size, 4), h = Word(data, size, 8), ch = size > 28 ? data[28] : 0;
    for (uint32_t bits : {1u, 8u, 16u, 32u})
        if (ImageBytes(w, h, ch, bits) > kMaxBytes) return true;
    return false;
}

// An image package: its data area, the records it makes the reader hold,
// and the frames its export writes.
inline bool ImagePackageTooLarge(const uint8_t* data, size_t size) {
    const uint32_t version = Word(data, size, 0), count = Word(data, size, 4);
    if (uint64_t{count} * 20 > kMaxBytes) return true;
    uint32_t area = 0;
    uint64_t frames = 0, written = 0;
    for (uint64_t i = 0, at = version == 1 ? 8 : 12; i < count; ++i, at += 20) {
        const uint32_t pixels = Word(data, size, at) * Word(data, size, at + 4), n = Word(data, size, at + 8);
        area += pixels * n;
        frames += n;
        written += uint64_t{pixels} * n;
    }
    return area > kMaxBytes || frames > kMaxFrames || written > kMaxBytes;
}

// A general package: its records, the project file (whose length is the
// first word of the encrypted data area) and the frames its imports write.
inline bool GeneralPackageTooLarge(const uint8_t* data, size_t size) {
    const uint32_t flag = Word(data, size, 4), count = Word(data, size, 8);
    if (uint64_t{count} * 24 > kMaxBytes) return true;
    uint64_t frames = 0, written = 0;
    for (uint64_t i = 0, at = 12; i < count; ++i, at += 24) {
        const uint32_t pixels = Word(data, size, at + 4) * Word(data, size, at + 8), n = Word(data, size, at + 12);
        if (pixels > kMaxBytes) return true;
        frames += n;
        written += uint64_t{pixels} * n;
    }
    if (frames > kMaxFrames || written > kMaxBytes) return true;
    if (flag != 1) return false;
    const uint64_t start = 12 + uint64_t{count} * 24;
    unsigned char length[4] = {};
    for (uint64_t i = 0; i < 4; ++i)
        if (start + i < size) length[i] = data[start + i];
    DrasselSpace::FileToolP::EncryptData(length, 4, reinterpret_cast<const unsigned char*>("Tk4mW9pLr2Xv7NqZ"), 16);
    return Word(length, 4, 0) > kMaxBytes;
}

// Empties what a target wrote, so that runs do not fill the disk.
inline void Clean(const std::string& sub) {
    std::error_code ec;
    std::filesystem::remove_all(Scratch() + "/" + sub, ec);
}

}  // namespace grabsys_fuzz
