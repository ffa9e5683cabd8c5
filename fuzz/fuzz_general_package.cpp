// General packages: load (which writes the project file), then import by
// both entry points.
#include "fuzz_common.h"
#include "grabsystem/debug_package/debug_package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = grabsys_fuzz::WriteInput("general.dbg", data, size);
    GrabSystem::CDebugPackageP pkg;
    pkg.LoadDebugPackage(path);
    pkg.ImportDebugImg();
    pkg.ImportDebugImg(1);
    grabsys_fuzz::Clean("D");
    return 0;
}
