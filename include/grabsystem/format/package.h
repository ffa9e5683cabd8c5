// The two forms of the debug package file. All integers u32 little-endian;
// no magic, no checksum.
//
//   image package    Version (2 when written) | record count n |
//                    JumpIdx (absent when Version is 1, always written) |
//                    n records of Width, Height, FrameCount, GroupIdx,
//                    CamIdx (20 bytes) | the data area
//   general package  Version (3 when written) | project-file flag |
//                    record count n | n records of JumpIdx, Width, Height,
//                    FrameCount, GroupIdx, CamIdx (24 bytes) | the data area
//
// In a record the group index comes before the camera index, the reverse of
// the records in memory. The data area, and only it, is encrypted. Plain,
// the image package's is its frames back to back (Width x Height bytes
// each, the length implied by the records); the general package's is a
// sequence of blocks, each a u32 length L and L bytes: the project file
// first when the flag is 1, then one LZ4-compressed frame per block.
//
// Decoders read what a file lacks as zeros, as the packages' readers have
// always delivered past a file's end: the image package word by word (a
// word not all there is 0), the general package byte by byte.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/status.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

// One run of frames of one camera in an image package.
struct GRABSYSTEM_EXPORT CDebugImgPackageInfoP {
    uint32_t Width = 0;
    uint32_t Height = 0;
    uint32_t FrameCount = 0;
    uint32_t CamIdx = 0;
    uint32_t GroupIdx = 0;  // frames of run g are numbered from FrameCount x g
};

// One run of frames of one camera in a general package.
struct GRABSYSTEM_EXPORT CDebugPackageInfoP {
    uint32_t JumpIdx = 0;
    uint32_t Width = 0;
    uint32_t Height = 0;
    uint32_t FrameCount = 0;
    uint32_t CamIdx = 0;
    uint32_t GroupIdx = 0;
};

