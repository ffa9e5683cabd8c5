#include "grabsystem/format/data_structure.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "grabsystem/format/info_block.h"
#include "grabsystem/platform/os/os.h"

namespace VormexDataStructure {

using GrabSystem::format::Bytes;
using GrabSystem::format::Reader;
using GrabSystem::format::Status;
using GrabSystem::format::Writer;
using GrabSystem::platform::FileSeek;
using GrabSystem::platform::FileSize;
using GrabSystem::platform::FileTell;
namespace format = GrabSystem::format;

const uint16_t ImgSize::byteVerSpt = format::kRecordVersion;
const uint16_t ImgRes::byteVerSpt = format::kRecordVersion;
const uint16_t ImgAlignment::byteVerSpt = format::kRecordVersion;
const uint16_t ImgProcCmd::byteVerSpt = format::kRecordVersion;
const int ImgProcCmd::nMsgCnt = static_cast<int>(ImgProcCmd::kMsgBytes);
const uint16_t ImgProcCmds::byteVerSpt = format::kRecordVersion;
const uint32_t ImgProcCmds::kMaxCmds = format::kMaxProcCmds;
const uint16_t CPointF::byteVerSpt = format::kRecordVersion;
const uint16_t CImgInfo::byteVerSpt = format::kRecordVersion;
const char CImgInfo::kMagic[9] = "VXIMINFO";

namespace {

// The stream forms: the codec writes into memory, one fwrite puts it out.
template <typename Encode>
bool WriteRecord(FILE* f, size_t bytes, Encode encode) {
    if (f == nullptr) return false;
    std::vector<uint8_t> buffer(bytes);
    Writer w(buffer.data(), buffer.size());
    encode(w);
    return !w.Full() && std::fwrite(buffer.data(), 1, w.Position(), f) == w.Position();
}

// Reads up to `most` bytes at the stream's position, decodes a record from
// them and leaves the position after what the record took.
template <typename Decode>
bool ReadRecord(FILE* f, size_t most, Decode decode) {
    if (f == nullptr) return false;
    const int64_t start = FileTell(f);
    const int64_t size = FileSize(f);
    if (start < 0 || size < start) return false;
    std::vector<uint8_t> buffer(static_cast<size_t>(std::min<int64_t>(size - start, static_cast<int64_t>(most))));
    const size_t got = buffer.empty() ? 0 : std::fread(buffer.data(), 1, buffer.size(), f);
    Reader r(Bytes(buffer.data(), got));
    const bool ok = decode(r) == Status::kOk;
    FileSeek(f, start + static_cast<int64_t>(r.Position()), SEEK_SET);
    return ok;
}

}  // namespace

// ---------------------------------------------------------------- ImgSize

ImgSize::ImgSize(uint32_t width, uint32_t height, uint8_t channels, uint8_t bitsPerChannel)
    : m_bitsPerChannel(bitsPerChannel) {
    Set(width, height, channels);
}

uint32_t ImgSize::BytesPerPixelFor(uint8_t bitsPerPixel) {
    switch (bitsPerPixel) {
        case 1:
        case 8:
            return 1;
        case 10:
        case 12:
        case 16:
            return 2;
        default:
            return bitsPerPixel / 8u;
    }
}

void ImgSize::_Derive() {
    m_area = uint64_t{m_width} * m_height;
    m_bitsPerPixel = static_cast<uint8_t>(m_channels * m_bitsPerChannel);
    m_bytesPerChannel = static_cast<uint8_t>((m_bitsPerChannel + 7u) / 8u);
    const uint32_t bytesPerPixel = BytesPerPixelFor(m_bitsPerPixel);
    m_bytesPerPixel = static_cast<uint8_t>(bytesPerPixel);
    // The same 32-bit arithmetic as the memory an image reserves for this
    // geometry, so that the record never claims bytes the buffer lacks.
    m_byteSize = static_cast<uint32_t>(bytesPerPixel * static_cast<uint32_t>(m_area));
}

void ImgSize::Set(uint32_t width, uint32_t height, uint8_t channels) {
    m_width = width;
    m_height = height;
    m_channels = channels;
    _Derive();
}

void ImgSize::SetBitPerChannel(uint8_t bits) {
    m_bitsPerChannel = bits;
    _Derive();
}

bool ImgSize::Append(FILE* f) const {
    return WriteRecord(f, format::kImgSizeBytes, [this](Writer& w) { format::Encode(w, *this); });
}

bool ImgSize::Extract(FILE* f) {
    return ReadRecord(f, format::kImgSizeBytes, [this](Reader& r) { return format::Decode(r, *this); });
}

// ---------------------------------------------------------------- ImgRes

bool ImgRes::Append(FILE* f) const {
    return WriteRecord(f, format::kImgResBytes, [this](Writer& w) { format::Encode(w, *this); });
}

bool ImgRes::Extract(FILE* f) {
    return ReadRecord(f, format::kImgResBytes, [this](Reader& r) { return format::Decode(r, *this); });
}

// ---------------------------------------------------------------- ImgAlignment

bool ImgAlignment::Append(FILE* f) const {
    return WriteRecord(f, format::kImgAlignmentBytes, [this](Writer& w) { format::Encode(w, *this); });
}

bool ImgAlignment::Extract(FILE* f) {
    return ReadRecord(f, format::kImgAlignmentBytes, [this](Reader& r) { return format::Decode(r, *this); });
}

// ---------------------------------------------------------------- ImgProcCmd

ImgProcCmd::ImgProcCmd(eProcTag tag, const char* msg) : m_tag(tag), m_msg() {
    if (msg != nullptr) std::strncpy(m_msg, msg, sizeof m_msg - 1);
}

void ImgProcCmd::Set(eProcTag tag, const char* msg) {
    m_tag = tag;
    std::memcpy(m_msg, msg, sizeof m_msg);
    m_msg[sizeof m_msg - 1] = '\0';
}

bool ImgProcCmd::Append(FILE* f) const {
    return WriteRecord(f, format::kImgProcCmdBytes, [this](Writer& w) { format::Encode(w, *this); });
}

bool ImgProcCmd::Extract(FILE* f) {
    return ReadRecord(f, format::kImgProcCmdBytes, [this](Reader& r) { return format::Decode(r, *this); });
}

// ---------------------------------------------------------------- ImgProcCmds

ImgProcCmds::ImgProcCmds(const ImgProcCmds& other) { *this = other; }

ImgProcCmds& ImgProcCmds::operator=(const ImgProcCmds& other) {
    if (this == &other) return *this;
    std::vector<std::unique_ptr<ImgProcCmd>> copy;
    copy.reserve(other.m_cmds.size());
    for (const auto& cmd : other.m_cmds) copy.emplace_back(new ImgProcCmd(*cmd));
    m_cmds.swap(copy);
    return *this;
}

void ImgProcCmds::Add(ImgProcCmd* cmd) {
    if (cmd != nullptr) m_cmds.emplace_back(cmd);
}

bool ImgProcCmds::Append(FILE* f) const {
    return WriteRecord(f, 6 + Size() * format::kImgProcCmdBytes, [this](Writer& w) { format::Encode(w, *this); });
}

bool ImgProcCmds::Extract(FILE* f) {
    return ReadRecord(f, 6 + kMaxCmds * format::kImgProcCmdBytes,
                      [this](Reader& r) { return format::Decode(r, *this); });
}

// ---------------------------------------------------------------- CPointF

bool CPointF::Append(FILE* f) const {
    return WriteRecord(f, format::kPointFBytes, [this](Writer& w) { format::Encode(w, *this); });
}

bool CPointF::Extract(FILE* f) {
    return ReadRecord(f, format::kPointFBytes, [this](Reader& r) { return format::Decode(r, *this); });
}

// ---------------------------------------------------------------- CImgInfo

bool CImgInfo::Append(FILE* f, eImgFileFormat format) const {
    if (f == nullptr || !FileSeek(f, 0, SEEK_END)) return false;
    return WriteRecord(f, format::InfoBlockBytes(*this),
                       [this, format](Writer& w) { format::EncodeInfoBlock(w, *this, format); });
}

bool CImgInfo::Extract(FILE* f, bool atCurrent) {
    if (f == nullptr) return false;
    if (atCurrent)
        return ReadRecord(f, format::kMaxInfoStreamBytes + format::kInfoTailBytes,
                          [this](Reader& r) { return format::DecodeInfoStreamAndTail(r, *this); });
    // The block at the end: only the bytes it can span are read.
    const int64_t size = FileSize(f);
    if (size < 0) return false;
    const int64_t span = std::min<int64_t>(size, format::kMaxInfoStreamBytes + format::kInfoTailBytes);
    std::vector<uint8_t> tail(static_cast<size_t>(span));
    if (!FileSeek(f, size - span, SEEK_SET) || (span != 0 && std::fread(tail.data(), 1, tail.size(), f) != tail.size()))
        return false;
    if (format::DecodeInfoBlockAtEnd(Bytes(tail.data(), tail.size()), *this) != Status::kOk) return false;
    FileSeek(f, 0, SEEK_END);
    return true;
}

namespace {

// Reads the block at the end of the file without moving the position.
bool Probe(FILE* f, CImgInfo& out) {
    if (f == nullptr) return false;
    const int64_t here = FileTell(f);
    const bool found = out.Extract(f, false);
    FileSeek(f, here, SEEK_SET);
    return found;
}

}  // namespace

bool CImgInfo::HasCImgInfo(FILE* f) {
    CImgInfo probe;
    return Probe(f, probe);
}

eImgFileFormat CImgInfo::ExtractFileType(FILE* f) {
    CImgInfo probe;
    return Probe(f, probe) ? probe.fileFormat : eImgFmtUnknown;
}

}  // namespace VormexDataStructure
