// The sheet of a file, chosen by what the file is (capture/file_kind.h).
#include <memory>

#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/capture/file_kind.h"
#include "grabsystem/preview/arm_sheet.h"
#include "grabsystem/preview/image_sheet.h"
#include "grabsystem/preview/layout.h"
#include "grabsystem/preview/package_sheet.h"

namespace GrabSystem {
namespace preview {

namespace {

// The sheet of the file at `path`; with `imagesOnly`, of an image file only.
Status FileSheet(const std::string& path, const SheetOptions& options, Sheet& sheet, platform::Env* env,
                 bool imagesOnly) {
    env = platform::Env::Or(env);
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument(path, error);
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = env->ReadFile(path, data, size);
    if (!read.ok()) return read;
    const format::Bytes file(data.get(), static_cast<size_t>(size));
    const capture::FileKind kind = capture::IdentifyFile(path, file);
    const bool image = kind == capture::FileKind::kBmpImage || kind == capture::FileKind::kRawImage ||
                       kind == capture::FileKind::kInfoImage || kind == capture::FileKind::kFloatRaw ||
                       kind == capture::FileKind::kDoubleRaw;
    if (image) return ImageSheet(path, file, kind, options, sheet, env);
    if (imagesOnly) return Status::Corruption(path, "not a raw, BMP, float raw or double raw image");
    if (kind == capture::FileKind::kArmView) {
        capture::ArmViewContent view;
        const Status decoded = capture::DecodeArmView(file, view);
        if (!decoded.ok()) return Status::Corruption(path, decoded.cause());
        data.reset();
        const Status shown = RenderArmViewSheet(view, ViewOfPath(path), options, sheet);
        return shown.ok() ? shown : Status::Corruption(path, shown.cause());
    }
    if (kind == capture::FileKind::kImagePackage || kind == capture::FileKind::kGeneralPackage) {
        data.reset();
        capture::PackageContent package;
        const Status loaded = capture::ReadPackage(path, package, env);
        if (!loaded.ok()) return loaded;
        return PackageSheet(package, options, sheet, error) ? Status::OK() : Status::Corruption(path, error);
    }
    return Status::Corruption(path,
                              "not a file of this system (arm view, debug package, raw, BMP, float or double raw image)");
}

}  // namespace

Status RenderFileSheet(const std::string& path, const SheetOptions& options, Sheet& sheet, platform::Env* env) {
    return FileSheet(path, options, sheet, env, false);
}

Status RenderImageSheet(const std::string& path, const SheetOptions& options, Sheet& sheet, platform::Env* env) {
    return FileSheet(path, options, sheet, env, true);
}

}  // namespace preview
}  // namespace GrabSystem
