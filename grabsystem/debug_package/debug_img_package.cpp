#include "grabsystem/debug_package/debug_img_package.h"

#include <cstring>

#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/toolkit/binary_io.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace GrabSystem {

const char CDebugImgPackageP::kKey[17] = "Tk4mW9pLr2Xv7NqZ";

namespace {

void Log(const char* text) { PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo, text); }

constexpr uint32_t kRecordWords = 5;

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
    // frame fills.
    Buffer.reset(static_cast<unsigned char*>(std::calloc(size == 0 ? 1 : size, 1)));
    BufferSize = Buffer ? size : 0;
}

bool CDebugImgPackageP::AddData(unsigned int infoIdx, unsigned char* data, unsigned int frameIdx) {
    if (!Buffer || PackageInfos.empty() || infoIdx >= PackageInfos.size() || data == nullptr) return false;
    const CDebugImgPackageInfoP& info = PackageInfos[infoIdx];
    if (frameIdx >= info.FrameCount) return false;
    Log("AddData Start");
    const uint32_t frameBytes = info.Width * info.Height;
    const uint32_t offset = (info.FrameCount * infoIdx + frameIdx) * frameBytes;
    if (uint64_t{offset} + frameBytes > BufferSize) return false;
    std::memcpy(Buffer.get() + offset, data, frameBytes);
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
    if (count == 0 || reader.Failed()) return false;
    const uint32_t jump = Version != 1 ? reader.ReadUInt() : 0;
    // The records must be in the file before any is believed.
    if (reader.Failed() || uint64_t{count} * kRecordWords * 4 > reader.Remaining()) return false;
    std::vector<CDebugImgPackageInfoP> infos(count);
    uint64_t dataBytes = 0;
    for (CDebugImgPackageInfoP& info : infos) {
        info.Width = reader.ReadUInt();
        info.Height = reader.ReadUInt();
        info.FrameCount = reader.ReadUInt();
        info.GroupIdx = reader.ReadUInt();
        info.CamIdx = reader.ReadUInt();
        dataBytes += uint64_t{info.Width} * info.Height * info.FrameCount;
    }
    // Records that promise more frames than the file holds (or more than
    // the format's 32-bit size can address) are refused before allocating.
    if (dataBytes > reader.Remaining() || dataBytes > UINT32_MAX) return false;

    JumpIdx = jump;
    PackageInfos.swap(infos);
    CreatePackageBuffer();
    if (!Buffer) return false;
    reader.ReadByteArray(Buffer.get(), BufferSize);
    const bool result = DrasselSpace::FileToolP::EncryptData(
        Buffer.get(), BufferSize, reinterpret_cast<const unsigned char*>(Key.data()), Key.size());
    reader.Close();
    return result;
}

}  // namespace GrabSystem
