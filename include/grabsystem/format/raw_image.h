// The raw image file of IImgP:
//
//   u16 version (1) | ImgSize record (31 bytes) | pixels | information block
//
// The pixels are the size record's byte size (ImgSize::GetByteSize) of
// bytes; the information block (info_block.h) closes the file, as it closes
// every image file. A file of an image whose geometry wraps its 32-bit byte
// size to 0 holds no pixels at all.
#pragma once

#include <cstddef>
#include <cstdint>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/info_block.h"
#include "grabsystem/format/status.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace format {

constexpr uint16_t kRawVersion = 1;
constexpr size_t kRawVersionBytes = 2;
constexpr size_t kRawHeaderBytes = kRawVersionBytes + kImgSizeBytes;

GRABSYSTEM_EXPORT void EncodeRawVersion(Writer& w);
// kBadVersion for any version but 1 (the only one there is).
GRABSYSTEM_EXPORT Status DecodeRawVersion(Reader& r);

// A raw image file as a reader sees it.
struct RawImageView {
    ImgSize size;
    Bytes pixels;           // what the file holds of the size record's byte size
    bool complete = false;  // all of them
    bool hasInfo = false;   // an information block closes the file
    CImgInfo info;
};

// kOk even when pixels are missing (see `complete`); kBadVersion,
// kTruncated or kBadValue when the header cannot be read.
GRABSYSTEM_EXPORT Status DecodeRawImage(Bytes file, RawImageView& view);

}  // namespace format
}  // namespace GrabSystem
