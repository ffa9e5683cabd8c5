#include "grabsystem/debug_package/debug_package.h"

#include <cstring>

#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/binary_io.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

const char CDebugPackageP::kProjectFilePath[] = "D:\\vormex\\importTmp.fpz";

namespace {

const char kExportRoot[] = "D://ImgTest//CamImgInput//Cam";
constexpr uint64_t kRecordBytes = 6 * 4;
constexpr uint64_t kMaxLz4Ratio = 255;

void Log(const char* text) { PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo, text); }

uint32_t ReadU32(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

}  // namespace

void CDebugPackageP::PageDeleter::operator()(unsigned char* p) const { platform::FreePages(p, kStagingBytes); }

CDebugPackageP::CDebugPackageP() : Key(CDebugImgPackageP::kKey) {}

CDebugPackageP::~CDebugPackageP() {
    PackageInfos.clear();
    DeleteBuffer();
}

void CDebugPackageP::DeleteBuffer() {
    DataSize = 0;
    ProjectFileSize = 0;
    FileBuffer.reset();
    FileBufferSize = 0;
    LengthBuffer.reset();
    PackageBuffer.reset();
    ProjectFileBuffer.reset();
    WriteCursor = ReadCursor = nullptr;
}

void CDebugPackageP::InitialPackageBuffer() {
    DeleteBuffer();
    // Zeroed pages straight from the system: the staging buffer costs
    // resident memory only where blocks are staged.
    PackageBuffer.reset(static_cast<unsigned char*>(platform::AllocatePages(kStagingBytes)));
    LengthBuffer.reset(static_cast<unsigned char*>(std::calloc(kLengthBufferBytes, 1)));
    WriteCursor = PackageBuffer.get();
}

bool CDebugPackageP::InitialPackageBuffer(std::string path) {
    DeleteBuffer();
    unsigned char* data = nullptr;
    unsigned long long size = 0;
    const bool loaded = DrasselSpace::FileToolP::LoadDataFromFile(path, data, size);
    FileBuffer.reset(data);
    FileBufferSize = DataSize = FileBuffer ? size : 0;
    return loaded && FileBuffer && DataSize != 0;
}

bool CDebugPackageP::AddData(unsigned int, unsigned char* data, unsigned int, int length) {
    if (!PackageBuffer) return false;
    if (length < 0 || (data == nullptr && length != 0)) return false;
    if (DataSize + 4 + static_cast<uint64_t>(length) > kStagingBytes) return false;
    Log("AddData Start");
    WriteCursor = PackageBuffer.get() + DataSize;
    const uint32_t word = static_cast<uint32_t>(length);
    if (LengthBuffer) std::memcpy(LengthBuffer.get(), &word, 4);
    std::memcpy(WriteCursor, &word, 4);
    WriteCursor += 4;
    if (length != 0) std::memcpy(WriteCursor, data, static_cast<size_t>(length));
    WriteCursor += length;
    DataSize += static_cast<uint64_t>(length) + 4;
    Log("AddData End");
    return true;
}

void CDebugPackageP::AllocateDebugImgBuffer() {
    FileBuffer.reset(new unsigned char[DataSize == 0 ? 1 : static_cast<size_t>(DataSize)]);
    FileBufferSize = DataSize;
    if (DataSize != 0 && PackageBuffer) std::memcpy(FileBuffer.get(), PackageBuffer.get(), static_cast<size_t>(DataSize));
}

bool CDebugPackageP::SaveDebugPackage(std::string path, bool withProjectFile) {
    if (!FileBuffer || PackageInfos.empty()) return false;
    Log("SaveDebugPackage Start");
    DrasselSpace::FileToolP::EncryptData(FileBuffer.get(), static_cast<size_t>(DataSize),
                                         reinterpret_cast<const unsigned char*>(Key.data()), Key.size());
    BinaryWriter writer;
    if (!writer.Open(path.c_str())) return false;
    writer.WriteUInt(Version);
    writer.WriteUInt(withProjectFile ? 1 : 0);
    writer.WriteUInt(static_cast<unsigned>(PackageInfos.size()));
    for (const CDebugPackageInfoP& info : PackageInfos) {
        writer.WriteUInt(info.JumpIdx);
        writer.WriteUInt(info.Width);
        writer.WriteUInt(info.Height);
        writer.WriteUInt(info.FrameCount);
        writer.WriteUInt(info.GroupIdx);
        writer.WriteUInt(info.CamIdx);
    }
    writer.Write(FileBuffer.get(), static_cast<size_t>(DataSize));
    writer.Close();
    Log("SaveDebugPackage End");
    return true;
}

