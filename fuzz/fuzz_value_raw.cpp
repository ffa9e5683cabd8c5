// Float and double raw files.
#include "fuzz_common.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = grabsys_fuzz::WriteInput("values.fraw", data, size);
    GrabSystem::CImgFloatP f;
    if (f.LoadFromRaw(path)) f.SaveBmp((grabsys_fuzz::Scratch() + "/render.bmp").c_str());
    GrabSystem::CImgDoubleP d;
    d.LoadFromRaw(path);
    return 0;
}
