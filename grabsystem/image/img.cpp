#include "grabsystem/image/img.h"

#include <cstring>
#include <new>


namespace GrabSystem {

const uint16_t IImgP::byteVerSpt = 1;

namespace {
// What the reference getters hand out when an image has no info block.
CImgInfo& DefaultInfo() {
    static thread_local CImgInfo info;
    info = CImgInfo();
    return info;
}
}  // namespace

IImgP::IImgP() : m_tag{'I', 'm', 'G'}, m_info(new CImgInfo) {}

IImgP::~IImgP() {
    m_info.reset();
    // Wait for a thread that is still inside the using lock.
    m_usingLock.Enter();
    m_usingLock.Leave();
    m_tag[0] = m_tag[1] = m_tag[2] = 0;
}

CImgInfo& IImgP::GetInfo() { return m_info ? *m_info : DefaultInfo(); }
uint32_t IImgP::GetWidth() const { return m_info ? m_info->size.GetWidth() : 0; }
uint32_t IImgP::GetHeight() const { return m_info ? m_info->size.GetHeight() : 0; }
uint64_t IImgP::GetArea() const { return m_info ? m_info->size.GetArea() : 0; }
uint64_t IImgP::GetBufferSize() const { return m_info ? m_info->size.GetChannels() * m_info->size.GetArea() : 0; }
uint8_t IImgP::GetChCnt() const { return m_info ? m_info->size.GetChannels() : 0; }
uint8_t IImgP::GetBitPerCh() const { return m_info ? m_info->size.GetBitPerChannel() : 0; }
uint8_t IImgP::GetBytePerCh() const { return m_info ? m_info->size.GetBytePerChannel() : 0; }
uint8_t IImgP::GetBitPerPixel() const { return m_info ? m_info->size.GetBitPerPixel() : 0; }
uint8_t IImgP::GetBytePerPixel() const { return m_info ? m_info->size.GetBytePerPixel() : 0; }
eMemMode IImgP::GetMemMode() const { return m_info ? m_info->memMode : VormexDataStructure::eMemModeRealloc; }

void IImgP::SetMemMode(eMemMode mode) {
    if (m_info) m_info->memMode = mode;
}

eImgFileFormat IImgP::GetFileFormat() const {
    return m_info ? m_info->fileFormat : VormexDataStructure::eImgFmtUnknown;
}

ImgRes& IImgP::GetResolution() { return GetInfo().resolution; }
ImgAlignment& IImgP::GetImgAlignmemt() { return GetInfo().imgAlignment; }
ImgAlignment& IImgP::GetCadAlignmemt() { return GetInfo().cadAlignment; }
ImgProcCmds& IImgP::GetLogs() { return GetInfo().procLog; }

void IImgP::AddProcLog(ImgProcCmd* cmd) {
    if (m_info)
        m_info->procLog.Add(cmd);
    else
        delete cmd;
}

void IImgP::_SetBitPerCn(uint8_t bits) {
    if (m_info) m_info->size.SetBitPerChannel(bits);
}

uint64_t IImgP::_GetReqMemSize(uint32_t width, uint32_t height, uint8_t bitsPerPixel) const {
    const uint32_t area = width * height;  // 32-bit, wraps
    return uint32_t{ImgSize::BytesPerPixelFor(bitsPerPixel)} * area;
}

bool IImgP::SetSize(uint32_t width, uint32_t height, uint8_t channels, bool flag) {
    if (!m_info) return false;
    const auto bitsPerPixel = static_cast<uint8_t>(m_info->size.GetBitPerChannel() * channels);
    const uint64_t required = _GetReqMemSize(width, height, bitsPerPixel);
    bool replace = false;
    switch (m_info->memMode) {
        case VormexDataStructure::eMemModeRealloc:
            replace = required != GetMemSize();
            break;
        case VormexDataStructure::eMemModeGrow:
            replace = required > GetMemSize();
            break;
        default:
            break;
    }
    if (replace) {
        if (!ReleaseMemory()) return false;
        if (!AllocMemory(static_cast<size_t>(required), flag)) {
            // The old buffer is gone: an unchanged geometry would describe
            // bytes that no longer exist.
            m_info->size.Set(0, 0, m_info->size.GetChannels());
            return false;
        }
    }
    m_info->size.Set(width, height, channels);
    return true;
}

bool IImgP::DuplicateFromImg(IImgP& src) {
    if (&src == this) return true;
    if (m_info && src.m_info) *m_info = *src.m_info;
    DuplicateFromChunk(src);
    _FitSizeToBuffer();
    return true;
}

const unsigned char* IImgP::_PaddedPixels(uint64_t bytes, std::unique_ptr<unsigned char[]>& copy) {
    if (bytes <= GetMemSize()) return GetImg();
    copy.reset(new (std::nothrow) unsigned char[static_cast<size_t>(bytes)]());
    if (copy && GetMemSize() != 0) std::memcpy(copy.get(), GetData(), GetMemSize());
    return copy.get();
}

void IImgP::_FitSizeToBuffer() {
    if (!m_info) return;
    const eMemMode mode = m_info->memMode;
    const bool sizesBuffer = mode == VormexDataStructure::eMemModeRealloc || mode == VormexDataStructure::eMemModeGrow;
    if (sizesBuffer && m_info->size.GetByteSize() > GetMemSize()) m_info->size.Set(0, 0, m_info->size.GetChannels());
}

bool IImgP::CheckImgChar() const { return m_tag[0] == 'I' && m_tag[1] == 'm' && m_tag[2] == 'G'; }

void IImgP::ResetMemory() { _ResetMemory(); }

void IImgP::_ResetMemory() {}

void IImgP::_ZeroFill(uint64_t bytes) {
    const uint64_t n = bytes < GetMemSize() ? bytes : GetMemSize();
    if (n != 0 && GetData() != nullptr) std::memset(GetData(), 0, static_cast<size_t>(n));
}

bool IImgP::IsUsing() {
    platform::CriticalSectionLock lock(m_usingLock);
    return m_using;
}

void IImgP::SetToUsing() {
    platform::CriticalSectionLock lock(m_usingLock);
    m_using = true;
}

void IImgP::ReleaseUsingStatus() {
    {
        platform::CriticalSectionLock lock(m_usingLock);
        m_using = false;
    }
    // The node asks its own pool, if it has one.
    Release();
}

}  // namespace GrabSystem
