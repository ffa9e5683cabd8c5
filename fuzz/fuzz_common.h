// Shared by the fuzz targets. Every target feeds its input to the format's
// decoders in memory; the targets whose class reads files by path (that path
// being what is tested) put the input into an in-memory Env that is fresh
// for every input, and everything they write goes there too: nothing
// reaches the disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/format/coding.h"
#include "grabsystem/format/data_structure.h"
#include "grabsystem/format/package.h"
#include "grabsystem/format/raw_image.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/mem_env.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace grabsys_fuzz {

// The files of one input: an in-memory Env, passed to the objects under
// test and installed as the default as well, so that nothing a target
// forgets to pass it reaches the disk. The drive root is its root: "D:/x"
// names D:/x in memory.
class Files {
public:
    Files() : m_installed(&m_env) {}
    GrabSystem::platform::MemEnv* Env() { return &m_env; }

    // The input as the file `path` (its folder made first); returns the path.
    std::string Put(const std::string& path, const uint8_t* data, size_t size) {
        const size_t slash = path.find_last_of('/');
        if (slash != std::string::npos) m_env.CreateDirectories(path.substr(0, slash));
        m_env.WriteFile(path, data, size);
        return path;
    }

private:
    GrabSystem::platform::MemEnv m_env{GrabSystem::platform::Env::System()};
    GrabSystem::platform::ScopedEnv m_installed;
};

// Inputs whose own numbers ask for more than this are skipped. The library
// honours what its formats ask for up to the 4 GiB their 32-bit sizes reach
// (memory, and the bytes it then writes); a fuzzer has far less room, and an
// input that merely asks for much finds no fault by it. The numbers are read
// with the library's own decoders.
constexpr uint64_t kMaxBytes = uint64_t{8} << 20;
// Frames an input may make the library write (each export frame is a file).
constexpr uint64_t kMaxFrames = 256;

inline GrabSystem::format::Bytes Input(const uint8_t* data, size_t size) { return GrabSystem::format::Bytes(data, size); }

// What an image of `bitsPerChannel` reserves for w x h x channels: the
// library's 32-bit rule.
inline uint64_t ImageBytes(uint32_t w, uint32_t h, uint32_t channels, uint32_t bitsPerChannel) {
    VormexDataStructure::ImgSize size(w, h, static_cast<uint8_t>(channels), static_cast<uint8_t>(bitsPerChannel));
    return size.GetByteSize();
}

// A raw image's size record, loaded into kinds of up to 32 bits per channel.
inline bool RawImageTooLarge(const uint8_t* data, size_t size) {
    GrabSystem::format::Reader r(Input(data, size));
    r.Skip(GrabSystem::format::kRawVersionBytes + 2);  // the file's and the record's version words
    const uint32_t w = r.U32(), h = r.U32();
    r.Skip(16);
    const uint32_t channels = r.U8();
    for (uint32_t bits : {1u, 8u, 16u, 32u})
        if (ImageBytes(w, h, channels, bits) > kMaxBytes) return true;
    return false;
}

// An image package: its data area, the records it makes the reader hold,
// and the frames its export writes.
inline bool ImagePackageTooLarge(const uint8_t* data, size_t size) {
    namespace format = GrabSystem::format;
    const format::Bytes file = Input(data, size);
    const format::ImagePackageHead head = format::DecodeImagePackageHead(file);
    if (uint64_t{head.count} * format::kImagePackageRecordBytes > kMaxBytes) return true;
    std::vector<GrabSystem::CDebugImgPackageInfoP> records;
    uint64_t frames = 0, written = 0;
    for (uint64_t i = 0; i < head.count; ++i) {
        records.push_back(format::DecodeImagePackageRecord(file.Sub(head.bytes + i * format::kImagePackageRecordBytes)));
        const uint32_t pixels = records.back().Width * records.back().Height;
        frames += records.back().FrameCount;
        written += uint64_t{pixels} * records.back().FrameCount;
    }
    return format::ImagePackageDataBytes(records) > kMaxBytes || frames > kMaxFrames || written > kMaxBytes;
}

// A general package: its records, the project file (whose length opens the
// encrypted data area) and the frames its imports write.
inline bool GeneralPackageTooLarge(const uint8_t* data, size_t size) {
    namespace format = GrabSystem::format;
    const format::Bytes file = Input(data, size);
    const format::GeneralPackageHead head = format::DecodeGeneralPackageHead(file);
    if (uint64_t{head.count} * format::kGeneralPackageRecordBytes > kMaxBytes) return true;
    uint64_t frames = 0, written = 0;
    for (uint64_t i = 0; i < head.count; ++i) {
        const GrabSystem::CDebugPackageInfoP info = format::DecodeGeneralPackageRecord(
            file.Sub(format::kGeneralPackageHeadBytes + i * format::kGeneralPackageRecordBytes));
        const uint32_t pixels = info.Width * info.Height;
        if (pixels > kMaxBytes) return true;
        frames += info.FrameCount;
        written += uint64_t{pixels} * info.FrameCount;
    }
    if (frames > kMaxFrames || written > kMaxBytes) return true;
    if (head.flag != 1) return false;
    std::vector<unsigned char> first(format::kPackageBlockLengthBytes);
    const format::Bytes area = file.Sub(format::GeneralPackageDataOffset(head.count), first.size());
    if (area.size != 0) std::memcpy(first.data(), area.data, area.size);
    DrasselSpace::FileToolP::EncryptData(first.data(), first.size(),
                                         reinterpret_cast<const unsigned char*>(GrabSystem::CDebugImgPackageP::kKey), 16);
    return format::DecodePackageBlock(format::Bytes(first.data(), first.size()), 0).length > kMaxBytes;
}

}  // namespace grabsys_fuzz
