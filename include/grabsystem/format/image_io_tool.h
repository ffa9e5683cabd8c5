// The toolkit library's BMP files: SaveBMP and LoadBMP over paths, DecodeBMP
// over bytes already in memory. The byte layout, and what the reader takes
// and refuses, is the BMP codec's (bmp.h).
#pragma once

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace platform {
class Env;
}
}  // namespace GrabSystem

namespace DrasselSpace {

// The pixel format of a BMP, as its channel count.
enum ePixelFormatP : int {
    ePixelFormatUnknown = 0,
    ePixelFormatGray8 = 1,
    ePixelFormatBGR24 = 3,
    ePixelFormatBGRA32 = 4,
};

class GRABSYSTEM_EXPORT ImageIOToolP {
public:
    // Writes width x height pixels of `format` channels through `env` (the
    // default Env when null). False for a null path or pixels, a geometry or
    // format that PixelBytesRead refuses, or a failed write.
    static bool SaveBMP(const char* path, unsigned char* pixels, unsigned width, unsigned height,
                        ePixelFormatP format, GrabSystem::platform::Env* env = nullptr);

    // The bytes of `pixels` that SaveBMP reads for this geometry: width x
    // height x channels; 0 when it refuses the geometry (a side of 0 or
    // beyond 65536, or a file beyond 4 GiB) or the format, and reads nothing.
    static unsigned long long PixelBytesRead(unsigned width, unsigned height, ePixelFormatP format);

    // Decodes a BMP into a buffer allocated with new[] (the caller frees it
    // with delete[]). On failure returns false and leaves `pixels` null and
    // the sizes and format 0.
    static bool LoadBMP(const char* path, unsigned char*& pixels, unsigned& width, unsigned& height,
                        ePixelFormatP& format, GrabSystem::platform::Env* env = nullptr);

    // The same decoder over bytes already in memory.
    static bool DecodeBMP(const unsigned char* file, unsigned long long fileSize, unsigned char*& pixels,
                          unsigned& width, unsigned& height, ePixelFormatP& format);
};

}  // namespace DrasselSpace
