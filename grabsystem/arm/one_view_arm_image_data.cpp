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

bool COneViewArmImageData::CompressMemoryData() {
    m_outgrown = false;
    if (m_memory == nullptr || m_memory->GetAddress() == nullptr) return false;
    // The block's capacity, not its reported size, is what the writes may
    // fill: it holds the header and LZ4's worst case behind the estimate.
    const uint64_t capacity = m_memory->GetCapacity();

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
    unsigned char* const block = m_memory->GetAddress();
    format::Writer w(block, kHeaderBytes);
    format::EncodeArmHeader(w, header);

    uint64_t used = kHeaderBytes;
    uint32_t total = 0;  // the format's 32-bit running total; it wraps past 2 GiB
    for (const std::vector<IImgP*>* frames : {&m_sinImages, &m_whiteImages}) {
        for (IImgP* img : *frames) {
            // The length goes to LZ4 as a 32-bit int, as it always has: a
            // frame it cannot take (negative, or beyond LZ4's limit) gets a
            // bound of 0 and an empty record.
            const auto srcSize = static_cast<int>(static_cast<uint32_t>(img->GetBufferSize()));
            const int bound = DrasselSpace::CLZ4CompressorP::GetCompressBound(srcSize);
            const bool hasData = srcSize > 0 && bound > 0;
            const bool makesOutput = srcSize >= 0 && bound > 0;  // even 0 bytes compress to a token
            // A geometry larger than the image's memory is compressed from a
            // zero-padded copy rather than read past the memory.
            std::unique_ptr<unsigned char[]> padded;
            unsigned char* src = img->GetImg();
            if (hasData && static_cast<uint64_t>(srcSize) > img->GetMemSize()) {
                padded.reset(new unsigned char[static_cast<size_t>(srcSize)]());
                if (img->GetMemSize() != 0) std::memcpy(padded.get(), src, img->GetMemSize());
                src = padded.get();
            }
            // Only a view whose frames outgrow the estimate can run out of
            // room; LZ4 then stops at the block's end and the view is refused.
            const uint64_t room = capacity - used;
            if (room < kRecordHeaderBytes) return _Outgrown();
            const uint64_t dataRoom = room - kRecordHeaderBytes;
            const int dstCapacity = static_cast<uint64_t>(bound) <= dataRoom ? bound : static_cast<int>(dataRoom);
            int record = 0;
            _CompressData(block + used, dstCapacity, src, srcSize, record);
            if (makesOutput && record == static_cast<int>(kRecordHeaderBytes)) return _Outgrown();
            used += static_cast<uint64_t>(record);
            total += static_cast<uint32_t>(record);
        }
    }
    m_compressedSize = static_cast<int32_t>(total);  // sign-extended, as the format's total is signed
    return true;
}

bool COneViewArmImageData::_Outgrown() {
    m_outgrown = true;
    return false;
}

bool COneViewArmImageData::SaveToFile() {
    _Log("ArmCost--COneViewArmImageData::SaveToFile - 1");
    if (m_path.empty()) return false;
    // A view that did not fit its block has no file to write.
    if (m_outgrown) return false;
    BinaryWriter writer;
    if (!writer.Open(m_path.c_str())) return false;
    if (m_memory != nullptr && m_memory->GetAddress() != nullptr) {
        // The count is taken as 32 bits; it never runs past the buffer.
        const uint64_t bytes = static_cast<uint32_t>(m_compressedSize + kHeaderBytes);
        writer.Write(m_memory->GetAddress(), static_cast<size_t>(std::min(bytes, m_memory->GetCapacity())));
    }
    writer.Close();
    _Log("ArmCost--COneViewArmImageData::SaveToFile - 2");
    return true;
}

void COneViewArmImageData::_Log(const char* stage) const {
    PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo,
                                              std::string(stage) + "(" + std::to_string(m_viewIdx) + ")");
}

}  // namespace GrabSystem
