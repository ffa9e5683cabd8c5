// Flat-field table streams, read one after another.
#include "fuzz_common.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = grabsys_fuzz::WriteInput("ffc.bin", data, size);
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return 0;
    for (int i = 0; i < 4; ++i) {
        GrabSystem::CFFCTableP table;
        if (!table.Extract(f)) break;
    }
    std::fclose(f);
    return 0;
}
