#include "grabsystem/format/info_block.h"

#include <cstring>

namespace GrabSystem {
namespace format {

namespace {

// Every record opens with its version word.
Status Version(Reader& r) {
    const uint16_t version = r.U16();
    if (r.Short()) return Status::kTruncated;
    return version == kRecordVersion ? Status::kOk : Status::kBadVersion;
}

Status Ended(const Reader& r) { return r.Short() ? Status::kTruncated : Status::kOk; }

}  // namespace

const char* Describe(Status status) {
    switch (status) {
        case Status::kOk:
            return "ok";
        case Status::kTruncated:
            return "truncated";
        case Status::kBadVersion:
            return "unknown version";
        case Status::kBadValue:
            return "inconsistent or out of range";
        case Status::kNotFound:
            return "not found";
    }
    return "unknown";
}

// ---------------------------------------------------------------- records

void Encode(Writer& w, const ImgSize& size) {
    w.U16(kRecordVersion);
    w.U32(size.GetWidth());
    w.U32(size.GetHeight());
    w.U64(size.GetArea());
    w.U64(size.GetByteSize());
    w.U8(size.GetChannels());
    w.U8(size.GetBitPerChannel());
    w.U8(size.GetBitPerPixel());
    w.U8(size.GetBytePerChannel());
    w.U8(size.GetBytePerPixel());
}

Status Decode(Reader& r, ImgSize& size) {
    Status s = Version(r);
    if (s != Status::kOk) return s;
    const uint32_t width = r.U32(), height = r.U32();
    const uint64_t area = r.U64(), byteSize = r.U64();
    const uint8_t channels = r.U8(), bitsPerChannel = r.U8(), bitsPerPixel = r.U8(), bytesPerChannel = r.U8(),
                  bytesPerPixel = r.U8();
    if ((s = Ended(r)) != Status::kOk) return s;
    // The derived fields are redundant: a record whose copies disagree with
    // its geometry is damaged or forged.
    const ImgSize read(width, height, channels, bitsPerChannel);
    if (read.GetArea() != area || read.GetByteSize() != byteSize || read.GetBitPerPixel() != bitsPerPixel ||
        read.GetBytePerChannel() != bytesPerChannel || read.GetBytePerPixel() != bytesPerPixel)
        return Status::kBadValue;
    size = read;
    return Status::kOk;
}

void Encode(Writer& w, const ImgRes& res) {
    w.U16(kRecordVersion);
    w.F64(res.dX);
    w.F64(res.dY);
    w.F64(res.dZ);
}

Status Decode(Reader& r, ImgRes& res) {
    Status s = Version(r);
    if (s != Status::kOk) return s;
    const double x = r.F64(), y = r.F64(), z = r.F64();
    if ((s = Ended(r)) != Status::kOk) return s;
    res = ImgRes(x, y, z);
    return Status::kOk;
}

void Encode(Writer& w, const ImgAlignment& alignment) {
    w.U16(kRecordVersion);
    w.U32(alignment.nWidth);
    w.U32(alignment.nHeight);
    w.I32(alignment.nOffsetX);
    w.I32(alignment.nOffsetY);
}

Status Decode(Reader& r, ImgAlignment& alignment) {
    Status s = Version(r);
    if (s != Status::kOk) return s;
    const uint32_t width = r.U32(), height = r.U32();
    const int32_t x = r.I32(), y = r.I32();
    if ((s = Ended(r)) != Status::kOk) return s;
    alignment = ImgAlignment(width, height, x, y);
    return Status::kOk;
}

void Encode(Writer& w, const ImgProcCmd& cmd) {
    w.U16(kRecordVersion);
    w.I32(static_cast<int32_t>(cmd.GetTag()));
    w.Raw(cmd.GetMsg(), ImgProcCmd::kMsgBytes);
}

Status Decode(Reader& r, ImgProcCmd& cmd) {
    Status s = Version(r);
    if (s != Status::kOk) return s;
    const int32_t tag = r.I32();
    char msg[ImgProcCmd::kMsgBytes];
    r.Copy(msg, sizeof msg);
    if ((s = Ended(r)) != Status::kOk) return s;
    cmd.Set(static_cast<VormexDataStructure::eProcTag>(tag), msg);
    return Status::kOk;
}

void Encode(Writer& w, const ImgProcCmds& cmds) {
    w.U16(kRecordVersion);
    w.U32(static_cast<uint32_t>(cmds.Size()));
    for (size_t i = 0; i < cmds.Size(); ++i) Encode(w, cmds.At(i));
}

Status Decode(Reader& r, ImgProcCmds& cmds) {
    Status s = Version(r);
    if (s != Status::kOk) return s;
    const uint32_t count = r.U32();
    if ((s = Ended(r)) != Status::kOk) return s;
    // A count is believed only as far as the bytes can hold it.
    if (count > kMaxProcCmds) return Status::kBadValue;
    if (uint64_t{count} * kImgProcCmdBytes > r.Remaining()) return Status::kTruncated;
    ImgProcCmds read;
    for (uint32_t i = 0; i < count; ++i) {
        auto* cmd = new ImgProcCmd;
        read.Add(cmd);
        if ((s = Decode(r, *cmd)) != Status::kOk) return s;
    }
    cmds = read;
    return Status::kOk;
}

void Encode(Writer& w, const CPointF& point) {
    w.U16(kRecordVersion);
    w.F32(point.x);
    w.F32(point.y);
}

Status Decode(Reader& r, CPointF& point) {
    Status s = Version(r);
    if (s != Status::kOk) return s;
    const float x = r.F32(), y = r.F32();
    if ((s = Ended(r)) != Status::kOk) return s;
    point = CPointF(x, y);
    return Status::kOk;
}

// ---------------------------------------------------------------- the block

void EncodeInfoStream(Writer& w, const CImgInfo& info, eImgFileFormat format) {
    w.U16(kRecordVersion);
    w.I32(static_cast<int32_t>(format));
    w.I32(static_cast<int32_t>(info.memMode));
    Encode(w, info.size);
    Encode(w, info.imgAlignment);
    Encode(w, info.cadAlignment);
    Encode(w, info.resolution);
    Encode(w, info.procLog);
    w.U16(info.status);
    w.I32(static_cast<int32_t>(info.camIdx));
    w.U32(info.frameAttr);
}

size_t InfoStreamBytes(const CImgInfo& info) {
    return 2 + 4 + 4 + kImgSizeBytes + 2 * kImgAlignmentBytes + kImgResBytes + 6 + info.procLog.Size() * kImgProcCmdBytes +
           2 + 4 + 4;
}

void EncodeInfoBlock(Writer& w, const CImgInfo& info, eImgFileFormat format) {
    EncodeInfoStream(w, info, format);
    w.U32(static_cast<uint32_t>(InfoStreamBytes(info)));
    w.Raw(kInfoMagic, kInfoMagicBytes);
}

size_t InfoBlockBytes(const CImgInfo& info) { return InfoStreamBytes(info) + kInfoTailBytes; }

Status DecodeInfoStream(Reader& r, CImgInfo& info) {
    Status s = Version(r);
    if (s != Status::kOk) return s;
    CImgInfo read;
    const int32_t format = r.I32(), mode = r.I32();
    if ((s = Decode(r, read.size)) != Status::kOk || (s = Decode(r, read.imgAlignment)) != Status::kOk ||
        (s = Decode(r, read.cadAlignment)) != Status::kOk || (s = Decode(r, read.resolution)) != Status::kOk ||
        (s = Decode(r, read.procLog)) != Status::kOk)
        return s;
    read.status = r.U16();
    const int32_t camera = r.I32();
    read.frameAttr = r.U32();
    if ((s = Ended(r)) != Status::kOk) return s;
    read.fileFormat = static_cast<eImgFileFormat>(format);
    read.memMode = static_cast<VormexDataStructure::eMemMode>(mode);
    read.camIdx = static_cast<GrabSystem::eCamIdx>(camera);
    info = read;
    return Status::kOk;
}

Status DecodeInfoTail(Bytes tail, uint32_t& streamLength) {
    if (tail.size < kInfoTailBytes) return Status::kNotFound;
    const Bytes last = tail.Sub(tail.size - kInfoTailBytes);
    if (std::memcmp(last.data + 4, kInfoMagic, kInfoMagicBytes) != 0) return Status::kNotFound;
    streamLength = GetU32(last.data);
    return Status::kOk;
}

Status DecodeInfoStreamAndTail(Reader& r, CImgInfo& info) {
    CImgInfo read;
    const size_t start = r.Position();
    Status s = DecodeInfoStream(r, read);
    if (s != Status::kOk) return s;
    const size_t consumed = r.Position() - start;
    uint32_t length = 0;
    if ((s = DecodeInfoTail(r.Take(kInfoTailBytes), length)) != Status::kOk) return s;
    if (length != consumed) return Status::kBadValue;
    info = read;
    return Status::kOk;
}

Status DecodeInfoBlockAtEnd(Bytes file, CImgInfo& info, size_t* start) {
    uint32_t length = 0;
    Status s = DecodeInfoTail(file, length);
    if (s != Status::kOk) return s;
    if (length > file.size - kInfoTailBytes) return Status::kNotFound;
    const size_t at = file.size - kInfoTailBytes - length;
    Reader r(file.Sub(at, length));
    CImgInfo read;
    if ((s = DecodeInfoStream(r, read)) != Status::kOk) return s;
    if (r.Position() != length) return Status::kBadValue;
    info = read;
    if (start != nullptr) *start = at;
    return Status::kOk;
}

}  // namespace format
}  // namespace GrabSystem
