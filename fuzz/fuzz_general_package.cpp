// General packages: load (which writes the project file), then import by
// both entry points.
#include "fuzz_common.h"
#include "grabsystem/debug_package/debug_package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (grabsys_fuzz::GeneralPackageTooLarge(data, size)) return 0;
    const std::string path = grabsys_fuzz::WriteInput("general.dbg", data, size);
    std::filesystem::create_directories(grabsys_fuzz::Scratch() + "/D/vormex");
    GrabSystem::CDebugPackageP pkg;
    pkg.LoadDebugPackage(path);
    pkg.ImportDebugImg();
    pkg.ImportDebugImg(1);
    grabsys_fuzz::Clean("D/ImgTest");
    return 0;
}
