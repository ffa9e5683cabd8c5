// Float and double raw files: the header decoded in memory, then loaded
// (and a float image rendered) by the image kinds.
#include "fuzz_common.h"
#include "grabsystem/format/value_raw.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const GrabSystem::format::ValueRawView view = GrabSystem::format::DecodeValueRaw(grabsys_fuzz::Input(data, size));
    const uint32_t w = view.width, h = view.height, ch = view.channels;
    // The image sizes itself by the header; the float rendering takes a
    // byte and a padded float per value of a one-channel image.
    if (grabsys_fuzz::ImageBytes(w, h, ch, 64) > grabsys_fuzz::kMaxBytes ||
        grabsys_fuzz::ImageBytes(w, h, ch, 32) > grabsys_fuzz::kMaxBytes ||
        ((ch & 0xFF) == 1 && uint64_t{w} * h * 5 > grabsys_fuzz::kMaxBytes))
        return 0;
    grabsys_fuzz::Files files;
    const std::string path = files.Put("values.fraw", data, size);
    GrabSystem::CImgFloatP f;
    f.SetEnv(files.Env());
    if (f.LoadFromRaw(path)) f.SaveBmp("render.bmp");
    GrabSystem::CImgDoubleP d;
    d.SetEnv(files.Env());
    d.LoadFromRaw(path);
    return 0;
}
