#include "grabsystem/arm/one_view_arm_image_data.h"

#include <cstdint>
#include <cstring>
#include <string>

#include "grabsystem/arm/arm_image_output_memory.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/toolkit/binary_io.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"

namespace GrabSystem {

namespace {
constexpr int kLz4Level = 3;
constexpr uint32_t kRecordKind = 1;

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

int COneViewArmImageData::_CompressData(unsigned char* dst, uint64_t room, const unsigned char* src, int srcSize) {
    if (room < kRecordHeaderBytes) return 0;
    const uint64_t dataRoom = room - kRecordHeaderBytes;
    const int bound = DrasselSpace::CLZ4CompressorP::GetCompressBound(srcSize);
    const int capacity = dataRoom < static_cast<uint64_t>(bound) ? static_cast<int>(dataRoom) : bound;
    const int n = DrasselSpace::CLZ4CompressorP::CompressRaw(src, srcSize, dst + kRecordHeaderBytes, capacity, kLz4Level);
    if (n == 0 && srcSize != 0) return 0;
    std::memset(dst, 0, kRecordHeaderBytes);
    std::memcpy(dst, &kRecordKind, 4);
    std::memcpy(dst + 4, &n, 4);
    return n + static_cast<int>(kRecordHeaderBytes);
}

bool COneViewArmImageData::CompressMemoryData() {
    if (m_memory == nullptr || m_memory->GetAddress() == nullptr) return false;
    const uint64_t blockSize = m_memory->GetAllocatedSize();
    if (blockSize < kHeaderBytes) return false;

    OneViewArmImageDataHeader header;
    std::memset(&header, 0, sizeof header);
    header.version = 2;
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
    unsigned char* const block = m_memory->GetAddress();
    std::memcpy(block, &header, sizeof header);

    uint64_t used = kHeaderBytes;
    int32_t total = 0;
    for (const std::vector<IImgP*>* frames : {&m_sinImages, &m_whiteImages}) {
        for (IImgP* img : *frames) {
            const uint64_t length = img->GetBufferSize();
            // A geometry larger than its memory, or beyond one LZ4 block,
            // cannot be a frame of this file.
            if (length > img->GetMemSize() || length > INT32_MAX ||
                (length != 0 && DrasselSpace::CLZ4CompressorP::GetCompressBound(static_cast<int>(length)) == 0))
                return false;
            const int record = _CompressData(block + used, blockSize - used, img->GetImg(), static_cast<int>(length));
            if (record == 0) return false;
            used += static_cast<uint64_t>(record);
            total += record;
        }
    }
    m_compressedSize = total;
    return true;
}

bool COneViewArmImageData::SaveToFile() {
    _Log("ArmCost--COneViewArmImageData::SaveToFile - 1");
    if (m_path.empty()) return false;
    // Without a compressed block there is nothing to write: no file at all
    // rather than an empty one.
    if (m_memory == nullptr || m_memory->GetAddress() == nullptr) return false;
    const uint64_t bytes = static_cast<uint32_t>(m_compressedSize + kHeaderBytes);
    if (bytes > m_memory->GetAllocatedSize()) return false;
    BinaryWriter writer;
    if (!writer.Open(m_path.c_str())) return false;
    writer.Write(m_memory->GetAddress(), static_cast<size_t>(bytes));
    writer.Close();
    _Log("ArmCost--COneViewArmImageData::SaveToFile - 2");
    return true;
}

void COneViewArmImageData::_Log(const char* stage) const {
    PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo,
                                              std::string(stage) + "(" + std::to_string(m_viewIdx) + ")");
}

}  // namespace GrabSystem
