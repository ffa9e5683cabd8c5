// The package exporter on one file and on a list of two.
#include "fuzz_common.h"
#include "grabsystem/debug_package/debug_package_exporter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The exporter takes the form from the first word, as the image
    // package's head has it.
    const uint32_t version = GrabSystem::format::DecodeImagePackageHead(grabsys_fuzz::Input(data, size)).version;
    const bool imageForm = version == 1 || version == 2;
    if (imageForm ? grabsys_fuzz::ImagePackageTooLarge(data, size) : grabsys_fuzz::GeneralPackageTooLarge(data, size))
        return 0;
    grabsys_fuzz::Files files;
    files.Env()->CreateDirectories("D:/vormex");
    const std::string path = files.Put("any.dbg", data, size);
    GrabSystem::CDebugPackageExporterP exporter;
    exporter.SetEnv(files.Env());
    exporter.ExprotPackage({path});
    exporter.ExprotPackage({path, path});
    return 0;
}
