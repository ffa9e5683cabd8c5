// The per-view arm file (".armraw", named by the view index), little-endian:
// a 1024-byte header, then one record per Sin frame and then one per
// white-pattern frame, packed with no gap:
//
//   header  u32 version (2) | u32 Sin frame count | u32 white frame count |
//           u32 width | u32 height | i32 camCount | i32 sinDimA |
//           i32 sinDimB | i32 sinDimC | 988 bytes: byte i is the low 8 bits
//           of camera index i, the rest 0
//   record  u32 kind (1) | u32 n | 56 zero bytes | n bytes of one raw LZ4
//           block (no frame header, no checksum) holding the frame's
//           width x height 8-bit pixels
//
// The file is exactly 1024 + the sum of (64 + n) bytes. A header below
// version 2 has no camera table: camera i has index i, for up to 8 cameras.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/status.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

// The header of a per-view file, as its fields.
struct OneViewArmImageDataHeader {
    uint32_t version;
    uint32_t sinFrameCount;
    uint32_t whiteFrameCount;
    uint32_t width;
    uint32_t height;
    int32_t camCount;
    int32_t sinDimA;
    int32_t sinDimB;
    int32_t sinDimC;
    uint8_t camTable[988];
};

namespace format {

constexpr uint32_t kArmVersion = 2;
constexpr size_t kArmHeaderBytes = 1024;
constexpr size_t kArmCameraTableOffset = 36;
constexpr size_t kArmCameraTableBytes = 988;
constexpr size_t kArmRecordHeaderBytes = 64;
constexpr uint32_t kArmRecordKind = 1;
// Cameras a header's table names before version 2: 0..7.
constexpr int kArmIdentityCameras = 8;

// The header from the start of `file`; bytes a short file lacks read as
// zeros (`complete` tells).
GRABSYSTEM_EXPORT OneViewArmImageDataHeader DecodeArmHeader(Bytes file, bool* complete = nullptr);
GRABSYSTEM_EXPORT void EncodeArmHeader(Writer& w, const OneViewArmImageDataHeader& header);

// One frame record at `offset`: false when its 64-byte header is not all in
// `file`. `data` is what the file holds of the record's n bytes.
struct ArmRecordView {
    uint32_t kind = 0;
    uint32_t length = 0;  // n, as the record says
    Bytes data;
};
GRABSYSTEM_EXPORT bool DecodeArmRecord(Bytes file, uint64_t offset, ArmRecordView& record);
// The 64-byte header of a record of n bytes of LZ4 data.
GRABSYSTEM_EXPORT void EncodeArmRecordHeader(Writer& w, uint32_t length);

// A per-view file described without decompressing it, for tools that say
// what a file holds. Records are walked as the header counts them and stop
// at the first whose 64-byte header is not in the file, so a damaged count
// cannot make more of them than the file has room for.
struct ArmViewSummary {
    OneViewArmImageDataHeader header = {};
    std::vector<ArmRecordView> records;
    uint64_t compressedBytes = 0;  // the records' n, summed
    bool complete = false;         // the records end exactly where the file does
};
// kTruncated for a file shorter than the header, kBadVersion for a version
// the format never had (0, or above kArmVersion); `summary` is then as it was.
GRABSYSTEM_EXPORT Status SummarizeArmView(Bytes file, ArmViewSummary& summary);

}  // namespace format
}  // namespace GrabSystem
