#include "grabsystem/capture/describe.h"

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/format/arm_view.h"
#include "grabsystem/format/bmp.h"
#include "grabsystem/format/info_block.h"
#include "grabsystem/format/package.h"
#include "grabsystem/format/raw_image.h"
#include "grabsystem/format/value_raw.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace GrabSystem {
namespace capture {

using VormexDataStructure::CImgInfo;

void FileDescription::Number(const std::string& key, double value) { fields.push_back({key, false, {}, value}); }

void FileDescription::Text(const std::string& key, const std::string& value) { fields.push_back({key, true, value, 0}); }

namespace {

// The field `key` as "yes", or "no: " and why; a "no" is the file's damage.
void YesOr(FileDescription& d, const char* key, bool yes, const std::string& why) {
    d.Text(key, yes ? "yes" : "no: " + why);
    if (!yes && d.damage.empty()) d.damage = why;
}

void DescribeInfo(const CImgInfo& info, FileDescription& d) {
    d.Number("width", info.size.GetWidth());
    d.Number("height", info.size.GetHeight());
    d.Number("channels", info.size.GetChannels());
    d.Number("bits_per_channel", info.size.GetBitPerChannel());
    d.Number("pixel_bytes", static_cast<double>(info.size.GetByteSize()));
    d.Text("file_format", ImageFormatName(info.fileFormat));
    d.Number("memory_mode", info.memMode);
    d.Number("camera", info.camIdx);
    d.Number("frame_attribute", info.frameAttr);
    d.Number("resolution_x", info.resolution.dX);
    d.Number("resolution_y", info.resolution.dY);
    d.Number("resolution_z", info.resolution.dZ);
    d.Number("processing_steps", static_cast<double>(info.procLog.Size()));
}

format::Status DescribeArm(format::Bytes file, FileDescription& d) {
    format::ArmViewSummary s;
    const format::Status status = format::SummarizeArmView(file, s);
    if (status != format::Status::kOk) return status;
    const OneViewArmImageDataHeader& h = s.header;
    d.Text("type", "arm view (.armraw)");
    d.Number("version", h.version);
    d.Number("sin_frames", h.sinFrameCount);
    d.Number("white_frames", h.whiteFrameCount);
    d.Number("width", h.width);
    d.Number("height", h.height);
    d.Number("cameras", h.camCount);
    d.Number("sin_dim_a", h.sinDimA);
    d.Number("sin_dim_b", h.sinDimB);
    d.Number("sin_dim_c", h.sinDimC);
    for (const format::ArmRecordView& record : s.records)
        d.records.push_back({{"kind", record.kind}, {"lz4_bytes", record.length}});
    d.Number("file_bytes", static_cast<double>(file.size));
    YesOr(d, "complete", s.complete, "the records do not end where the file does");
    const double frames = static_cast<double>(h.sinFrameCount) + h.whiteFrameCount;
    if (s.compressedBytes != 0)
        d.Number("compression_ratio", frames * h.width * h.height / static_cast<double>(s.compressedBytes));
    return format::Status::kOk;
}

format::Status DescribeImagePackage(format::Bytes file, FileDescription& d) {
    format::ImagePackageSummary s;
    const format::Status status = format::SummarizeImagePackage(file, s);
    if (status != format::Status::kOk) return status;
    d.Text("type", "image debug package");
    d.Number("version", s.head.version);
    d.Number("jump_index", s.head.jumpIdx);
    d.Number("data_bytes", static_cast<double>(s.dataBytes));
    for (const CDebugImgPackageInfoP& p : s.records)
        d.records.push_back(
            {{"width", p.Width}, {"height", p.Height}, {"frames", p.FrameCount}, {"group", p.GroupIdx}, {"camera", p.CamIdx}});
    return format::Status::kOk;
}

format::Status DescribeGeneralPackage(format::Bytes file, FileDescription& d) {
    format::GeneralPackageSummary s;
    const format::Status status = format::SummarizeGeneralPackage(file, s);
    if (status != format::Status::kOk) return status;
    // The blocks are walked over a decrypted copy of the data area.
    std::vector<unsigned char> plain(s.data.data, s.data.data + s.data.size);
    DrasselSpace::FileToolP::EncryptData(plain.data(), plain.size(),
                                         reinterpret_cast<const unsigned char*>(CDebugImgPackageP::kKey),
                                         DrasselSpace::FileToolP::kKeyLength);
    const format::PackageBlocksSummary blocks = format::SummarizePackageBlocks(format::Bytes(plain.data(), plain.size()));
    const bool project = s.head.flag == 1;
    d.Text("type", "general debug package");
    d.Number("version", s.head.version);
    d.Text("project_file", project ? "yes" : "no");
    if (project) d.Number("project_file_bytes", blocks.firstLength);
    d.Number("frame_blocks", static_cast<double>(blocks.blocks - (project && blocks.blocks ? 1 : 0)));
    YesOr(d, "complete", blocks.complete, "a block runs past the end of the file");
    for (const CDebugPackageInfoP& p : s.records)
        d.records.push_back({{"jump", p.JumpIdx}, {"width", p.Width}, {"height", p.Height}, {"frames", p.FrameCount},
                             {"group", p.GroupIdx}, {"camera", p.CamIdx}});
    return format::Status::kOk;
}

// A BMP, a raw image, or any other image that ends with an information
// block.
format::Status DescribeImageFile(format::Bytes file, FileDescription& d) {
    const bool bmp = format::HasBmpSignature(file);
    format::RawImageView raw;
    const format::Status rawStatus = bmp ? format::Status::kBadValue : format::DecodeRawImage(file, raw);
    const bool isRaw = rawStatus == format::Status::kOk;
    CImgInfo info;
    const bool found = isRaw ? raw.hasInfo : format::DecodeInfoBlockAtEnd(file, info) == format::Status::kOk;
    if (isRaw) info = raw.info;
    if (!found && !bmp && !isRaw) return rawStatus;
    d.Text("type", bmp ? "BMP image" : isRaw ? "raw image" : std::string(ImageFormatName(info.fileFormat)) + " image");
    d.Text("information_block", found ? "yes" : "no");
    if (found) DescribeInfo(info, d);
    if (isRaw) YesOr(d, "complete", raw.complete, "the pixels end early");
    if (bmp && !found) {
        format::BmpLayout layout;
        const format::Status status = format::DecodeBmpLayout(file, layout);
        YesOr(d, "readable", status == format::Status::kOk, format::Describe(status));
        d.Number("width", layout.width);
        d.Number("height", layout.height);
        d.Number("channels", layout.channels);
    }
    return format::Status::kOk;
}

format::Status DescribeValueRaw(format::Bytes file, FileDescription& d, uint32_t valueBytes) {
    const format::ValueRawView v = format::DecodeValueRaw(file);
    d.Text("type", valueBytes == 4 ? "float raw image" : "double raw image");
    d.Number("version", v.version);
    d.Number("width", v.width);
    d.Number("height", v.height);
    d.Number("channels", v.channels);
    d.Number("value_bytes", valueBytes);
    d.Number("resolution_y", v.resolutionY);
    d.Number("resolution_z", v.resolutionZ);
    return format::Status::kOk;
}

}  // namespace

Status DescribeFile(const std::string& path, format::Bytes file, FileDescription& d) {
    d = FileDescription();
    d.kind = IdentifyFile(path, file);
    format::Status status = format::Status::kOk;
    switch (d.kind) {
        case FileKind::kArmView: status = DescribeArm(file, d); break;
        case FileKind::kImagePackage: status = DescribeImagePackage(file, d); break;
        case FileKind::kGeneralPackage: status = DescribeGeneralPackage(file, d); break;
        case FileKind::kBmpImage:
        case FileKind::kRawImage:
        case FileKind::kInfoImage: status = DescribeImageFile(file, d); break;
        case FileKind::kFloatRaw: status = DescribeValueRaw(file, d, 4); break;
        case FileKind::kDoubleRaw: status = DescribeValueRaw(file, d, 8); break;
        default:
            return Status::Corruption(
                path, "not a file of this system (arm view, debug package, raw, BMP, float or double raw image)");
    }
    if (status == format::Status::kOk) return Status::OK();
    return Status::Corruption(path, std::string(FileKindName(d.kind)) + ": " + format::Describe(status));
}

}  // namespace capture
}  // namespace GrabSystem
