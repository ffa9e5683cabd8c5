#include "grabsystem/capture/capture_reader.h"

#include <climits>
#include <new>

#include "grabsystem/capture/heads.h"
#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"

namespace GrabSystem {
namespace capture {
namespace {

using format::Bytes;

// LZ4 spends at least one byte on every 255 bytes of a match, so a block of
// n bytes never decodes to more than this: the bound that keeps a damaged
// size from taking memory its file cannot fill.
uint64_t MostDecodedFrom(uint64_t n) { return n * 255 + 64; }

std::unique_ptr<uint8_t[]> Allocate(uint64_t bytes, std::string& error) {
    if (bytes > SIZE_MAX) {
        error = "frames too large for this machine's memory";
        return nullptr;
    }
    std::unique_ptr<uint8_t[]> p(new (std::nothrow) uint8_t[bytes == 0 ? 1 : static_cast<size_t>(bytes)]);
    if (p == nullptr) error = "out of memory for " + std::to_string(bytes) + " bytes of frames";
    return p;
}

// One LZ4 block into exactly `outBytes` bytes.
bool Decompress(Bytes block, uint8_t* out, uint64_t outBytes, const std::string& what, std::string& error) {
    if (outBytes == 0) return true;
    if (outBytes > INT_MAX || block.size > INT_MAX) {
        error = what + " is too large for an LZ4 block";
        return false;
    }
    const int decoded = DrasselSpace::CLZ4DecompressorP::DecompressRaw(block.data, static_cast<int>(block.size), out,
                                                                        static_cast<int>(outBytes));
    if (decoded != static_cast<int>(outBytes)) {
        error = what + " does not decompress to its " + std::to_string(outBytes) + " bytes";
        return false;
    }
    return true;
}

// The file's bytes refused for `error`, named by `path`.
Status Damaged(const std::string& path, const std::string& error) { return Status::Corruption(path, error); }

bool DecodeArmViewBytes(Bytes file, ArmViewContent& view, std::string& error) {
    format::ArmViewSummary summary;
    const format::Status status = format::SummarizeArmView(file, summary);
    if (status != format::Status::kOk) {
        error = std::string("arm view: ") + format::Describe(status) + " header";
        return false;
    }
    const OneViewArmImageDataHeader& h = summary.header;
    const uint64_t frames = static_cast<uint64_t>(h.sinFrameCount) + h.whiteFrameCount;
    if (summary.records.size() != frames) {
        error = "arm view: the file ends after " + std::to_string(summary.records.size()) + " of its " +
                std::to_string(frames) + " records";
        return false;
    }
    if (!summary.complete) {
        error = "arm view: the records do not end where the file does";
        return false;
    }
    const uint64_t frameBytes = static_cast<uint64_t>(h.width) * h.height;
    for (size_t i = 0; i < summary.records.size(); ++i) {
        if (summary.records[i].kind != format::kArmRecordKind) {
            error = "arm view: record " + std::to_string(i) + " is of kind " + std::to_string(summary.records[i].kind);
            return false;
        }
        if (frameBytes > MostDecodedFrom(summary.records[i].length)) {
            error = "arm view: record " + std::to_string(i) + " is too short for a " + std::to_string(h.width) + " x " +
                    std::to_string(h.height) + " frame";
            return false;
        }
    }
    std::vector<int> cameras;
    if (!CamerasOf(h, cameras, error)) return false;

    std::unique_ptr<uint8_t[]> storage = Allocate(frames * frameBytes, error);
    if (storage == nullptr) return false;
    for (size_t i = 0; i < summary.records.size(); ++i) {
        if (!Decompress(summary.records[i].data, storage.get() + frameBytes * i, frameBytes,
                        "arm view: record " + std::to_string(i), error))
            return false;
    }

    view.header = h;
    view.cameras = std::move(cameras);
    view.recordLengths.clear();
    for (const format::ArmRecordView& record : summary.records) view.recordLengths.push_back(record.length);
    view.sin = FrameStack{h.width, h.height, h.sinFrameCount, storage.get()};
    view.white = FrameStack{h.width, h.height, h.whiteFrameCount, storage.get() + frameBytes * h.sinFrameCount};
    view.storage = std::move(storage);
    return true;
}

}  // namespace

Status DecodeArmView(Bytes file, ArmViewContent& view) {
    std::string error;
    return DecodeArmViewBytes(file, view, error) ? Status::OK() : Damaged("", error);
}

Status ReadArmView(const std::string& path, ArmViewContent& view, platform::Env* env) {
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = platform::Env::Or(env)->ReadFile(path, data, size);
    if (!read.ok()) return read;
    std::string error;
    if (!DecodeArmViewBytes(Bytes(data.get(), static_cast<size_t>(size)), view, error)) return Damaged(path, error);
    return Status::OK();
}

namespace {

const unsigned char* PackageKey() { return reinterpret_cast<const unsigned char*>(CDebugImgPackageP::kKey); }

bool ReadImagePackage(std::unique_ptr<uint8_t[]> data, uint64_t size, PackageContent& package, std::string& error) {
    format::ImagePackageSummary summary;
    const format::Status status = format::SummarizeImagePackage(Bytes(data.get(), static_cast<size_t>(size)), summary);
    if (status != format::Status::kOk) {
        error = std::string("image package: ") + format::Describe(status);
        return false;
    }
    const uint64_t offset = summary.head.bytes + summary.records.size() * format::kImagePackageRecordBytes;
    uint8_t* area = data.get() + offset;
    DrasselSpace::FileToolP::EncryptData(area, static_cast<size_t>(summary.dataBytes), PackageKey(),
                                         DrasselSpace::FileToolP::kKeyLength);
    std::vector<PackageRun> runs;
    for (size_t i = 0; i < summary.records.size(); ++i) {
        const CDebugImgPackageInfoP& r = summary.records[i];
        const uint64_t frameBytes = static_cast<uint64_t>(r.Width) * r.Height;
        const uint64_t start = static_cast<uint64_t>(r.FrameCount) * i * frameBytes;
        if (start + static_cast<uint64_t>(r.FrameCount) * frameBytes > summary.dataBytes) {
            error = "image package: run " + std::to_string(i) + " lies past the data area (runs of unequal sizes)";
            return false;
        }
        PackageRun run;
        run.info = CDebugPackageInfoP{summary.head.jumpIdx, r.Width, r.Height, r.FrameCount, r.CamIdx, r.GroupIdx};
        run.frames = FrameStack{r.Width, r.Height, r.FrameCount, area + start};
        runs.push_back(run);
    }
    package = PackageContent();
    package.version = summary.head.version;
    package.jumpIdx = summary.head.jumpIdx;
    package.runs = std::move(runs);
    package.file = std::move(data);
    return true;
}

bool ReadGeneralPackage(std::unique_ptr<uint8_t[]> data, uint64_t size, PackageContent& package,
                        std::string& error) {
    format::GeneralPackageSummary summary;
    const format::Status status =
        format::SummarizeGeneralPackage(Bytes(data.get(), static_cast<size_t>(size)), summary);
    if (status != format::Status::kOk) {
        error = std::string("general package: ") + format::Describe(status);
        return false;
    }
    uint8_t* area = data.get() + (summary.data.data - data.get());
    DrasselSpace::FileToolP::EncryptData(area, summary.data.size, PackageKey(), DrasselSpace::FileToolP::kKeyLength);
    const Bytes plain(area, summary.data.size);

    uint64_t at = 0;
    auto nextBlock = [&](const std::string& what, format::PackageBlock& block) {
        block = format::DecodePackageBlock(plain, at);
        if (!block.complete) {
            error = "general package: the data ends inside " + what;
            return false;
        }
        at += format::kPackageBlockLengthBytes + block.length;
        return true;
    };

    PackageContent result;
    result.general = true;
    result.version = summary.head.version;
    format::PackageBlock block;
    if (summary.head.flag == 1) {
        if (!nextBlock("the project file", block)) return false;
        result.projectFile = block.bytes;
        result.hasProjectFile = true;
    }
    uint64_t total = 0;
    for (const CDebugPackageInfoP& r : summary.records) total += static_cast<uint64_t>(r.Width) * r.Height * r.FrameCount;
    // Every frame needs a block of at least its length word.
    if (total != 0 && total > MostDecodedFrom(plain.size)) {
        error = "general package: the records claim more frames than the data can hold";
        return false;
    }
    std::unique_ptr<uint8_t[]> frames = Allocate(total, error);
    if (frames == nullptr) return false;
    uint64_t placed = 0;
    for (size_t i = 0; i < summary.records.size(); ++i) {
        const CDebugPackageInfoP& r = summary.records[i];
        const uint64_t frameBytes = static_cast<uint64_t>(r.Width) * r.Height;
        PackageRun run;
        run.info = r;
        run.frames = FrameStack{r.Width, r.Height, r.FrameCount, frames.get() + placed};
        for (uint32_t f = 0; f < r.FrameCount; ++f) {
            const std::string what = "frame " + std::to_string(f) + " of run " + std::to_string(i);
            if (!nextBlock(what, block)) return false;
            if (frameBytes > MostDecodedFrom(block.length)) {
                error = "general package: " + what + " is too short for its frame";
                return false;
            }
            if (!Decompress(block.bytes, frames.get() + placed, frameBytes, "general package: " + what, error))
                return false;
            placed += frameBytes;
        }
        result.runs.push_back(run);
    }
    if (at != plain.size) {
        error = "general package: " + std::to_string(plain.size - at) + " bytes after the last frame";
        return false;
    }
    result.file = std::move(data);
    result.frames = std::move(frames);
    package = std::move(result);
    return true;
}

}  // namespace

Status ReadPackage(const std::string& path, PackageContent& package, platform::Env* env) {
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = platform::Env::Or(env)->ReadFile(path, data, size);
    if (!read.ok()) return read;
    if (!format::HoldsPackageHead(Bytes(data.get(), static_cast<size_t>(size))))
        return Damaged(path, "package: shorter than its head");
    std::string error;
    const bool decoded = format::IsImagePackageVersion(format::GetU32(data.get()))
                             ? ReadImagePackage(std::move(data), size, package, error)
                             : ReadGeneralPackage(std::move(data), size, package, error);
    return decoded ? Status::OK() : Damaged(path, error);
}

}  // namespace capture
}  // namespace GrabSystem
