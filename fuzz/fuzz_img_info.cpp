// The information block: from the end of a file and as a stream.
#include "fuzz_common.h"
#include "grabsystem/format/data_structure.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = grabsys_fuzz::WriteInput("info.bin", data, size);
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return 0;
    VormexDataStructure::CImgInfo::HasCImgInfo(f);
    VormexDataStructure::CImgInfo::ExtractFileType(f);
    VormexDataStructure::CImgInfo info;
    info.Extract(f, false);
    std::fseek(f, 0, SEEK_SET);
    info.Extract(f, true);
    std::fclose(f);
    return 0;
}
