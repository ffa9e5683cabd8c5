// General packages: load (which writes the project file), then import by
// both entry points.
#include "fuzz_common.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/debug_package/debug_package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (grabsys_fuzz::GeneralPackageTooLarge(data, size)) return 0;
    // The data area's blocks, decrypted, in memory.
    namespace format = GrabSystem::format;
    const format::Bytes file = grabsys_fuzz::Input(data, size);
    const format::Bytes tail = file.Sub(format::GeneralPackageDataOffset(format::DecodeGeneralPackageHead(file).count));
    std::vector<unsigned char> area(tail.data, tail.data + tail.size);
    DrasselSpace::FileToolP::EncryptData(area.data(), area.size(),
                                         reinterpret_cast<const unsigned char*>(GrabSystem::CDebugImgPackageP::kKey), 16);
    format::GeneralPackageSummary summary;
    format::SummarizeGeneralPackage(file, summary);
    const format::PackageBlocksSummary blocks = format::SummarizePackageBlocks(format::Bytes(area.data(), area.size()));
    if (blocks.blocks * format::kPackageBlockLengthBytes > area.size()) __builtin_trap();  // more blocks than room
    grabsys_fuzz::Files files;
    const std::string path = files.Put("general.dbg", data, size);
    GrabSystem::capture::PackageContent content;
    GrabSystem::capture::ReadPackage(path, content, files.Env());
    files.Env()->CreateDirectories("D:/vormex");
    GrabSystem::CDebugPackageP pkg;
    pkg.SetEnv(files.Env());
    pkg.LoadDebugPackage(path);
    pkg.ImportDebugImg();
    pkg.ImportDebugImg(1);
    return 0;
}
