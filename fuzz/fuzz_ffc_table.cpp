// Flat-field table streams, read one after another.
#include "fuzz_common.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = grabsys_fuzz::WriteInput("ffc.bin", data, size);
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return 0;
    for (int i = 0; i < 4; ++i) {
        // A table is sized by its raw part's geometry, at the depth its
        // block names (or its own 16 bits): read both ahead, then rewind.
        const long at = std::ftell(f);
        VormexDataStructure::CImgInfo block;
        VormexDataStructure::ImgSize geometry;
        unsigned char version[2];
        const bool ahead = block.Extract(f, true) && std::fread(version, 1, 2, f) == 2 && geometry.Extract(f);
        std::fseek(f, at, SEEK_SET);
        if (ahead) {
            const uint32_t w = geometry.GetWidth(), h = geometry.GetHeight(), ch = geometry.GetChannels();
            if (grabsys_fuzz::ImageBytes(w, h, ch, block.size.GetBitPerChannel()) > grabsys_fuzz::kMaxBytes ||
                grabsys_fuzz::ImageBytes(w, h, ch, 16) > grabsys_fuzz::kMaxBytes)
                break;
        }
        GrabSystem::CFFCTableP table;
        if (!table.Extract(f)) break;
    }
    std::fclose(f);
    return 0;
}
