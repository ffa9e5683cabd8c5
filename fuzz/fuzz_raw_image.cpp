// Raw image files, loaded through the extension and the info block.
#include "fuzz_common.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    GrabSystem::format::RawImageView view;
    GrabSystem::format::DecodeRawImage(grabsys_fuzz::Input(data, size), view);
    if (grabsys_fuzz::RawImageTooLarge(data, size)) return 0;
    grabsys_fuzz::Files files;
    const std::string path = files.Put("in.raw", data, size);
    GrabSystem::CImg8P img8;
    img8.SetEnv(files.Env());
    img8.LoadFile(path.c_str());
    GrabSystem::CImg16P img16;
    img16.SetEnv(files.Env());
    img16.LoadFile(path.c_str());
    GrabSystem::CImgMaskP mask;
    mask.SetEnv(files.Env());
    mask.LoadFile(path.c_str());
    return 0;
}
