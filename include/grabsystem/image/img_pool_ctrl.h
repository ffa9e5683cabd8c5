// CImgPoolCtrlP: the pool through which camera frames enter the system.
//
// A chunk pool whose nodes are images of one depth chosen at construction,
// each made with a default camera index, memory mode, size and resolution.
// PushImg copies a frame into a free image (or, in ring mode, the oldest)
// and pushes it, storing the frame attribute in the image's info; GetImg
// finds a pushed image by serial.
//
// Threads: as CChunkPoolCtrlP; PushImg holds the pool mutex for the whole
// copy. A returned image is used without the pool lock: the consumer owns it
// until it releases it (and in ring mode a producer may overwrite it).
#pragma once

#include <cstddef>
#include <memory>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/image/img.h"
#include "grabsystem/memory/chunk_pool_ctrl.h"

namespace GrabSystem {

// The new virtual operations are declared in their slot order: _PushImg,
// the two PushImg, GetImg.
class GRABSYSTEM_EXPORT CImgPoolCtrlP : public CChunkPoolCtrlP {
protected:
    virtual bool _PushImg(void* src, size_t rowBytes, size_t rows, size_t rowGap, unsigned int frameAttr)
        GRABSYS_REQUIRES(m_mutex);

public:
    // `bits` is normalised: up to 8 (1 included) -> 8, 9..16 -> 16,
    // 17..32 -> 32; larger values stay as given and make 8-bit images.
    CImgPoolCtrlP(unsigned char poolId, PelvaneSpace::CMsgLogMngP* logMng, PoolMode mode, unsigned char bits);
    ~CImgPoolCtrlP() override;

    // Defaults for the images that Add makes afterwards. Not locked: call it
    // before the pool is shared.
    void SetImgDefaultConfig(eCamIdx cam, eMemMode mode, ImgSize size, ImgRes res);

    // Copies a frame (rows of rowBytes bytes, rowGap padding bytes after each
    // source row) into an image and pushes it with `frameAttr`. False when
    // no image can take it.
    virtual bool PushImg(void* src, size_t rowBytes, size_t rows, size_t rowGap, unsigned int frameAttr);
    // Pushes another image's first width x height bytes (one byte per pixel
    // whatever its depth) with its frame attribute. False when that image
    // holds fewer bytes.
    virtual bool PushImg(IImgP& img);
    // The image in use with that serial, or null.
    virtual IImgP* GetImg(size_t serial);

    unsigned char GetBits() const { return m_bits; }

protected:
    IPoolNodeP* _NewNode() override GRABSYS_REQUIRES(m_mutex);
    bool _AssignDefaultImgConfig(IImgP* img);

private:
    bool m_configSet = false;
    eCamIdx m_defaultCam = eCamNone;
    eMemMode m_defaultMemMode = VormexDataStructure::eMemModeRealloc;
    std::unique_ptr<ImgSize> m_defaultSize;
    std::unique_ptr<ImgRes> m_defaultRes;
    unsigned char m_bits;
};

}  // namespace GrabSystem
