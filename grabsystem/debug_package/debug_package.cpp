#include "grabsystem/debug_package/debug_package.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "grabsystem/format/binary_io.h"
#include "grabsystem/format/package.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

const char CDebugPackageP::kProjectFilePath[] = "D:\\vormex\\importTmp.fpz";

namespace {

// Records that a file lacks read as zeros, up to what 32-bit sizes address.
constexpr uint64_t kMaxMissingRecordBytes = uint64_t{1} << 32;

void Log(const char* text) { PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo, text); }

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
    const bool loaded = DrasselSpace::FileToolP::LoadDataFromFile(path, data, size, m_env);
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
    const auto word = static_cast<uint32_t>(length);
    if (LengthBuffer) {
        format::Writer last(LengthBuffer.get(), kLengthBufferBytes);
        format::EncodePackageBlockLength(last, word);
    }
    format::Writer block(WriteCursor, format::kPackageBlockLengthBytes + word);
    format::EncodePackageBlockLength(block, word);
    block.Raw(data, word);
    WriteCursor += block.Position();
    DataSize += block.Position();
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
    BinaryWriter writer(m_env);
    if (!writer.Open(path.c_str())) return false;
    const auto count = static_cast<uint32_t>(PackageInfos.size());
    std::vector<uint8_t> head(static_cast<size_t>(format::GeneralPackageDataOffset(count)));
    format::Writer w(head.data(), head.size());
    format::EncodeGeneralPackageHead(w, Version, withProjectFile ? 1 : 0, count);
    for (const CDebugPackageInfoP& info : PackageInfos) format::EncodeGeneralPackageRecord(w, info);
    writer.Write(head.data(), head.size());
    writer.Write(FileBuffer.get(), bytes);
    writer.Close();
    Log("SaveDebugPackage End");
    return true;
}

bool CDebugPackageP::LoadDebugPackage(std::string path) {
    ReadCursor = nullptr;
    InitialPackageBuffer(path);
    if (!FileBuffer || FileBufferSize < format::kGeneralPackageHeadBytes) return false;
    ReadCursor = FileBuffer.get();
    const format::Bytes file(FileBuffer.get(), static_cast<size_t>(FileBufferSize));
    const format::GeneralPackageHead head = format::DecodeGeneralPackageHead(file);
    Version = head.version;
    if (head.count == 0) return false;
    // Words past the end of the file read as zeros, but a few bytes must
    // not make the load materialise billions of records.
    const uint64_t headerBytes = format::GeneralPackageDataOffset(head.count);
    const uint64_t recordBytes = headerBytes - format::kGeneralPackageHeadBytes;
    if (headerBytes > FileBufferSize && recordBytes > kMaxMissingRecordBytes) return false;

    PackageInfos.clear();
    PackageInfos.reserve(head.count);
    for (uint32_t i = 0; i < head.count; ++i)
        PackageInfos.push_back(format::DecodeGeneralPackageRecord(
            file.Sub(format::kGeneralPackageHeadBytes + uint64_t{i} * format::kGeneralPackageRecordBytes)));
    // The data area is what follows the records (nothing, when the file
    // ends inside them).
    const uint64_t dataStart = std::min(headerBytes, FileBufferSize);
    ReadCursor = FileBuffer.get() + dataStart;
    DataSize = FileBufferSize - dataStart;
    const bool result = DrasselSpace::FileToolP::EncryptData(ReadCursor, static_cast<size_t>(DataSize),
                                                             reinterpret_cast<const unsigned char*>(Key.data()), Key.size());
    if (head.flag == 1) {
        // A project block that runs past the data keeps its length: the
        // bytes that are there, then zeros.
        const format::PackageBlock project = format::DecodePackageBlock(file.Sub(dataStart), 0);
        ProjectFileSize = project.length;
        ProjectFileBuffer.reset(new unsigned char[project.length == 0 ? 1 : project.length]());
        if (project.bytes.size != 0) std::memcpy(ProjectFileBuffer.get(), project.bytes.data, project.bytes.size);
        ImportProjectFile();
        ReadCursor = FileBuffer.get() +
                     std::min<uint64_t>(dataStart + format::kPackageBlockLengthBytes + project.length, FileBufferSize);
    }
    ProjectFileBuffer.reset();
    return result;
}

bool CDebugPackageP::ImportProjectFile() {
    return DrasselSpace::FileToolP::SaveDataToFile(kProjectFilePath, ProjectFileBuffer.get(), ProjectFileSize, m_env);
}

bool CDebugPackageP::ImportDebugImg() { return _Import("", true); }

bool CDebugPackageP::ImportDebugImg(unsigned int packageIdx) { return _Import("_" + std::to_string(packageIdx), false); }

bool CDebugPackageP::_Import(const std::string& cameraSuffix, bool walkBlocks) {
    if (!FileBuffer || ReadCursor == nullptr || PackageInfos.empty()) return false;
    const format::Bytes data(ReadCursor, static_cast<size_t>(FileBuffer.get() + FileBufferSize - ReadCursor));
    CImg8P img;
    img.GetInfo().size.SetBitPerChannel(8);
    img.SetEnv(m_env);
    uint64_t offset = 0;
    for (const CDebugPackageInfoP& info : PackageInfos) {
        if (info.FrameCount == 0) continue;
        img.SetSize(info.Width, info.Height, 1, false);
        const std::string directory = format::ExportFolder(info.CamIdx, cameraSuffix);
        for (uint32_t j = 0; j < info.FrameCount; ++j) {
            const uint32_t number = info.FrameCount * info.GroupIdx + info.JumpIdx + j;
            const std::string file = format::ExportFramePath(directory, number);
            if (!DrasselSpace::CWinHelper::IsDirectoryExists(directory, m_env))
                DrasselSpace::CWinHelper::CreateDirectoryRecursively(directory, m_env);

            // This frame's block, walked to or (the indexed entry point)
            // always the bytes after the first block, of the first block's
            // length. A block that runs past the data fails as one that does
            // not decompress.
            format::PackageBlock block = format::DecodePackageBlock(data, walkBlocks ? offset : 0);
            if (!walkBlocks) {
                if (data.size < format::kPackageBlockLengthBytes) return false;
                block.bytes = data.Sub(format::kPackageBlockLengthBytes + uint64_t{block.length}, block.length);
                block.complete = block.bytes.size == block.length;
            }
            if (!block.complete || block.length > INT32_MAX) return false;
            offset += format::kPackageBlockLengthBytes + uint64_t{block.length};

            unsigned char* out = nullptr;
            int outLength = 0;
            if (!DrasselSpace::CLZ4DecompressorP::Decompress(block.bytes.data, static_cast<int>(block.length), out,
                                                             outLength))
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
