#include "grabsystem/debug_package/debug_img_package.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/toolkit/binary_io.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace GrabSystem {

const char CDebugImgPackageP::kKey[17] = "Tk4mW9pLr2Xv7NqZ";

namespace {

void Log(const char* text) { PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo, text); }

constexpr uint32_t kRecordWords = 5;
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
    uint32_t size = 0;  // 32-bit, as the format has always summed it
    for (const CDebugImgPackageInfoP& info : PackageInfos) size += info.Width * info.Height * info.FrameCount;
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
    BinaryWriter writer;
    if (!writer.Open(path.c_str())) return false;
    writer.WriteUInt(Version);
    writer.WriteUInt(static_cast<unsigned>(PackageInfos.size()));
    writer.WriteUInt(JumpIdx);
    for (const CDebugImgPackageInfoP& info : PackageInfos) {
        writer.WriteUInt(info.Width);
        writer.WriteUInt(info.Height);
        writer.WriteUInt(info.FrameCount);
        writer.WriteUInt(info.GroupIdx);
        writer.WriteUInt(info.CamIdx);
    }
    writer.Write(Buffer.get(), BufferSize);
    writer.Close();
    Log("SaveDebugPackage End");
    return true;
}

bool CDebugImgPackageP::LoadDebugPackage(std::string path) {
    BinaryReader reader;
    if (reader.Open(path.c_str()) == 0) return false;
    Version = reader.ReadUInt();
    const uint32_t count = reader.ReadUInt();
    if (count == 0) return false;
    const uint32_t jump = Version != 1 ? reader.ReadUInt() : 0;
    // The reader delivers zeros past the end, so missing records read as
    // zeros; but a few bytes must not make it materialise billions of them.
    const uint64_t recordBytes = uint64_t{count} * kRecordWords * 4;
    if (recordBytes > reader.Remaining() && recordBytes > kMaxMissingRecordBytes) return false;

    JumpIdx = jump;
    PackageInfos.clear();
    PackageInfos.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        CDebugImgPackageInfoP info;
        info.Width = reader.ReadUInt();
        info.Height = reader.ReadUInt();
        info.FrameCount = reader.ReadUInt();
        info.GroupIdx = reader.ReadUInt();
        info.CamIdx = reader.ReadUInt();
        PackageInfos.push_back(info);
    }
    CreatePackageBuffer();
    // A file shorter than its records promise leaves the rest of the
    // zero-filled area as it is; the whole area is decrypted all the same.
    reader.ReadByteArray(Buffer.get(), BufferSize);
    const bool result = DrasselSpace::FileToolP::EncryptData(
        Buffer.get(), BufferSize, reinterpret_cast<const unsigned char*>(Key.data()), Key.size());
    reader.Close();
    return result;
}

}  // namespace GrabSystem
