// IImgP: the abstract image. A chunk of pixel memory (IChunkDataP) with an
// owned information block (CImgInfo) that holds the geometry, channel
// layout, memory mode, file format, alignments, resolution, processing log,
// camera index and frame attribute. The file operations are members too:
// the raw format, BMP/JPEG through the kinds, and the information block that
// follows every saved file.
//
// Threads: only the using flag is shared between threads; it is read and
// written under the image's own lock. Geometry, info and pixels are not
// locked: a producer fills an image, marks it with SetToUsing, and the
// consumer that holds it calls ReleaseUsingStatus when done, which returns
// the image to its pool after leaving the lock.
//
// Copying is forbidden (it would share the info block and the lock); copy
// content with DuplicateFromImg.
//
// Raw file layout (little-endian), as _SaveRaw writes it:
//   u16 version (1) | ImgSize record | pixel bytes (the ImgSize byte size)
// followed, as after every saved file, by the CImgInfo block (see
// data_structure.h). Loading sizes the image to the file's geometry with the
// kind's own depth, then reads the file's byte size of pixels: a file cut
// inside its pixels loads false with the geometry set and the pixels read as
// far as the file goes; bytes that would run past the buffer (a file of a
// deeper kind) are not read, and the load is false too.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include "grabsystem/format/data_structure.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/memory/chunk_data.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {

using VormexDataStructure::CImgInfo;
using VormexDataStructure::eImgFileFormat;
using VormexDataStructure::eMemMode;
using VormexDataStructure::ImgAlignment;
using VormexDataStructure::ImgProcCmd;
using VormexDataStructure::ImgProcCmds;
using VormexDataStructure::ImgRes;
using VormexDataStructure::ImgSize;

class GRABSYSTEM_EXPORT IImgP : public IChunkDataP {
public:
    static const uint16_t byteVerSpt;  // 1: the version of the raw format

    IImgP();
    ~IImgP() override;

    // ---- geometry and layout (0 or a default object without info)
    CImgInfo& GetInfo();
    uint32_t GetWidth() const;
    uint32_t GetHeight() const;
    uint64_t GetArea() const;
    // Channel values, not bytes: channels x area.
    uint64_t GetBufferSize() const;
    uint8_t GetChCnt() const;
    uint8_t GetBitPerCh() const;
    uint8_t GetBytePerCh() const;
    uint8_t GetBitPerPixel() const;
    uint8_t GetBytePerPixel() const;
    eMemMode GetMemMode() const;
    void SetMemMode(eMemMode mode);
    eImgFileFormat GetFileFormat() const;
    ImgRes& GetResolution();
    ImgAlignment& GetImgAlignmemt();
    ImgAlignment& GetCadAlignmemt();
    ImgProcCmds& GetLogs();
    // Appends to the processing log, which takes ownership.
    void AddProcLog(ImgProcCmd* cmd);

    // Sets the geometry, replacing the buffer as the memory mode says: mode 0
    // on any change of the required size, mode 1 only to grow, other modes
    // never (the caller then keeps the buffer large enough). `flag` is passed
    // to AllocMemory. False without info, or when the release fails (then
    // nothing changes), or when the allocation fails: the old buffer is gone
    // then, and the geometry becomes 0 x 0 (channels kept) so that it never
    // describes bytes the image no longer has.
    bool SetSize(uint32_t width, uint32_t height, uint8_t channels, bool flag);

    // Copies the whole info block and the bytes of `src`, reallocating when
    // the sizes differ; true. When this image's memory could not be made as
    // large as `src`'s (a caller's buffer), the copy stops at its end and,
    // in memory modes 0 and 1, the geometry becomes 0 x 0.
    bool DuplicateFromImg(IImgP& src);

    // True for a live image (its tag reads 'I', 'm', 'G').
    bool CheckImgChar() const;
    // Zero-fills the pixels, as much as the kind defines.
    void ResetMemory();
    // The pixel memory.
    unsigned char* GetImg() { return static_cast<unsigned char*>(GetData()); }

