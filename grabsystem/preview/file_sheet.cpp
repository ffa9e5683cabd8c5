// The sheet of any file of the system, chosen by what the file is
// (capture/file_kind.h).
#include <memory>

#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/capture/file_kind.h"
#include "grabsystem/preview/arm_sheet.h"
#include "grabsystem/preview/image_sheet.h"
#include "grabsystem/preview/layout.h"
#include "grabsystem/preview/package_sheet.h"

namespace GrabSystem {
namespace preview {

Status RenderFileSheet(const std::string& path, const SheetOptions& options, Sheet& sheet, platform::Env* env) {
    env = platform::Env::Or(env);
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument(path, error);
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = env->ReadFile(path, data, size);
    if (!read.ok()) return read;
    const format::Bytes file(data.get(), static_cast<size_t>(size));
    const capture::FileKind kind = capture::IdentifyFile(path, file);
    switch (kind) {
        case capture::FileKind::kArmView: {
            capture::ArmViewContent view;
            const Status decoded = capture::DecodeArmView(file, view);
            if (!decoded.ok()) return Status::Corruption(path, decoded.cause());
            data.reset();
            const Status shown = RenderArmViewSheet(view, ViewOfPath(path), options, sheet);
            return shown.ok() ? shown : Status::Corruption(path, shown.cause());
        }
        case capture::FileKind::kImagePackage:
        case capture::FileKind::kGeneralPackage: {
            data.reset();
            capture::PackageContent package;
            const Status loaded = capture::ReadPackage(path, package, env);
            if (!loaded.ok()) return loaded;
            return PackageSheet(package, options, sheet, error) ? Status::OK() : Status::Corruption(path, error);
        }
        case capture::FileKind::kUnknown:
            return Status::Corruption(
                path, "not a file of this system (arm view, debug package, raw, BMP, float or double raw image)");
        default:
            return ImageSheet(path, file, kind, options, sheet, env);
    }
}

}  // namespace preview
}  // namespace GrabSystem
