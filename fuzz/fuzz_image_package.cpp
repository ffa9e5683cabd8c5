// Image packages: described in memory, then loaded and exported.
#include "fuzz_common.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/format/package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace format = GrabSystem::format;
    format::ImagePackageSummary summary;
    if (format::SummarizeImagePackage(grabsys_fuzz::Input(data, size), summary) == format::Status::kOk &&
        summary.records.empty())
        __builtin_trap();  // a package of no runs is not one
    if (grabsys_fuzz::ImagePackageTooLarge(data, size)) return 0;
    grabsys_fuzz::Files files;
    const std::string path = files.Put("image.dbg", data, size);
    GrabSystem::capture::PackageContent content;
    GrabSystem::capture::ReadPackage(path, content, files.Env());
    GrabSystem::CDebugImgPackageP pkg;
    pkg.SetEnv(files.Env());
    if (pkg.LoadDebugPackage(path)) pkg.ExportDebugImg(1);
    return 0;
}
