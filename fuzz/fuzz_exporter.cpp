// The package exporter on one file and on a list of two.
#include "fuzz_common.h"
#include "grabsystem/debug_package/debug_package_exporter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = grabsys_fuzz::WriteInput("any.dbg", data, size);
    GrabSystem::CDebugPackageExporterP exporter;
    exporter.ExprotPackage({path});
    exporter.ExprotPackage({path, path});
    grabsys_fuzz::Clean("D");
    return 0;
}