bool CDebugPackageP::LoadDebugPackage(std::string path) {
    ReadCursor = nullptr;
    InitialPackageBuffer(path);
    if (!FileBuffer || FileBufferSize < 12) return false;
    const unsigned char* words = FileBuffer.get();
    Version = ReadU32(words);
    const uint32_t flag = ReadU32(words + 4);
    const uint32_t count = ReadU32(words + 8);
    if (count == 0) return false;
    const uint64_t headerBytes = (6 * uint64_t{count} + 3) * 4;
    if (headerBytes > FileBufferSize) return false;

    PackageInfos.clear();
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* r = words + 12 + i * kRecordBytes;
        CDebugPackageInfoP info;
        info.JumpIdx = ReadU32(r);
        info.Width = ReadU32(r + 4);
        info.Height = ReadU32(r + 8);
        info.FrameCount = ReadU32(r + 12);
        info.GroupIdx = ReadU32(r + 16);
        info.CamIdx = ReadU32(r + 20);
        PackageInfos.push_back(info);
    }
    ReadCursor = FileBuffer.get() + headerBytes;
    DataSize -= headerBytes;
    const bool result = DrasselSpace::FileToolP::EncryptData(ReadCursor, static_cast<size_t>(DataSize),
                                                             reinterpret_cast<const unsigned char*>(Key.data()), Key.size());
    if (flag == 1) {
        if (DataSize < 4) return false;
        const uint32_t length = ReadU32(ReadCursor);
        if (uint64_t{length} > DataSize - 4) return false;
        ProjectFileSize = length;
        ProjectFileBuffer.reset(new unsigned char[length == 0 ? 1 : length]);
        std::memcpy(ProjectFileBuffer.get(), ReadCursor + 4, length);
        ImportProjectFile();
        ReadCursor += uint64_t{length} + 4;
        DataSize -= uint64_t{length} + 4;
    }
    ProjectFileBuffer.reset();
    return result;
}

bool CDebugPackageP::ImportProjectFile() {
    if (!ProjectFileBuffer) return false;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\vormex");
    return DrasselSpace::FileToolP::SaveDataToFile(kProjectFilePath, ProjectFileBuffer.get(), ProjectFileSize);
}

bool CDebugPackageP::ImportDebugImg() { return _Import("", true); }

bool CDebugPackageP::ImportDebugImg(unsigned int packageIdx) { return _Import("_" + std::to_string(packageIdx), false); }

bool CDebugPackageP::_Import(const std::string& cameraSuffix, bool walkBlocks) {
    if (!FileBuffer || ReadCursor == nullptr || PackageInfos.empty()) return false;
    const unsigned char* const end = ReadCursor + DataSize;
    // Every frame of a valid package has a block of its own, at least its
    // length word: records that claim more frames are refused before the
    // first one, so that no file makes the import loop for ever.
    uint64_t frames = 0;
    for (const CDebugPackageInfoP& info : PackageInfos) frames += info.FrameCount;
    if (frames > DataSize / 4) return false;
    CImg8P img;
    img.GetInfo().size.SetBitPerChannel(8);
    uint64_t offset = 0;
    for (const CDebugPackageInfoP& info : PackageInfos) {
        if (info.FrameCount == 0) continue;
        // No frame decodes to more than LZ4's largest expansion of the whole
        // data area: a record that claims more is refused before allocating.
        const uint64_t pixels = uint64_t{info.Width} * info.Height;
        if (pixels > INT32_MAX || pixels > DataSize * kMaxLz4Ratio) return false;
        img.SetSize(info.Width, info.Height, 1, false);
        const std::string directory = kExportRoot + std::to_string(info.CamIdx) + cameraSuffix + "//";
        for (uint32_t j = 0; j < info.FrameCount; ++j) {
            const uint32_t number = info.FrameCount * info.GroupIdx + info.JumpIdx + j;
            const std::string file = directory + "img" + std::to_string(number) + ".bmp";
            if (!DrasselSpace::CWinHelper::IsDirectoryExists(directory))
                DrasselSpace::CWinHelper::CreateDirectoryRecursively(directory);

            // Where this frame's bytes are, checked against the data area.
            uint64_t at = walkBlocks ? offset : 0;
            if (static_cast<uint64_t>(end - ReadCursor) < at + 4) return false;
            const uint32_t length = ReadU32(ReadCursor + at);
            const uint64_t from = walkBlocks ? at + 4 : 4 + uint64_t{length};
            if (length > INT32_MAX || static_cast<uint64_t>(end - ReadCursor) < from + length) return false;
            offset += 4 + uint64_t{length};

            unsigned char* out = nullptr;
            int outLength = 0;
            if (!DrasselSpace::CLZ4DecompressorP::Decompress(ReadCursor + from, static_cast<int>(length), out, outLength))
                return false;
            const std::unique_ptr<unsigned char[]> decoded(out);
            const size_t copy = static_cast<size_t>(outLength) < img.GetMemSize() ? static_cast<size_t>(outLength) : img.GetMemSize();
            if (copy != 0) std::memcpy(img.GetImg(), decoded.get(), copy);
            img.SaveBmp(file.c_str());
        }
    }
    return true;
}

}  // namespace GrabSystem