    // ---- using status
    bool IsUsing();
    void SetToUsing();
    // Clears the flag, leaves the lock, then releases the image through its
    // pool if it has one.
    void ReleaseUsingStatus();

    // ---- files (paths are the system's own texts; none throws)
    // The Env the file operations go through (not owned; it must outlive
    // their use); null, the default, uses Env::Default() at each call.
    void SetEnv(platform::Env* env) { m_env = env; }
    platform::Env* GetEnv() const { return platform::Env::Or(m_env); }

    // Saves pixels in `fmt` (1 raw, 3 BMP, 4 JPEG; others write no pixels)
    // and appends the info block. True whenever the path is not null: a
    // failed write shows only as a missing or short file.
    // The pixels are written as a whole file (a temporary name renamed into
    // place), the block is then appended to whatever is at the path. So a
    // pixel step that fails leaves the path as it was (nothing, or an
    // earlier file) and the block goes behind that: the block alone, or an
    // earlier file with this image's block after its own, which a load then
    // takes as the file's. A block that cannot be appended whole is cut
    // back, leaving the pixels without it.
    bool SaveFile(const char* path, eImgFileFormat fmt);
    // SaveFile to dir + tick + "." + ext ("bmp", "jpg", else "raw"); `dir`
    // is a prefix, so it ends with a separator to put the file inside.
    bool SaveToPath(const char* dir, eImgFileFormat fmt);
    bool SaveBmp(const char* path);
    bool SaveJpg(const char* path);
    // Loads by the format the file's info block names, else by extension
    // (.BMP, .JPG/.JPEG, .RAW, any case). Whatever the result, resets the
    // descriptive info fields and then restores them from the file's block.
    bool LoadFile(const char* path);

protected:
    virtual bool _SaveRaw(FILE* file);
    virtual bool _LoadRaw(FILE* file);
    virtual bool _SaveBmp(const char* path);
    virtual bool _LoadBmp(const char* path);
    virtual bool _SaveJpg(const char* path);
    virtual bool _LoadJpg(const char* path);
    virtual void _ResetMemory();

    bool _SaveRaw(const char* path);
    bool _LoadRaw(const char* path);
    void _SetBitPerCn(uint8_t bits);
    // Bytes for a geometry: 1- and 8-bit pixels take one byte, 10-, 12- and
    // 16-bit two, others bitsPerPixel / 8; formed in 32 bits, as the
    // buffers of this library always have been.
    uint64_t _GetReqMemSize(uint32_t width, uint32_t height, uint8_t bitsPerPixel) const;
    // Zero-fills min(bytes, memory size) bytes.
    void _ZeroFill(uint64_t bytes);
    // The first `bytes` bytes of the pixels; where the buffer holds fewer
    // (memory mode 2), a zero-padded copy held by `copy`. Null for an image
    // without memory, or when the copy cannot be allocated. Writers use it
    // rather than read past the buffer.
    const unsigned char* _PaddedPixels(uint64_t bytes, std::unique_ptr<unsigned char[]>& copy);
    // In memory modes 0 and 1 the geometry never describes more bytes than
    // the buffer holds: one that does becomes 0 x 0 (channels kept).
    void _FitSizeToBuffer();

    CImgInfo* _Info() const { return m_info.get(); }

private:
    bool _SaveRawCore(FILE* file);
    bool _LoadRawCore(FILE* file);
    bool _SaveCoreRaw01(FILE* file);
    bool _LoadCoreRaw01(FILE* file);
    eImgFileFormat _FormatOf(const char* path);
    void _RestoreInfo(const CImgInfo& saved);

    char m_tag[3];
    std::unique_ptr<CImgInfo> m_info;
    platform::Env* m_env = nullptr;
    bool m_using GRABSYS_GUARDED_BY(m_usingLock) = false;
    platform::CriticalSection m_usingLock;
};

}  // namespace GrabSystem