namespace format {

constexpr uint32_t kImagePackageVersion = 2;
constexpr size_t kImagePackageHeadBytes = 12;  // version 1: 8, no jump word
// A file's first word picks its form: 1 and 2 the image package, anything
// else the general package (as the exporter tells them apart).
constexpr bool IsImagePackageVersion(uint32_t version) { return version == 1 || version == kImagePackageVersion; }
constexpr size_t kImagePackageRecordBytes = 20;
constexpr uint32_t kGeneralPackageVersion = 3;
constexpr size_t kGeneralPackageHeadBytes = 12;
constexpr size_t kGeneralPackageRecordBytes = 24;
constexpr size_t kPackageBlockLengthBytes = 4;

// Exported frames land in one tree, whatever package they come from:
// <kExportTreeRoot>//Cam<CamIdx><suffix>//img<number>.bmp, the suffix "" for
// a single package and "_<i>" for the i-th of several.
constexpr char kExportTreeRoot[] = "D://ImgTest//CamImgInput";
// "<kExportTreeRoot>//Cam<camIdx><suffix>//", the folder of one run.
GRABSYSTEM_EXPORT std::string ExportFolder(uint32_t camIdx, const std::string& suffix);
// A frame's file in a folder made by ExportFolder.
GRABSYSTEM_EXPORT std::string ExportFramePath(const std::string& folder, uint32_t number);

// ---- image package

struct ImagePackageHead {
    uint32_t version = 0;
    uint32_t count = 0;
    uint32_t jumpIdx = 0;  // 0 for version 1, which has no jump word
    size_t bytes = 0;      // where the records start: 8 for version 1, else 12
};
GRABSYSTEM_EXPORT ImagePackageHead DecodeImagePackageHead(Bytes file);
// The record at the start of `bytes`.
GRABSYSTEM_EXPORT CDebugImgPackageInfoP DecodeImagePackageRecord(Bytes bytes);
// Writes the jump word whatever the version says, as the writer always has.
GRABSYSTEM_EXPORT void EncodeImagePackageHead(Writer& w, uint32_t version, uint32_t count, uint32_t jumpIdx);
GRABSYSTEM_EXPORT void EncodeImagePackageRecord(Writer& w, const CDebugImgPackageInfoP& info);
// The data area's size: the records' Width x Height x FrameCount, summed in
// 32 bits (it wraps, as the format has always summed it).
GRABSYSTEM_EXPORT uint32_t ImagePackageDataBytes(const std::vector<CDebugImgPackageInfoP>& infos);

// ---- general package

struct GeneralPackageHead {
    uint32_t version = 0;
    uint32_t flag = 0;  // 1: the data area starts with the project file
    uint32_t count = 0;
};
GRABSYSTEM_EXPORT GeneralPackageHead DecodeGeneralPackageHead(Bytes file);
GRABSYSTEM_EXPORT CDebugPackageInfoP DecodeGeneralPackageRecord(Bytes bytes);
GRABSYSTEM_EXPORT void EncodeGeneralPackageHead(Writer& w, uint32_t version, uint32_t flag, uint32_t count);
GRABSYSTEM_EXPORT void EncodeGeneralPackageRecord(Writer& w, const CDebugPackageInfoP& info);
// Where the data area starts: after the head and n records.
GRABSYSTEM_EXPORT uint64_t GeneralPackageDataOffset(uint32_t count);

// A block of a general package's plain data area at `offset`: its length
// word (missing bytes read as zeros) and what `data` holds of its bytes.
struct PackageBlock {
    uint32_t length = 0;
    Bytes bytes;
    bool complete = false;  // the length word and all L bytes are there
};
GRABSYSTEM_EXPORT PackageBlock DecodePackageBlock(Bytes data, uint64_t offset);
GRABSYSTEM_EXPORT void EncodePackageBlockLength(Writer& w, uint32_t length);

// ---- packages described without loading them, for tools

// Where the data area of an image package of n records starts, as written.
GRABSYSTEM_EXPORT uint64_t ImagePackageDataOffset(uint32_t count);

// Enough of a file's first bytes to hold either form's head.
constexpr size_t kPackageHeadBytes = std::max(kImagePackageHeadBytes, kGeneralPackageHeadBytes);
// Whether `head` (a file's first kPackageHeadBytes bytes, fewer when the
// file is shorter) holds the whole head of the form its version word picks
// as the exporter picks it: 1 and 2 the image form, anything else the
// general form. The loaders would read a missing word as zero; a file that
// short is no package at all.
GRABSYSTEM_EXPORT bool HoldsPackageHead(Bytes head);

struct ImagePackageSummary {
    ImagePackageHead head;
    std::vector<CDebugImgPackageInfoP> records;
    uint64_t dataBytes = 0;  // Width x Height x FrameCount, summed without wrapping
};
// An image package whose head, records and data area account for every
// byte of the file. kBadVersion unless the version is 1 or 2, kBadValue for
// no records or a data area longer than the records say, kTruncated for
// records or data missing from the file; `summary` is then as it was.
GRABSYSTEM_EXPORT Status SummarizeImagePackage(Bytes file, ImagePackageSummary& summary);

struct GeneralPackageSummary {
    GeneralPackageHead head;
    std::vector<CDebugPackageInfoP> records;
    Bytes data;  // the data area, still encrypted
};
// A general package's head and records. kBadVersion unless the version is
// 3, kBadValue for no records, kTruncated when the file ends inside them;
// `summary` is then as it was.
GRABSYSTEM_EXPORT Status SummarizeGeneralPackage(Bytes file, GeneralPackageSummary& summary);

// The blocks of a plain data area, walked from its start to the first that
// is not whole.
struct PackageBlocksSummary {
    uint64_t blocks = 0;       // whole blocks
    uint32_t firstLength = 0;  // the first whole block's L (the project file's, when the flag is 1)
    bool complete = false;     // the whole blocks end where the area does
};
GRABSYSTEM_EXPORT PackageBlocksSummary SummarizePackageBlocks(Bytes plain);

}  // namespace format
}  // namespace GrabSystem
