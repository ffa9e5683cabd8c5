#include "grabsystem/platform/data_structure/data_structure.h"

#include <cstring>

#include "grabsystem/platform/data_structure/stream_io.h"
#include "grabsystem/platform/os/os.h"

namespace VormexDataStructure {

using GrabSystem::platform::FileSeek;
using GrabSystem::platform::FileSize;
using GrabSystem::platform::FileTell;
using io::ReadLE;
using io::ReadVersion;
using io::WriteLE;

const uint16_t ImgSize::byteVerSpt = 1;
const uint16_t ImgRes::byteVerSpt = 1;
const uint16_t ImgAlignment::byteVerSpt = 1;
const uint16_t ImgProcCmd::byteVerSpt = 1;
const int ImgProcCmd::nMsgCnt = 32;
const uint16_t ImgProcCmds::byteVerSpt = 1;
const uint32_t ImgProcCmds::kMaxCmds = 4096;
const uint16_t CPointF::byteVerSpt = 1;
const uint16_t CImgInfo::byteVerSpt = 1;
const char CImgInfo::kMagic[9] = "VXIMINFO";

namespace {
constexpr size_t kMagicLen = 8;
constexpr int64_t kTrailerTail = 4 + kMagicLen;  // length word + magic
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
    return f != nullptr && WriteLE(f, byteVerSpt) && WriteLE(f, m_width) && WriteLE(f, m_height) &&
           WriteLE(f, m_area) && WriteLE(f, m_byteSize) && WriteLE(f, m_channels) && WriteLE(f, m_bitsPerChannel) &&
           WriteLE(f, m_bitsPerPixel) && WriteLE(f, m_bytesPerChannel) && WriteLE(f, m_bytesPerPixel);
}

bool ImgSize::Extract(FILE* f) {
    if (f == nullptr || !ReadVersion(f)) return false;
    ImgSize read;
    uint64_t area = 0, byteSize = 0;
    uint8_t bitsPerPixel = 0, bytesPerChannel = 0, bytesPerPixel = 0;
    if (!(ReadLE(f, read.m_width) && ReadLE(f, read.m_height) && ReadLE(f, area) && ReadLE(f, byteSize) &&
          ReadLE(f, read.m_channels) && ReadLE(f, read.m_bitsPerChannel) && ReadLE(f, bitsPerPixel) &&
          ReadLE(f, bytesPerChannel) && ReadLE(f, bytesPerPixel)))
        return false;
    read._Derive();
    // The derived fields are redundant: a record whose copies disagree with
    // its geometry is damaged or forged.
    if (read.m_area != area || read.m_byteSize != byteSize || read.m_bitsPerPixel != bitsPerPixel ||
        read.m_bytesPerChannel != bytesPerChannel || read.m_bytesPerPixel != bytesPerPixel)
        return false;
    *this = read;
    return true;
}

// ---------------------------------------------------------------- ImgRes

bool ImgRes::Append(FILE* f) const {
    return f != nullptr && WriteLE(f, byteVerSpt) && WriteLE(f, dX) && WriteLE(f, dY) && WriteLE(f, dZ);
}

bool ImgRes::Extract(FILE* f) {
    ImgRes read;
    if (f == nullptr || !ReadVersion(f) || !(ReadLE(f, read.dX) && ReadLE(f, read.dY) && ReadLE(f, read.dZ)))
        return false;
    *this = read;
    return true;
}

// ---------------------------------------------------------------- ImgAlignment

bool ImgAlignment::Append(FILE* f) const {
    return f != nullptr && WriteLE(f, byteVerSpt) && WriteLE(f, nWidth) && WriteLE(f, nHeight) &&
           WriteLE(f, nOffsetX) && WriteLE(f, nOffsetY);
}

bool ImgAlignment::Extract(FILE* f) {
    ImgAlignment read;
    if (f == nullptr || !ReadVersion(f) ||
        !(ReadLE(f, read.nWidth) && ReadLE(f, read.nHeight) && ReadLE(f, read.nOffsetX) && ReadLE(f, read.nOffsetY)))
        return false;
    *this = read;
    return true;
}

// ---------------------------------------------------------------- ImgProcCmd

ImgProcCmd::ImgProcCmd(eProcTag tag, const char* msg) : m_tag(tag), m_msg() {
    if (msg != nullptr) std::strncpy(m_msg, msg, sizeof m_msg - 1);
}

bool ImgProcCmd::Append(FILE* f) const {
    return f != nullptr && WriteLE(f, byteVerSpt) && WriteLE(f, static_cast<int32_t>(m_tag)) &&
           io::WriteBytes(f, m_msg, sizeof m_msg);
}

bool ImgProcCmd::Extract(FILE* f) {
    int32_t tag = 0;
    char msg[sizeof m_msg];
    if (f == nullptr || !ReadVersion(f) || !ReadLE(f, tag) || !io::ReadBytes(f, msg, sizeof msg)) return false;
    m_tag = static_cast<eProcTag>(tag);
    std::memcpy(m_msg, msg, sizeof m_msg);
    m_msg[sizeof m_msg - 1] = '\0';
    return true;
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
    if (f == nullptr || !WriteLE(f, byteVerSpt) || !WriteLE(f, static_cast<uint32_t>(m_cmds.size()))) return false;
    for (const auto& cmd : m_cmds)
        if (!cmd->Append(f)) return false;
    return true;
}

bool ImgProcCmds::Extract(FILE* f) {
    uint32_t count = 0;
    if (f == nullptr || !ReadVersion(f) || !ReadLE(f, count) || count > kMaxCmds) return false;
    std::vector<std::unique_ptr<ImgProcCmd>> read;
    for (uint32_t i = 0; i < count; ++i) {
        std::unique_ptr<ImgProcCmd> cmd(new ImgProcCmd);
        if (!cmd->Extract(f)) return false;
        read.push_back(std::move(cmd));
    }
    m_cmds.swap(read);
    return true;
}

// ---------------------------------------------------------------- CPointF

bool CPointF::Append(FILE* f) const { return f != nullptr && WriteLE(f, byteVerSpt) && WriteLE(f, x) && WriteLE(f, y); }

bool CPointF::Extract(FILE* f) {
    CPointF read;
    if (f == nullptr || !ReadVersion(f) || !ReadLE(f, read.x) || !ReadLE(f, read.y)) return false;
    *this = read;
    return true;
}

// ---------------------------------------------------------------- CImgInfo

bool CImgInfo::_WriteStream(FILE* f, eImgFileFormat format) const {
    return WriteLE(f, byteVerSpt) && WriteLE(f, static_cast<int32_t>(format)) &&
           WriteLE(f, static_cast<int32_t>(memMode)) && size.Append(f) && imgAlignment.Append(f) &&
           cadAlignment.Append(f) && resolution.Append(f) && procLog.Append(f) && WriteLE(f, status) &&
           WriteLE(f, static_cast<int32_t>(camIdx)) && WriteLE(f, frameAttr);
}

bool CImgInfo::_ReadStream(FILE* f) {
    int32_t format = 0, mode = 0, cam = 0;
    CImgInfo read;
    if (!(ReadVersion(f) && ReadLE(f, format) && ReadLE(f, mode) && read.size.Extract(f) &&
          read.imgAlignment.Extract(f) && read.cadAlignment.Extract(f) && read.resolution.Extract(f) &&
          read.procLog.Extract(f) && ReadLE(f, read.status) && ReadLE(f, cam) && ReadLE(f, read.frameAttr)))
        return false;
    read.fileFormat = static_cast<eImgFileFormat>(format);
    read.memMode = static_cast<eMemMode>(mode);
    read.camIdx = static_cast<GrabSystem::eCamIdx>(cam);
    *this = read;
    return true;
}

bool CImgInfo::Append(FILE* f, eImgFileFormat format) const {
    if (f == nullptr || !FileSeek(f, 0, SEEK_END)) return false;
    const int64_t start = FileTell(f);
    if (start < 0 || !_WriteStream(f, format)) return false;
    const int64_t length = FileTell(f) - start;
    return length > 0 && length <= INT32_MAX && WriteLE(f, static_cast<uint32_t>(length)) &&
           io::WriteBytes(f, kMagic, kMagicLen);
}

namespace {

// Reads the length word and magic that close a block. The block's stream
// form must have been exactly `length` bytes long.
bool ReadTail(FILE* f, uint32_t& length) {
    char magic[kMagicLen];
    return ReadLE(f, length) && io::ReadBytes(f, magic, kMagicLen) &&
           std::memcmp(magic, CImgInfo::kMagic, kMagicLen) == 0;
}

// Finds the block at the end of the file and positions the file at its
// start; returns the length of its stream form, or -1.
int64_t SeekTrailer(FILE* f) {
    const int64_t fileSize = FileSize(f);
    if (fileSize < kTrailerTail || !FileSeek(f, fileSize - kTrailerTail, SEEK_SET)) return -1;
    uint32_t length = 0;
    if (!ReadTail(f, length) || int64_t{length} > fileSize - kTrailerTail) return -1;
    if (!FileSeek(f, fileSize - kTrailerTail - length, SEEK_SET)) return -1;
    return length;
}

}  // namespace

bool CImgInfo::Extract(FILE* f, bool atCurrent) {
    if (f == nullptr) return false;
    CImgInfo read;
    if (atCurrent) {
        const int64_t start = FileTell(f);
        if (start < 0 || !read._ReadStream(f)) return false;
        const int64_t consumed = FileTell(f) - start;
        uint32_t length = 0;
        if (!ReadTail(f, length) || int64_t{length} != consumed) return false;
    } else {
        const int64_t length = SeekTrailer(f);
        if (length < 0) return false;
        const int64_t start = FileTell(f);
        if (!read._ReadStream(f) || FileTell(f) - start != length) return false;
        FileSeek(f, 0, SEEK_END);
    }
    *this = read;
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
