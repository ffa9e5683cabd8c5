#include "grabsystem/debug_package/debug_img_package.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "grabsystem/format/binary_io.h"
#include "grabsystem/format/package.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/thread_pool.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace GrabSystem {

const char CDebugImgPackageP::kKey[17] = "Tk4mW9pLr2Xv7NqZ";

namespace {

void Log(const char* text) { PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo, text); }

// Records that a file lacks read as zeros, up to what 32-bit sizes address.
constexpr uint64_t kMaxMissingRecordBytes = uint64_t{1} << 32;

}  // namespace

CDebugImgPackageP::CDebugImgPackageP() : Key(kKey) {}

CDebugImgPackageP::~CDebugImgPackageP() {
    PackageInfos.clear();
    _DeleteBuffer();
}

void CDebugImgPackageP::_DeleteBuffer() {
    BufferSize = 0;
    Buffer.reset();
}

void CDebugImgPackageP::CreatePackageBuffer() {
    _DeleteBuffer();
    if (PackageInfos.empty()) return;
    const uint32_t size = format::ImagePackageDataBytes(PackageInfos);
    // calloc takes zeroed pages from the system: nothing is touched that no
    // frame fills. Running out of memory throws, as allocation does.
    Buffer.reset(static_cast<unsigned char*>(std::calloc(size == 0 ? 1 : size, 1)));
    if (!Buffer) throw std::bad_alloc();
    BufferSize = size;
}

bool CDebugImgPackageP::AddData(unsigned int infoIdx, unsigned char* data, unsigned int frameIdx) {
    if (!Buffer || PackageInfos.empty() || infoIdx >= PackageInfos.size()) return false;
    const CDebugImgPackageInfoP& info = PackageInfos[infoIdx];
    if (frameIdx >= info.FrameCount) return false;
    const uint32_t frameBytes = info.Width * info.Height;
    if (data == nullptr && frameBytes != 0) return false;
    Log("AddData Start");
    const uint32_t offset = (info.FrameCount * infoIdx + frameIdx) * frameBytes;
    // Runs of unequal sizes can place a frame past the end of the data area:
    // it is copied as far as the area reaches.
    const uint32_t fits = offset < BufferSize ? std::min(frameBytes, BufferSize - offset) : 0;
    if (fits != 0) std::memcpy(Buffer.get() + offset, data, fits);
    Log("AddData End");
    return true;
}

bool CDebugImgPackageP::SaveDebugPackage(std::string path) {
    if (!Buffer || PackageInfos.empty()) return false;
    Log("SaveDebugPackage Start");
    DrasselSpace::FileToolP::EncryptData(Buffer.get(), BufferSize, reinterpret_cast<const unsigned char*>(Key.data()),
                                         Key.size());
    BinaryWriter writer(m_env);
    if (!writer.Open(path.c_str())) return false;
    std::vector<uint8_t> head(format::kImagePackageHeadBytes + PackageInfos.size() * format::kImagePackageRecordBytes);
    format::Writer w(head.data(), head.size());
    format::EncodeImagePackageHead(w, Version, static_cast<uint32_t>(PackageInfos.size()), JumpIdx);
    for (const CDebugImgPackageInfoP& info : PackageInfos) format::EncodeImagePackageRecord(w, info);
    writer.Write(head.data(), head.size());
    writer.Write(Buffer.get(), BufferSize);
    writer.Close();
    Log("SaveDebugPackage End");
    return true;
}

bool CDebugImgPackageP::LoadDebugPackage(std::string path) {
    BinaryReader reader(m_env);
    if (reader.Open(path.c_str()) == 0) return false;
    // The head is read whole; in a version 1 file (no jump word) its last
    // word is the first of the records.
    uint8_t head[format::kImagePackageHeadBytes] = {};
    const size_t got = reader.ReadByteArray(head, sizeof head);
    if (!reader.status().ok()) return false;
    const format::ImagePackageHead h = format::DecodeImagePackageHead(format::Bytes(head, got));
    Version = h.version;
    if (h.count == 0) return false;
    size_t carried = got > h.bytes ? got - h.bytes : 0;
    // The reader delivers zeros past the end, so missing records read as
    // zeros; but a few bytes must not make it materialise billions of them.
    const uint64_t recordBytes = uint64_t{h.count} * format::kImagePackageRecordBytes;
    if (recordBytes > carried + reader.Remaining() && recordBytes > kMaxMissingRecordBytes) return false;

    JumpIdx = h.jumpIdx;
    PackageInfos.clear();
    PackageInfos.reserve(h.count);
    uint8_t record[format::kImagePackageRecordBytes];
    for (uint32_t i = 0; i < h.count; ++i) {
        size_t have = 0;
        if (carried != 0) {
            std::memcpy(record, head + h.bytes, carried);
            have = carried;
            carried = 0;
        }
        have += reader.ReadByteArray(record + have, sizeof record - have);
        PackageInfos.push_back(format::DecodeImagePackageRecord(format::Bytes(record, have)));
    }
    CreatePackageBuffer();
    // A file shorter than its records promise leaves the rest of the
    // zero-filled area as it is; the whole area is decrypted all the same.
    reader.ReadByteArray(Buffer.get(), BufferSize);
    const bool result = DrasselSpace::FileToolP::EncryptData(
        Buffer.get(), BufferSize, reinterpret_cast<const unsigned char*>(Key.data()), Key.size());
    reader.Close();
    return result && reader.status().ok();
}

}  // namespace GrabSystem
