#include "grabsystem/format/package.h"

#include <utility>

namespace GrabSystem {
namespace format {

std::string ExportFolder(uint32_t camIdx, const std::string& suffix) {
    return std::string(kExportTreeRoot) + "//Cam" + std::to_string(camIdx) + suffix + "//";
}

std::string ExportFramePath(const std::string& folder, uint32_t number) {
    return folder + "img" + std::to_string(number) + ".bmp";
}

namespace {
// The image package is read word by word, and a word the file does not hold
// whole reads as 0, as its reader has always delivered.
uint32_t WholeWord(Reader& r) {
    if (r.Remaining() >= 4) return r.U32();
    r.Skip(4);
    return 0;
}
}  // namespace

ImagePackageHead DecodeImagePackageHead(Bytes file) {
    Reader r(file);
    ImagePackageHead head;
    head.version = WholeWord(r);
    head.count = WholeWord(r);
    head.bytes = kImagePackageHeadBytes - 4;
    if (head.version != 1) {
        head.jumpIdx = WholeWord(r);
        head.bytes = kImagePackageHeadBytes;
    }
    return head;
}

CDebugImgPackageInfoP DecodeImagePackageRecord(Bytes bytes) {
    Reader r(bytes);
    CDebugImgPackageInfoP info;
    info.Width = WholeWord(r);
    info.Height = WholeWord(r);
    info.FrameCount = WholeWord(r);
    info.GroupIdx = WholeWord(r);
    info.CamIdx = WholeWord(r);
    return info;
}

void EncodeImagePackageHead(Writer& w, uint32_t version, uint32_t count, uint32_t jumpIdx) {
    w.U32(version);
    w.U32(count);
    w.U32(jumpIdx);
}

void EncodeImagePackageRecord(Writer& w, const CDebugImgPackageInfoP& info) {
    w.U32(info.Width);
    w.U32(info.Height);
    w.U32(info.FrameCount);
    w.U32(info.GroupIdx);
    w.U32(info.CamIdx);
}

uint32_t ImagePackageDataBytes(const std::vector<CDebugImgPackageInfoP>& infos) {
    uint32_t size = 0;
    for (const CDebugImgPackageInfoP& info : infos) size += info.Width * info.Height * info.FrameCount;
    return size;
}

GeneralPackageHead DecodeGeneralPackageHead(Bytes file) {
    Reader r(file);
    GeneralPackageHead head;
    head.version = r.U32();
    head.flag = r.U32();
    head.count = r.U32();
    return head;
}

CDebugPackageInfoP DecodeGeneralPackageRecord(Bytes bytes) {
    Reader r(bytes);
    CDebugPackageInfoP info;
    info.JumpIdx = r.U32();
    info.Width = r.U32();
    info.Height = r.U32();
    info.FrameCount = r.U32();
    info.GroupIdx = r.U32();
    info.CamIdx = r.U32();
    return info;
}

void EncodeGeneralPackageHead(Writer& w, uint32_t version, uint32_t flag, uint32_t count) {
    w.U32(version);
    w.U32(flag);
    w.U32(count);
}

void EncodeGeneralPackageRecord(Writer& w, const CDebugPackageInfoP& info) {
    w.U32(info.JumpIdx);
    w.U32(info.Width);
    w.U32(info.Height);
    w.U32(info.FrameCount);
    w.U32(info.GroupIdx);
    w.U32(info.CamIdx);
}

uint64_t GeneralPackageDataOffset(uint32_t count) { return kGeneralPackageHeadBytes + uint64_t{count} * kGeneralPackageRecordBytes; }

PackageBlock DecodePackageBlock(Bytes data, uint64_t offset) {
    Reader r(data.Sub(offset));
    PackageBlock block;
    block.length = r.U32();
    block.bytes = r.Take(block.length);
    block.complete = !r.Short();
    return block;
}

void EncodePackageBlockLength(Writer& w, uint32_t length) { w.U32(length); }

uint64_t ImagePackageDataOffset(uint32_t count) {
    return kImagePackageHeadBytes + uint64_t{count} * kImagePackageRecordBytes;
}

bool HoldsPackageHead(Bytes head) {
    const ImagePackageHead image = DecodeImagePackageHead(head);
    return head.size >= (IsImagePackageVersion(image.version) ? image.bytes : kGeneralPackageHeadBytes);
}

Status SummarizeImagePackage(Bytes file, ImagePackageSummary& summary) {
    ImagePackageSummary read;
    read.head = DecodeImagePackageHead(file);
    if (file.size < read.head.bytes) return Status::kTruncated;
    if (!IsImagePackageVersion(read.head.version)) return Status::kBadVersion;
    if (read.head.count == 0) return Status::kBadValue;
    const uint64_t dataAt = read.head.bytes + uint64_t{read.head.count} * kImagePackageRecordBytes;
    if (dataAt > file.size) return Status::kTruncated;
    const uint64_t dataBytes = file.size - dataAt;
    read.records.reserve(read.head.count);
    for (uint32_t i = 0; i < read.head.count; ++i) {
        const CDebugImgPackageInfoP info =
            DecodeImagePackageRecord(file.Sub(read.head.bytes + uint64_t{i} * kImagePackageRecordBytes));
        // Each factor is below 2^32: a run is checked against what is left
        // before the sum can wrap.
        const uint64_t frame = uint64_t{info.Width} * info.Height;
        if (info.FrameCount != 0 && frame > (dataBytes - read.dataBytes) / info.FrameCount) return Status::kTruncated;
        read.dataBytes += frame * info.FrameCount;
        read.records.push_back(info);
    }
    if (read.dataBytes != dataBytes) return Status::kBadValue;
    summary = std::move(read);
    return Status::kOk;
}

Status SummarizeGeneralPackage(Bytes file, GeneralPackageSummary& summary) {
    if (file.size < kGeneralPackageHeadBytes) return Status::kTruncated;
    GeneralPackageSummary read;
    read.head = DecodeGeneralPackageHead(file);
    if (read.head.version != kGeneralPackageVersion) return Status::kBadVersion;
    if (read.head.count == 0) return Status::kBadValue;
    const uint64_t dataAt = GeneralPackageDataOffset(read.head.count);
    if (dataAt > file.size) return Status::kTruncated;
    read.records.reserve(read.head.count);
    for (uint32_t i = 0; i < read.head.count; ++i)
        read.records.push_back(DecodeGeneralPackageRecord(
            file.Sub(kGeneralPackageHeadBytes + uint64_t{i} * kGeneralPackageRecordBytes)));
    read.data = file.Sub(dataAt);
    summary = std::move(read);
    return Status::kOk;
}

PackageBlocksSummary SummarizePackageBlocks(Bytes plain) {
    PackageBlocksSummary summary;
    uint64_t at = 0;
    while (at < plain.size) {
        const PackageBlock block = DecodePackageBlock(plain, at);
        if (!block.complete) break;
        if (summary.blocks++ == 0) summary.firstLength = block.length;
        at += kPackageBlockLengthBytes + uint64_t{block.length};
    }
    summary.complete = at == plain.size;
    return summary;
}

}  // namespace format
}  // namespace GrabSystem
