#include "grabsystem/arm/one_view_arm_image_data.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "grabsystem/arm/arm_image_output_memory.h"
#include "grabsystem/format/arm_view.h"
#include "grabsystem/format/binary_io.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/os/mutex.h"
#include "grabsystem/platform/thread_pool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"

namespace GrabSystem {

namespace {
constexpr int kLz4Level = 3;

// The 32-bit product of the four counts, as the format defines it.
int32_t Product(int32_t a, int32_t b, int32_t c, int32_t d) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b) * static_cast<uint32_t>(c) *
                                static_cast<uint32_t>(d));
}
}  // namespace

COneViewArmImageData::COneViewArmImageData(int viewIdx) : m_viewIdx(viewIdx) {}

COneViewArmImageData::~COneViewArmImageData() {
    if (m_memory != nullptr) m_memory->SetUsingStatus(false);
}

int COneViewArmImageData::GetSinFrameCount() const { return Product(m_camCount, m_sinDimA, m_sinDimB, m_sinDimC); }

int COneViewArmImageData::GetWhitePtnFrameCount() const { return static_cast<int>(m_whiteImages.size()); }

bool COneViewArmImageData::SetSinImages(std::vector<IImgP*>& images, std::vector<eCamIdx> camIdxs, int sinDimA,
                                        int sinDimB, int sinDimC) {
    m_sinImages = images;
    m_camIdxs = std::move(camIdxs);
    m_camCount = static_cast<int>(m_camIdxs.size());
    m_sinDimA = sinDimA;
    m_sinDimB = sinDimB;
    m_sinDimC = sinDimC;
    return Product(m_camCount, sinDimA, sinDimB, sinDimC) == static_cast<int32_t>(images.size());
}

void COneViewArmImageData::SetWhitePatternImage(std::vector<IImgP*> images) { m_whiteImages = std::move(images); }

unsigned long long COneViewArmImageData::GetMemoryRequired() const {
    const uint64_t sinFrame = m_sinImages.empty() ? 0 : m_sinImages.front()->GetBufferSize() + kRecordHeaderBytes;
    const uint64_t whiteFrame =
        m_whiteImages.empty() ? 0 : m_whiteImages.front()->GetBufferSize() + kRecordHeaderBytes;
    const int64_t sinCount = GetSinFrameCount();  // widened with its sign
    const auto whiteCount = static_cast<uint32_t>(m_whiteImages.size());
    return static_cast<uint64_t>(sinCount) * sinFrame + uint64_t{whiteCount} * whiteFrame;
}

bool COneViewArmImageData::SetAvaliableMemory(CArmImageOutputMemory* memory) {
    if (memory == nullptr || GetMemoryRequired() > memory->GetAllocatedSize()) return false;
    m_memory = memory;
    m_memory->SetUsingStatus(true);
    return true;
}

bool COneViewArmImageData::ResetAvaliableMemory() {
    if (m_memory == nullptr) return false;
    m_memory->SetUsingStatus(false);
    return true;
}

unsigned char* COneViewArmImageData::_CompressData(unsigned char* dst, int dstCapacity, unsigned char* src,
                                                   int srcSize, int& recordSize) {
    const int n = DrasselSpace::CLZ4CompressorP::CompressRaw(src, srcSize, dst + kRecordHeaderBytes, dstCapacity,
                                                             kLz4Level);
    format::Writer w(dst, kRecordHeaderBytes);
    format::EncodeArmRecordHeader(w, static_cast<uint32_t>(n));
    recordSize = n + static_cast<int>(kRecordHeaderBytes);
    return dst + recordSize;
}

