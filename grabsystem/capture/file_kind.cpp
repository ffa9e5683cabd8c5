#include "grabsystem/capture/file_kind.h"

#include "grabsystem/format/arm_view.h"
#include "grabsystem/format/bmp.h"
#include "grabsystem/format/info_block.h"
#include "grabsystem/format/package.h"
#include "grabsystem/format/raw_image.h"
#include "grabsystem/format/value_raw.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {
namespace capture {

using VormexDataStructure::CImgInfo;

uint32_t ValueRawBytes(format::Bytes file) {
    if (file.size < format::kValueRawHeaderBytes) return 0;
    const format::ValueRawView v = format::DecodeValueRaw(file);
    const uint64_t values = uint64_t{v.width} * v.height * v.channels;
    if (v.version != format::kValueRawVersion || values == 0) return 0;
    if (values * 4 == v.values.size) return 4;
    if (values * 8 == v.values.size) return 8;
    return 0;
}

FileKind IdentifyFile(const std::string& path, format::Bytes file) {
    const std::string extension = DrasselSpace::CWinHelper::GetFileExtension(path);
    const bool armName = extension == ".armraw";
    format::ArmViewSummary arm;
    const bool armHeader = format::SummarizeArmView(file, arm) == format::Status::kOk;
    if (armName && armHeader) return FileKind::kArmView;
    if (format::HasBmpSignature(file)) return FileKind::kBmpImage;
    format::RawImageView raw;
    if (format::DecodeRawImage(file, raw) == format::Status::kOk) return FileKind::kRawImage;
    CImgInfo block;
    if (format::DecodeInfoBlockAtEnd(file, block) == format::Status::kOk) return FileKind::kInfoImage;
    const uint32_t valueBytes = ValueRawBytes(file);
    if (valueBytes != 0) return valueBytes == 4 ? FileKind::kFloatRaw : FileKind::kDoubleRaw;
    format::ImagePackageSummary image;
    if (format::SummarizeImagePackage(file, image) == format::Status::kOk) return FileKind::kImagePackage;
    format::GeneralPackageSummary general;
    if (format::SummarizeGeneralPackage(file, general) == format::Status::kOk) return FileKind::kGeneralPackage;
    if (armHeader && arm.complete) return FileKind::kArmView;
    if (armName) return FileKind::kArmView;
    if (extension == ".raw" || extension == ".RAW") return FileKind::kRawImage;
    if (format::HoldsPackageHead(file)) {
        const uint32_t version = format::GetU32(file.data);
        if (format::IsImagePackageVersion(version)) return FileKind::kImagePackage;
        if (version == format::kGeneralPackageVersion) return FileKind::kGeneralPackage;
    }
    return armHeader ? FileKind::kArmView : FileKind::kUnknown;
}

const char* FileKindName(FileKind kind) {
    switch (kind) {
        case FileKind::kArmView: return "arm view";
        case FileKind::kImagePackage: return "image package";
        case FileKind::kGeneralPackage: return "general package";
        case FileKind::kBmpImage: return "BMP";
        case FileKind::kRawImage: return "raw";
        case FileKind::kInfoImage: return "image";
        case FileKind::kFloatRaw: return "float raw";
        case FileKind::kDoubleRaw: return "double raw";
        default: return "unknown";
    }
}

const char* ImageFormatName(VormexDataStructure::eImgFileFormat format) {
    switch (format) {
        case VormexDataStructure::eImgFmtRaw: return "raw";
        case VormexDataStructure::eImgFmtFFC: return "flat-field table";
        case VormexDataStructure::eImgFmtBmp: return "BMP";
        case VormexDataStructure::eImgFmtJpg: return "JPEG";
        default: return "unknown";
    }
}

}  // namespace capture
}  // namespace GrabSystem
