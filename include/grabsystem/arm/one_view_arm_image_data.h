// COneViewArmImageData: the frames one view of the scanner captured (a
// block of Sin fringe frames from one or more cameras and one white-pattern
// frame per camera), compressed into a block of output memory that the arm
// output manager lends, and written as one per-view file.
//
// The object never owns the images (they stay the caller's and must stay
// alive and unchanged until CompressMemoryData returns) nor the block (it
// stays the manager's). It has no lock: one thread fills it, then hands it
// to the manager. Copying copies the pointers as they stand.
//
// The per-view file (".armraw", named by the view index) is the arm view
// codec's (format/arm_view.h): the 1024-byte header, then one record of a
// 64-byte header and one raw LZ4 block per frame.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/format/arm_view.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/image/img.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {

class CArmImageOutputMemory;
namespace platform {
class ThreadPool;
}

class GRABSYSTEM_EXPORT COneViewArmImageData {
public:
    static constexpr uint32_t kHeaderBytes = format::kArmHeaderBytes;
    static constexpr uint32_t kRecordHeaderBytes = format::kArmRecordHeaderBytes;

    explicit COneViewArmImageData(int viewIdx);
    // Marks a held block free again; never deletes the images.
    virtual ~COneViewArmImageData();
    COneViewArmImageData(const COneViewArmImageData&) = default;
    COneViewArmImageData& operator=(const COneViewArmImageData&) = default;

    // camCount x sinDimA x sinDimB x sinDimC (32-bit), not the vector size.
    int GetSinFrameCount() const;
    int GetWhitePtnFrameCount() const;

    // Stores the Sin frames (camera outermost, then sinDimA, sinDimB, sinDimC
    // innermost) and one camera index per camera. True when the counts
    // multiply to the number of images; everything is stored either way.
    bool SetSinImages(std::vector<IImgP*>& images, std::vector<eCamIdx> camIdxs, int sinDimA, int sinDimB,
                      int sinDimC);
    // One white-pattern frame per camera, in camera order.
    void SetWhitePatternImage(std::vector<IImgP*> images);

    // One record header plus one uncompressed frame per frame; the file
    // header and LZ4's growth are not counted.
    unsigned long long GetMemoryRequired() const;

    // Borrows `memory` (marking it in use). False for null or a block
    // smaller than GetMemoryRequired(); a block already held is kept then.
    bool SetAvaliableMemory(CArmImageOutputMemory* memory);
    // Marks the held block free; false when none is held.
    bool ResetAvaliableMemory();

    void SetOutputFileFullPath(std::string path) { m_path = std::move(path); }
    int GetViewIdx() const { return m_viewIdx; }
    long long GetCompressedSize() const { return m_compressedSize; }

    // Writes the header and one record per frame into the held block; true.
    // A view whose frames all have the size of the first frame of their kind
    // always fits the block (see CArmImageOutputMemory), whatever LZ4 makes
    // of them. Every write stays inside the block: false when there is no
    // block, or when later frames outgrow the estimate so that a record does
    // not fit; SaveToFile then writes no file. A frame whose length LZ4
    // cannot take (2 GiB and beyond) gets an empty record (n = 0), and one
    // whose geometry exceeds its image's memory is compressed as if the
    // missing bytes were zeros. The total is the format's signed 32-bit sum.
    bool CompressMemoryData();

    // Logs "- 1", then writes the header and records to the output path in
    // one write (without a block: an empty file) and logs "- 2". False for
    // an empty path, a view that did not fit its block, or a file that
    // cannot be created; the block and the compressed size stay, so the
    // call can be repeated with another path.
    // True means the file could be created, not that it was written: the
    // file goes to a temporary name beside the path and is renamed into
    // place only when complete, so after a failed write (a full disk) the
    // answer is still true, no file and no temporary file is left, and a
    // file that was at the path before is untouched.
    bool SaveToFile();
    // What the last SaveToFile met: OK when the file went into place whole,
    // else the file and the cause (a refused path, a failed or short write),
    // whatever SaveToFile answered.
    const Status& GetSaveStatus() const { return m_saveStatus; }

    // The Env the view's file goes through (not owned; it must outlive its
    // use); null, the default, uses Env::Default().
    void SetEnv(platform::Env* env) { m_env = env; }

private:
    friend class CArmImageOutputMng;

    // What one frame gives LZ4: its length as LZ4 takes it, the bound, and
    // where its bytes are (a zero-padded copy when the geometry exceeds the
    // image's memory).
    struct FrameSource {
        int size = 0;
        int bound = 0;
        bool makesOutput = false;
        unsigned char* bytes = nullptr;
        std::unique_ptr<unsigned char[]> padded;
    };
    static FrameSource _Source(IImgP* img);
    // The header into the block; the frames in file order (Sin, then white).
    void _WriteHeader();
    std::vector<IImgP*> _Frames() const;
    // CompressMemoryData with the frames compressed on the pool's threads,
    // one scratch buffer per thread, and laid into the block in file order:
    // the block, the result and the compressed size come out exactly as
    // CompressMemoryData leaves them.
    bool _CompressMemoryData(platform::ThreadPool& pool, std::vector<std::vector<unsigned char>>& scratch);

    // Writes one record at dst (LZ4 data at dst + 64, `dstCapacity` bytes
    // of room for it, level argument 3); recordSize becomes n + 64. Returns
    // the place of the next record.
    static unsigned char* _CompressData(unsigned char* dst, int dstCapacity, unsigned char* src, int srcSize,
                                        int& recordSize);
    bool _Outgrown();
    void _Log(const char* stage) const;

    std::vector<IImgP*> m_sinImages;
    std::vector<IImgP*> m_whiteImages;
    std::vector<eCamIdx> m_camIdxs;
    int m_camCount = 0;
    int m_sinDimA = 0;
    int m_sinDimB = 0;
    int m_sinDimC = 0;
    CArmImageOutputMemory* m_memory = nullptr;
    long long m_compressedSize = 0;
    bool m_outgrown = false;  // the last compression ran out of block
    std::string m_path;
    int m_viewIdx;
    platform::Env* m_env = nullptr;
    Status m_saveStatus;
};

}  // namespace GrabSystem