COneViewArmImageData::FrameSource COneViewArmImageData::_Source(IImgP* img) {
    FrameSource f;
    // The length goes to LZ4 as a 32-bit int, as it always has: a frame it
    // cannot take (negative, or beyond LZ4's limit) gets a bound of 0 and an
    // empty record.
    f.size = static_cast<int>(static_cast<uint32_t>(img->GetBufferSize()));
    f.bound = DrasselSpace::CLZ4CompressorP::GetCompressBound(f.size);
    f.makesOutput = f.size >= 0 && f.bound > 0;  // even 0 bytes compress to a token
    f.bytes = img->GetImg();
    if (f.size > 0 && f.bound > 0 && static_cast<uint64_t>(f.size) > img->GetMemSize()) {
        f.padded.reset(new unsigned char[static_cast<size_t>(f.size)]());
        if (img->GetMemSize() != 0) std::memcpy(f.padded.get(), f.bytes, img->GetMemSize());
        f.bytes = f.padded.get();
    }
    return f;
}

void COneViewArmImageData::_WriteHeader() {
    OneViewArmImageDataHeader header;
    std::memset(&header, 0, sizeof header);
    header.version = format::kArmVersion;
    header.sinFrameCount = static_cast<uint32_t>(m_sinImages.size());
    header.whiteFrameCount = static_cast<uint32_t>(m_whiteImages.size());
    if (!m_sinImages.empty()) {
        header.width = m_sinImages.front()->GetWidth();
        header.height = m_sinImages.front()->GetHeight();
    }
    header.camCount = m_camCount;
    header.sinDimA = m_sinDimA;
    header.sinDimB = m_sinDimB;
    header.sinDimC = m_sinDimC;
    for (size_t i = 0; i < m_camIdxs.size() && i < sizeof header.camTable; ++i)
        header.camTable[i] = static_cast<uint8_t>(m_camIdxs[i]);
    format::Writer w(m_memory->GetAddress(), kHeaderBytes);
    format::EncodeArmHeader(w, header);
}

std::vector<IImgP*> COneViewArmImageData::_Frames() const {
    std::vector<IImgP*> frames(m_sinImages);
    frames.insert(frames.end(), m_whiteImages.begin(), m_whiteImages.end());
    return frames;
}

bool COneViewArmImageData::CompressMemoryData() {
    m_outgrown = false;
    if (m_memory == nullptr || m_memory->GetAddress() == nullptr) return false;
    // The block's capacity, not its reported size, is what the writes may
    // fill: it holds the header and LZ4's worst case behind the estimate.
    const uint64_t capacity = m_memory->GetCapacity();
    unsigned char* const block = m_memory->GetAddress();
    _WriteHeader();

    uint64_t used = kHeaderBytes;
    uint32_t total = 0;  // the format's 32-bit running total; it wraps past 2 GiB
    for (IImgP* img : _Frames()) {
        const FrameSource f = _Source(img);
        // Only a view whose frames outgrow the estimate can run out of
        // room; LZ4 then stops at the block's end and the view is refused.
        const uint64_t room = capacity - used;
        if (room < kRecordHeaderBytes) return _Outgrown();
        const uint64_t dataRoom = room - kRecordHeaderBytes;
        const int dstCapacity = static_cast<uint64_t>(f.bound) <= dataRoom ? f.bound : static_cast<int>(dataRoom);
        int record = 0;
        _CompressData(block + used, dstCapacity, f.bytes, f.size, record);
        if (f.makesOutput && record == static_cast<int>(kRecordHeaderBytes)) return _Outgrown();
        used += static_cast<uint64_t>(record);
        total += static_cast<uint32_t>(record);
    }
    m_compressedSize = static_cast<int32_t>(total);  // sign-extended, as the format's total is signed
    return true;
}

