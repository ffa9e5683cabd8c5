// Image packages: load, then export.
#include "fuzz_common.h"
#include "grabsystem/debug_package/debug_img_package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (grabsys_fuzz::ImagePackageTooLarge(data, size)) return 0;
    const std::string path = grabsys_fuzz::WriteInput("image.dbg", data, size);
    GrabSystem::CDebugImgPackageP pkg;
    if (pkg.LoadDebugPackage(path)) pkg.ExportDebugImg(1);
    grabsys_fuzz::Clean("D");
    return 0;
}
