// CDebugPackageP: the general debug package, with a jump index per run, an
// optional project file and LZ4-compressed frames.
//
// The file is the general package form of format/package.h: Version (3),
// project-file flag, record count, the records, then the data area,
// encrypted as the image package's is: blocks of a u32 length L and L
// bytes, the project file first when the flag is 1, then one LZ4 block per
// frame (an 8-bit Width x Height frame), in record order.
//
// Writing stages blocks in a 1 GiB buffer of zeroed pages taken from the
// system, so it costs resident memory only for the bytes staged. Reading
// loads the whole file and parses it in place. Words that the file lacks
// (a file cut inside its header, records or project block) read as zeros;
// a frame block that runs past the data fails as one that does not
// decompress.
//
// After a load with the flag 1 the project file is written to
// "D:\vormex\importTmp.fpz", whose folder must exist. Copying is forbidden:
// the object owns its buffers. Not thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

class GRABSYSTEM_EXPORT CDebugPackageP {
public:
    static constexpr uint64_t kStagingBytes = 0x40000000;  // 1 GiB
    static constexpr size_t kLengthBufferBytes = 1556;
    static const char kProjectFilePath[];  // "D:\vormex\importTmp.fpz"

    CDebugPackageP();
    virtual ~CDebugPackageP();
    CDebugPackageP(const CDebugPackageP&) = delete;
    CDebugPackageP& operator=(const CDebugPackageP&) = delete;

    void ClearPackageInfo() { PackageInfos.clear(); }
    void AddPackageInfo(CDebugPackageInfoP info) { PackageInfos.push_back(info); }

    // Prepares for writing: releases everything, then takes the staging
    // buffer (std::bad_alloc when the system has no room for it).
    void InitialPackageBuffer();
    // Releases everything, then loads the whole file. True when it holds at
    // least one byte; false when it cannot be read whole.
    bool InitialPackageBuffer(std::string path);

    // Stages one block (a u32 length, then the bytes). The two unsigned
    // arguments are accepted and not used. False without a staging buffer,
    // for a negative length, or when the block would not fit.
    bool AddData(unsigned int, unsigned char* data, unsigned int, int length);
    // Copies the staged bytes into the buffer that SaveDebugPackage writes
    // (zeros when nothing is staged, as after a load). The read cursor of a
    // load pointed into the buffer it replaces: the frames of that load are
    // no longer importable.
    void AllocateDebugImgBuffer();
    // Encrypts that buffer in place and writes the file. False without it,
    // without records, or when the file cannot be created. Blocks staged
    // after the buffer was made are not in it and are not written.
    // True means the file could be created, not that it was written, as for
    // CDebugImgPackageP::SaveDebugPackage: after a failed write the answer is
    // true, nothing is left at `path` but what was there before, and no
    // temporary file stays.
    bool SaveDebugPackage(std::string path, bool withProjectFile);

    // Loads, decrypts and, with the flag 1, writes the project file out
    // (ProjectFileSize keeps its length, GetProjectFileBuffer() is null
    // afterwards). The result is the decryption's. DataSize is then the
    // size of the data area, project block included, and the frames start
    // behind that block. False, too, for a missing file or one under 12
    // bytes, no records, or records missing from the file that would take
    // more than 4 GiB of memory.
    bool LoadDebugPackage(std::string path);
    bool ImportProjectFile();

    // Decompresses every frame and writes it as a BMP (with its information
    // block) to "D://ImgTest//CamImgInput//Cam<CamIdx>//img<N>.bmp", N =
    // FrameCount x GroupIdx + JumpIdx + frame. False without data or
    // records, or at the first block that runs past the data or does not
    // decompress; the files written before stay.
    bool ImportDebugImg();
    // As above into "Cam<CamIdx>_<packageIdx>" folders, except that every
    // frame decodes the same bytes: L = the first block's length, taken from
    // L bytes after it. Kept exactly: callers of this entry point rely on it.
    bool ImportDebugImg(unsigned int packageIdx);

    void DeleteBuffer();

    // The Env the package's files (the package, the project file, the BMP
    // tree) go through (not owned; it must outlive their use); null, the
    // default, uses Env::Default().
    void SetEnv(platform::Env* env) { m_env = env; }
    platform::Env* GetEnv() const { return platform::Env::Or(m_env); }
    unsigned char* GetProjectFileBuffer() { return ProjectFileBuffer.get(); }
    unsigned long long GetProjectFileSize() const { return ProjectFileSize; }
    // Bytes staged so far (while writing); after a load, the size of the
    // data area.
    unsigned long long GetDataSize() const { return DataSize; }

    const std::string Key;
    uint32_t Version = 3;
    std::vector<CDebugPackageInfoP> PackageInfos;

private:
    bool _Import(const std::string& cameraSuffix, bool walkBlocks);

    uint64_t DataSize = 0;
    uint64_t ProjectFileSize = 0;
    std::unique_ptr<unsigned char[]> FileBuffer;
    uint64_t FileBufferSize = 0;
    std::unique_ptr<unsigned char[]> ProjectFileBuffer;
    // Pages from the operating system, returned by the deleter.
    struct PageDeleter {
        void operator()(unsigned char* p) const;
    };
    std::unique_ptr<unsigned char, PageDeleter> PackageBuffer;
    unsigned char* WriteCursor = nullptr;
    unsigned char* ReadCursor = nullptr;
    std::unique_ptr<unsigned char, FreeDeleter> LengthBuffer;
    platform::Env* m_env = nullptr;
};

}  // namespace GrabSystem
