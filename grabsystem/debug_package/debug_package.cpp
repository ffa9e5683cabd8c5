#include "grabsystem/debug_package/debug_package.h"

#include <algorithm>
#include <cstring>
#include <new>

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
// Records that a file lacks read as zeros, up to what 32-bit sizes address.
constexpr uint64_t kMaxMissingRecordBytes = uint64_t{1} << 32;

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
    if (!PackageBuffer || !LengthBuffer) throw std::bad_alloc();
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
    const size_t bytes = static_cast<size_t>(DataSize);
    const size_t room = bytes == 0 ? 1 : bytes;
    if (PackageBuffer) {
        FileBuffer.reset(new unsigned char[room]);
        if (bytes != 0) std::memcpy(FileBuffer.get(), PackageBuffer.get(), bytes);
    } else {
        // After a load nothing is staged: the copy starts out zeroed rather
        // than holding whatever the heap had.
        FileBuffer.reset(new unsigned char[room]());
    }
    FileBufferSize = DataSize;
    // A read cursor into the buffer just replaced would point at freed bytes.
    ReadCursor = nullptr;
}

bool CDebugPackageP::SaveDebugPackage(std::string path, bool withProjectFile) {
    if (!FileBuffer || PackageInfos.empty()) return false;
    Log("SaveDebugPackage Start");
    // Blocks staged after the copy was made are not in the buffer: it is
    // written as far as it goes.
    const size_t bytes = static_cast<size_t>(std::min(DataSize, FileBufferSize));
    DrasselSpace::FileToolP::EncryptData(FileBuffer.get(), bytes, reinterpret_cast<const unsigned char*>(Key.data()),
                                         Key.size());
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
    writer.Write(FileBuffer.get(), bytes);
    writer.Close();
    Log("SaveDebugPackage End");
    return true;
}

uint32_t CDebugPackageP::_FileWord(uint64_t byte) const {
    unsigned char word[4] = {};
    for (uint64_t i = 0; i < 4 && byte + i < FileBufferSize; ++i) word[i] = FileBuffer[byte + i];
    return ReadU32(word);
}

bool CDebugPackageP::LoadDebugPackage(std::string path) {
    ReadCursor = nullptr;
    InitialPackageBuffer(path);
    if (!FileBuffer || FileBufferSize < 12) return false;
    ReadCursor = FileBuffer.get();
    Version = _FileWord(0);
    const uint32_t flag = _FileWord(4);
    const uint32_t count = _FileWord(8);
    if (count == 0) return false;
    // Words past the end of the file read as zeros, but a few bytes must
    // not make the load materialise billions of records.
    const uint64_t headerBytes = (6 * uint64_t{count} + 3) * 4;
    if (headerBytes > FileBufferSize && count * kRecordBytes > kMaxMissingRecordBytes) return false;

    PackageInfos.clear();
    PackageInfos.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t r = 12 + i * kRecordBytes;
        CDebugPackageInfoP info;
        info.JumpIdx = _FileWord(r);
        info.Width = _FileWord(r + 4);
        info.Height = _FileWord(r + 8);
        info.FrameCount = _FileWord(r + 12);
        info.GroupIdx = _FileWord(r + 16);
        info.CamIdx = _FileWord(r + 20);
        PackageInfos.push_back(info);
    }
    // The data area is what follows the records (nothing, when the file
    // ends inside them).
    const uint64_t dataStart = std::min(headerBytes, FileBufferSize);
    ReadCursor = FileBuffer.get() + dataStart;
    DataSize = FileBufferSize - dataStart;
    const bool result = DrasselSpace::FileToolP::EncryptData(ReadCursor, static_cast<size_t>(DataSize),
                                                             reinterpret_cast<const unsigned char*>(Key.data()), Key.size());
    if (flag == 1) {
        // A project block that runs past the data keeps its length: the
        // bytes that are there, then zeros.
        const uint64_t at = dataStart;
        const uint32_t length = _FileWord(at);
        ProjectFileSize = length;
        ProjectFileBuffer.reset(new unsigned char[length == 0 ? 1 : length]());
        const uint64_t from = std::min(at + 4, FileBufferSize);
        const uint64_t present = std::min<uint64_t>(length, FileBufferSize - from);
        if (present != 0) std::memcpy(ProjectFileBuffer.get(), FileBuffer.get() + from, static_cast<size_t>(present));
        ImportProjectFile();
        ReadCursor = FileBuffer.get() + std::min(at + 4 + length, FileBufferSize);
    }
    ProjectFileBuffer.reset();
    return result;
}

bool CDebugPackageP::ImportProjectFile() {
    return DrasselSpace::FileToolP::SaveDataToFile(kProjectFilePath, ProjectFileBuffer.get(), ProjectFileSize);
}

bool CDebugPackageP::ImportDebugImg() { return _Import("", true); }

bool CDebugPackageP::ImportDebugImg(unsigned int packageIdx) { return _Import("_" + std::to_string(packageIdx), false); }

bool CDebugPackageP::_Import(const std::string& cameraSuffix, bool walkBlocks) {
    if (!FileBuffer || ReadCursor == nullptr || PackageInfos.empty()) return false;
    const uint64_t data = static_cast<uint64_t>(FileBuffer.get() + FileBufferSize - ReadCursor);
    CImg8P img;
    img.GetInfo().size.SetBitPerChannel(8);
    uint64_t offset = 0;
    for (const CDebugPackageInfoP& info : PackageInfos) {
        if (info.FrameCount == 0) continue;
        img.SetSize(info.Width, info.Height, 1, false);
        const std::string directory = kExportRoot + std::to_string(info.CamIdx) + cameraSuffix + "//";
        for (uint32_t j = 0; j < info.FrameCount; ++j) {
            const uint32_t number = info.FrameCount * info.GroupIdx + info.JumpIdx + j;
            const std::string file = directory + "img" + std::to_string(number) + ".bmp";
            if (!DrasselSpace::CWinHelper::IsDirectoryExists(directory))
                DrasselSpace::CWinHelper::CreateDirectoryRecursively(directory);

            // Where this frame's bytes are; a block that runs past the data
            // fails as one that does not decompress.
            const uint64_t at = walkBlocks ? offset : 0;
            if (data < at + 4) return false;
            const uint32_t length = ReadU32(ReadCursor + at);
            const uint64_t from = walkBlocks ? at + 4 : 4 + uint64_t{length};
            if (length > INT32_MAX || data < from + length) return false;
            offset += 4 + uint64_t{length};

            unsigned char* out = nullptr;
            int outLength = 0;
            if (!DrasselSpace::CLZ4DecompressorP::Decompress(ReadCursor + from, static_cast<int>(length), out, outLength))
                return false;
            const std::unique_ptr<unsigned char[]> decoded(out);
            // The decoded length is not compared with the frame's: the image
            // takes as much as its buffer holds.
            const size_t copy = std::min(static_cast<size_t>(outLength), img.GetMemSize());
            if (copy != 0) std::memcpy(img.GetImg(), decoded.get(), copy);
            img.SaveBmp(file.c_str());
        }
    }
    return true;
}

}  // namespace GrabSystem
