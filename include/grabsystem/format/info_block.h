// The data-structure records and the information block that follows every
// image file, as bytes. All little-endian; every record starts with its
// 16-bit version word, which is 1:
//
//   ImgSize       u16 ver, u32 width, u32 height, u64 area, u64 byteSize,
//                 u8 channels, u8 bitsPerChannel, u8 bitsPerPixel,
//                 u8 bytesPerChannel, u8 bytesPerPixel          (31 bytes)
//   ImgRes        u16 ver, f64 x, f64 y, f64 z                  (26 bytes)
//   ImgAlignment  u16 ver, u32 width, u32 height, i32 offsetX, i32 offsetY
//                                                               (18 bytes)
//   ImgProcCmd    u16 ver, i32 tag, char msg[32]                (38 bytes)
//   ImgProcCmds   u16 ver, u32 n, n x ImgProcCmd
//   CPointF       u16 ver, f32 x, f32 y                         (10 bytes)
//   CImgInfo      the stream form:
//                   u16 ver, i32 fileFormat, i32 memMode, ImgSize,
//                   ImgAlignment image, ImgAlignment cad, ImgRes,
//                   ImgProcCmds, u16 status, i32 camIdx, u32 frameAttr
//                 and, to be found from a file's end, the block:
//                   the stream form, u32 L (its length), char[8] "VXIMINFO"
//
// Decoders check every field: the derived ImgSize fields must agree with the
// geometry, a log may not claim more commands than kMaxProcCmds or than the
// bytes hold, and a block's length word must match its stream form. A
// decoder that fails leaves its output as it was.
#pragma once

#include <cstddef>
#include <cstdint>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/data_structure.h"
#include "grabsystem/format/status.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace format {

using VormexDataStructure::CImgInfo;
using VormexDataStructure::CPointF;
using VormexDataStructure::eImgFileFormat;
using VormexDataStructure::ImgAlignment;
using VormexDataStructure::ImgProcCmd;
using VormexDataStructure::ImgProcCmds;
using VormexDataStructure::ImgRes;
using VormexDataStructure::ImgSize;

constexpr uint16_t kRecordVersion = 1;
constexpr size_t kImgSizeBytes = 31;
constexpr size_t kImgResBytes = 26;
constexpr size_t kImgAlignmentBytes = 18;
constexpr size_t kImgProcCmdBytes = 38;
constexpr size_t kPointFBytes = 10;
// More commands than this in one log are taken for damage.
constexpr uint32_t kMaxProcCmds = 4096;
constexpr char kInfoMagic[9] = "VXIMINFO";
constexpr size_t kInfoMagicBytes = 8;
// What closes a block: the length word and the magic.
constexpr size_t kInfoTailBytes = 4 + kInfoMagicBytes;
// The longest stream form there can be (a log of kMaxProcCmds commands).
constexpr size_t kMaxInfoStreamBytes =
    2 + 4 + 4 + kImgSizeBytes + 2 * kImgAlignmentBytes + kImgResBytes + 6 + kMaxProcCmds * kImgProcCmdBytes + 2 + 4 + 4;

GRABSYSTEM_EXPORT void Encode(Writer& w, const ImgSize& size);
GRABSYSTEM_EXPORT void Encode(Writer& w, const ImgRes& res);
GRABSYSTEM_EXPORT void Encode(Writer& w, const ImgAlignment& alignment);
GRABSYSTEM_EXPORT void Encode(Writer& w, const ImgProcCmd& cmd);
GRABSYSTEM_EXPORT void Encode(Writer& w, const ImgProcCmds& cmds);
GRABSYSTEM_EXPORT void Encode(Writer& w, const CPointF& point);
// The stream form of the block, tagged with `format`.
GRABSYSTEM_EXPORT void EncodeInfoStream(Writer& w, const CImgInfo& info, eImgFileFormat format);
GRABSYSTEM_EXPORT size_t InfoStreamBytes(const CImgInfo& info);
// The whole block: stream form, length, magic.
GRABSYSTEM_EXPORT void EncodeInfoBlock(Writer& w, const CImgInfo& info, eImgFileFormat format);
GRABSYSTEM_EXPORT size_t InfoBlockBytes(const CImgInfo& info);

GRABSYSTEM_EXPORT Status Decode(Reader& r, ImgSize& size);
GRABSYSTEM_EXPORT Status Decode(Reader& r, ImgRes& res);
GRABSYSTEM_EXPORT Status Decode(Reader& r, ImgAlignment& alignment);
GRABSYSTEM_EXPORT Status Decode(Reader& r, ImgProcCmd& cmd);
GRABSYSTEM_EXPORT Status Decode(Reader& r, ImgProcCmds& cmds);
GRABSYSTEM_EXPORT Status Decode(Reader& r, CPointF& point);
// A stream form at the reader's position.
GRABSYSTEM_EXPORT Status DecodeInfoStream(Reader& r, CImgInfo& info);
// A stream form at the reader's position, closed by its length word and
// magic as in a block: what CImgInfo::Extract(file, true) reads.
GRABSYSTEM_EXPORT Status DecodeInfoStreamAndTail(Reader& r, CImgInfo& info);

// The length of the stream form that the last kInfoTailBytes bytes of a
// file close: kNotFound without the magic.
GRABSYSTEM_EXPORT Status DecodeInfoTail(Bytes tail, uint32_t& streamLength);
// The block at the end of `file` (the whole file, or its last bytes from
// where the block may start). `start` receives the block's offset in `file`.
GRABSYSTEM_EXPORT Status DecodeInfoBlockAtEnd(Bytes file, CImgInfo& info, size_t* start = nullptr);

}  // namespace format
}  // namespace GrabSystem
