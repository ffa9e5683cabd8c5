// CDebugImgPackageP: the image package, one file that holds runs of grabbed
// 8-bit frames so that a capture can be carried off a scanner and replayed.
//
// The file is the image package form of format/package.h: Version, record
// count, jump index, the records, then the data area, which holds every
// frame (Width x Height bytes) of every run, back to back in package order,
// encrypted with FileToolP::EncryptData under the package key; header and
// records stay plain.
//
// Frames are placed by the uniform-run rule, (FrameCount of run i x i +
// frame) x frame bytes, which is right only when all runs have one size and
// one frame count; packages are built that way. Runs of unequal sizes can
// place a frame partly or wholly past the end of the data area: AddData
// copies it as far as the area reaches, and the export reads the part that
// lies inside and zeros for the rest.
//
// The buffer stays encrypted after a save: a writer saves once and discards
// the object. Copying is forbidden (the object owns its buffer). Not
// thread-safe; one thread per object.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/format/package.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"

namespace GrabSystem {

class CImg8P;
namespace platform {
class ThreadPool;
}

// Frees what std::calloc gave.
struct FreeDeleter {
    void operator()(unsigned char* p) const { std::free(p); }
};

class GRABSYSTEM_EXPORT CDebugImgPackageP {
public:
    static const char kKey[17];  // "Tk4mW9pLr2Xv7NqZ"

    CDebugImgPackageP();
    virtual ~CDebugImgPackageP();
    CDebugImgPackageP(const CDebugImgPackageP&) = delete;
    CDebugImgPackageP& operator=(const CDebugImgPackageP&) = delete;

    void ClearPackageInfo() { PackageInfos.clear(); }
    void SetJumpIdx(unsigned char jumpIdx) { JumpIdx = jumpIdx; }
    void AddPackageInfo(CDebugImgPackageInfoP info) { PackageInfos.push_back(info); }

    // A zero-filled data area for the current records (32-bit sum of their
    // bytes, which wraps; up to 4 GiB); none without records.
    // std::bad_alloc when memory runs out.
    void CreatePackageBuffer();

    // Copies one frame into the data area, logging "AddData Start" and
    // "AddData End". False, logging nothing, without a buffer or records,
    // for a record or frame index out of range, or for null data of a
    // frame with pixels.
    bool AddData(unsigned int infoIdx, unsigned char* data, unsigned int frameIdx);

    // Encrypts the data area in place and writes the file. False without a
    // buffer or records, or when the file cannot be created (the buffer is
    // then encrypted all the same).
    // True means the file could be created, not that it was written: the
    // writes' results are not part of the answer. The file is written under
    // a temporary name beside `path` and renamed into place only when every
    // byte is there, so after a failed write (a full disk) the answer is
    // still true, no file and no temporary file is left, and a file that was
    // at `path` before is untouched. Check for the file when that matters.
    bool SaveDebugPackage(std::string path);

    // Reads a package file and decrypts its data area; the result is the
    // decryption's. The data area is sized by the records (their 32-bit
    // sum, which wraps) and zero-filled first: a file shorter than its
    // records promise loads what it holds, and the missing tail, decrypted
    // with the rest, reads as the cipher's stream over zeros. A file that
    // ends inside its header or records reads the missing words as zeros.
    // False, with only Version changed, when the file cannot be opened,
    // counts no records, or lacks records worth more than 4 GiB of memory;
    // false too when the file fails while it is read (a device error, not
    // its end).
    bool LoadDebugPackage(std::string path);

    // Writes every frame as a BMP (with its information block) to
    // "D://ImgTest//CamImgInput//Cam<CamIdx>//img<N>.bmp", N = FrameCount x
    // GroupIdx + JumpIdx + frame; the overload adds "_<packageIdx>" to the
    // camera folder. Failures leave single files missing. A run whose
    // frames have no pixels still gets its folder and one SaveBmp per frame,
    // which leaves whatever file the BMP writer makes of 0 pixels (the
    // information block alone).
    void ExportDebugImg();
    void ExportDebugImg(unsigned int packageIdx);

    // Threads that write the frames of an export: the calling thread and
    // n - 1 others, started here and kept until the next call or the
    // destructor. 1, the default, exports on the calling thread alone; the
    // files are the same for every n.
    void SetExportThreads(int n);
    int GetExportThreads() const;

    // The Env the package's files go through, read and written (not owned;
    // it must outlive their use); null, the default, uses Env::Default().
    void SetEnv(platform::Env* env) { m_env = env; }
    platform::Env* GetEnv() const { return platform::Env::Or(m_env); }

    const std::string Key;
    uint32_t Version = 2;
    std::vector<CDebugImgPackageInfoP> PackageInfos;
    uint32_t BufferSize = 0;
    std::unique_ptr<unsigned char, FreeDeleter> Buffer;
    uint32_t JumpIdx = 0;

private:
    void _DeleteBuffer();
    void _Export(const std::string& cameraSuffix);
    // Frame `frame` of run `run` into its BMP, through `img`.
    void _ExportFrame(CImg8P& img, size_t run, uint32_t frame, const std::string& cameraSuffix);

    std::unique_ptr<platform::ThreadPool> m_exportPool;  // null: one thread
    platform::Env* m_env = nullptr;
};

}  // namespace GrabSystem
