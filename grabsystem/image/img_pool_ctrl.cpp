#include "grabsystem/image/img_pool_ctrl.h"

#include "grabsystem/image/img_kinds.h"

namespace GrabSystem {

using PelvaneSpace::eLogTagDetail;
using PelvaneSpace::eLogTagOutcome;

namespace {

unsigned char NormaliseBits(unsigned char bits) {
    if (bits <= 8) return 8;  // 1 too: no pool makes masks
    if (bits <= 16) return 16;
    if (bits <= 32) return 32;
    return bits;
}

}  // namespace

CImgPoolCtrlP::CImgPoolCtrlP(unsigned char poolId, PelvaneSpace::CMsgLogMngP* logMng, PoolMode mode,
                             unsigned char bits)
    : CChunkPoolCtrlP(poolId, logMng, mode),
      m_defaultSize(new ImgSize(0, 0, 1, 8)),
      m_defaultRes(new ImgRes(10.0, 10.0, 10.0)),
      m_bits(NormaliseBits(bits)) {}

CImgPoolCtrlP::~CImgPoolCtrlP() { DeleteAll(); }

void CImgPoolCtrlP::SetImgDefaultConfig(eCamIdx cam, eMemMode mode, ImgSize size, ImgRes res) {
    m_defaultCam = cam;
    m_defaultMemMode = mode;
    *m_defaultSize = size;
    *m_defaultRes = res;
    m_configSet = true;
}

bool CImgPoolCtrlP::_AssignDefaultImgConfig(IImgP* img) {
    if (img == nullptr) return false;
    if (!m_configSet) return true;
    CImgInfo& info = img->GetInfo();
    info.camIdx = m_defaultCam;
    info.memMode = m_defaultMemMode;
    info.size = *m_defaultSize;
    info.resolution = *m_defaultRes;
    return true;
}

IPoolNodeP* CImgPoolCtrlP::_NewNode() {
    IImgP* img;
    switch (m_bits) {
        case 16:
            img = new CImg16P;
            break;
        case 32:
            img = new CImg32P;
            break;
        default:
            img = new CImg8P;
            break;
    }
    img->GetInfo().size.SetBitPerChannel(m_bits);
    _Log(eLogTagDetail, "%d>Newing %p", static_cast<void*>(img));
    _AssignDefaultMem(img);
    _AssignDefaultImgConfig(img);
    return img;
}

bool CImgPoolCtrlP::PushImg(void* src, size_t rowBytes, size_t rows, size_t rowGap, unsigned int frameAttr) {
    _Log(eLogTagOutcome, "%d>Start Push");
    bool result;
    uint64_t serial = 0;
    {
        platform::MutexLock lock(m_mutex);
        result = _PushImg(src, rowBytes, rows, rowGap, frameAttr);
        if (IPoolNodeP* last = _LastPushedOrReleased()) serial = last->GetSerialNum();
    }
    if (result) {
        _Log(eLogTagOutcome, "Pool Id: %d PushImg #%lld done", static_cast<long long>(serial));
    } else {
        _Log(eLogTagOutcome, "%d>PushImg fail");
    }
    return result;
}

bool CImgPoolCtrlP::PushImg(IImgP& img) {
    const size_t width = img.GetWidth(), height = img.GetHeight();
    // A source that holds fewer bytes than its geometry would be read past
    // its end: the push fails before any chunk is sought, with the two
    // outcome lines a failed push writes.
    if (width * height > img.GetMemSize()) {
        _Log(eLogTagOutcome, "%d>Start Push");
        _Log(eLogTagOutcome, "%d>PushImg fail");
        return false;
    }
    return PushImg(img.GetData(), width, height, 0, img.GetInfo().frameAttr);
}

IImgP* CImgPoolCtrlP::GetImg(size_t serial) { return static_cast<IImgP*>(GetNodeWithSerial(serial)); }

bool CImgPoolCtrlP::_PushImg(void* src, size_t rowBytes, size_t rows, size_t rowGap, unsigned int frameAttr) {
    if (!_PushData(src, rowBytes, rows, rowGap)) return false;
    // After ringing, the last node is still the one last pushed or released
    // through the normal path; it is the one that receives the attribute.
    IPoolNodeP* last = _LastPushedOrReleased();
    if (last == nullptr) return false;
    static_cast<IImgP*>(last)->GetInfo().frameAttr = frameAttr;
    return true;
}

}  // namespace GrabSystem