bool COneViewArmImageData::_CompressMemoryData(platform::ThreadPool& pool,
                                               std::vector<std::vector<unsigned char>>& scratch) {
    m_outgrown = false;
    if (m_memory == nullptr || m_memory->GetAddress() == nullptr) return false;
    const uint64_t capacity = m_memory->GetCapacity();
    unsigned char* const block = m_memory->GetAddress();
    _WriteHeader();
    const std::vector<IImgP*> frames = _Frames();
    scratch.resize(static_cast<size_t>(pool.Threads()));

    // Each thread compresses a frame into its scratch buffer with the room
    // the one-thread loop would give it, the frame's bound; then, in file
    // order, the frame takes its place behind the one before and is copied
    // there outside the lock, beside the copies of the other threads. A
    // frame that would find less room than its bound is compressed into the
    // block in its turn, exactly as the one-thread loop does it.
    platform::Mutex mutex;
    platform::CondVar turn(&mutex);
    size_t placed = 0;        // frames in their place, guarded by mutex
    uint64_t used = kHeaderBytes;
    uint32_t total = 0;
    bool stopped = false;     // a frame ran out of block, or threw
    pool.Run(frames.size(), [&](size_t k, int slot) {
        {
            platform::MutexLock lock(mutex);
            if (stopped) return;
        }
        FrameSource f;
        std::vector<unsigned char>& own = scratch[static_cast<size_t>(slot)];
        try {
            f = _Source(frames[k]);
            own.resize(std::max(own.size(), kRecordHeaderBytes + static_cast<size_t>(f.bound)));
        } catch (...) {
            // No memory for a padded copy or a scratch buffer: the frames
            // behind this one must not wait for it.
            platform::MutexLock lock(mutex);
            stopped = true;
            turn.SignalAll();
            throw;
        }
        int record = 0;
        _CompressData(own.data(), f.bound, f.bytes, f.size, record);

        platform::MutexLock lock(mutex);
        while (placed != k && !stopped) turn.Wait();
        if (stopped) return;
        const uint64_t room = capacity - used;
        const bool fits = room >= kRecordHeaderBytes && static_cast<uint64_t>(f.bound) <= room - kRecordHeaderBytes;
        unsigned char* const at = block + used;
        if (!fits) {
            if (room >= kRecordHeaderBytes)
                _CompressData(at, static_cast<int>(room - kRecordHeaderBytes), f.bytes, f.size, record);
            if (room < kRecordHeaderBytes || (f.makesOutput && record == static_cast<int>(kRecordHeaderBytes))) {
                stopped = true;
                m_outgrown = true;
                turn.SignalAll();
                return;
            }
        }
        used += static_cast<uint64_t>(record);
        total += static_cast<uint32_t>(record);
        ++placed;
        turn.SignalAll();
        lock.Unlock();
        if (fits) std::memcpy(at, own.data(), static_cast<size_t>(record));
    });
    if (m_outgrown) return false;
    m_compressedSize = static_cast<int32_t>(total);
    return true;
}

bool COneViewArmImageData::_Outgrown() {
    m_outgrown = true;
    return false;
}

bool COneViewArmImageData::SaveToFile() {
    _Log("ArmCost--COneViewArmImageData::SaveToFile - 1");
    if (m_path.empty()) {
        m_saveStatus = Status::InvalidArgument("view " + std::to_string(m_viewIdx), "no output file path");
        return false;
    }
    // A view that did not fit its block has no file to write.
    if (m_outgrown) {
        m_saveStatus = Status::InvalidArgument(m_path, "the view outgrew its output block; no file written");
        return false;
    }
    BinaryWriter writer(m_env);
    if (!writer.Open(m_path.c_str())) {
        m_saveStatus = writer.status();
        return false;
    }
    if (m_memory != nullptr && m_memory->GetAddress() != nullptr) {
        // The count is taken as 32 bits; it never runs past the buffer.
        const uint64_t bytes = static_cast<uint32_t>(m_compressedSize + kHeaderBytes);
        writer.Write(m_memory->GetAddress(), static_cast<size_t>(std::min(bytes, m_memory->GetCapacity())));
    }
    writer.Close();
    m_saveStatus = writer.status();
    _Log("ArmCost--COneViewArmImageData::SaveToFile - 2");
    return true;
}

void COneViewArmImageData::_Log(const char* stage) const {
    PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo,
                                              std::string(stage) + "(" + std::to_string(m_viewIdx) + ")");
}

}  // namespace GrabSystem
