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
    const std::string path = grabsys_fuzz::WriteInput("general.dbg", data, size);
    GrabSystem::capture::PackageContent content;
    std::string error;
    GrabSystem::capture::ReadPackage(path, content, error);
    std::filesystem::create_directories(grabsys_fuzz::Scratch() + "/D/vormex");
    GrabSystem::CDebugPackageP pkg;
    pkg.LoadDebugPackage(path);
    pkg.ImportDebugImg();
    pkg.ImportDebugImg(1);
    grabsys_fuzz::Clean("D/ImgTest");
    return 0;
}
