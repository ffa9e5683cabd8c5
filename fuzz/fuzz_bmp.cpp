// BMP decoding, from memory and through the image kinds that read BMPs.
#include "fuzz_common.h"
#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    unsigned char* pixels = nullptr;
    unsigned w = 0, h = 0;
    DrasselSpace::ePixelFormatP format{};
    // The decoder in memory.
    if (DrasselSpace::ImageIOToolP::DecodeBMP(data, size, pixels, w, h, format)) delete[] pixels;
    // An information block naming the raw format sends the file to the raw reader.
    if (grabsys_fuzz::RawImageTooLarge(data, size)) return 0;
    grabsys_fuzz::Files files;
    const std::string path = files.Put("in.bmp", data, size);
    GrabSystem::CImg8P img;
    img.SetEnv(files.Env());
    img.LoadFile(path.c_str());
    GrabSystem::CImgMaskP mask;
    mask.SetEnv(files.Env());
    mask.LoadFile(path.c_str());
    return 0;
}
