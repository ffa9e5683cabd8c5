// The allocating LZ4 decoder and its size walk.
#include <memory>

#include "fuzz_common.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 24)) return 0;
    unsigned char* out = nullptr;
    int length = 0;
    if (DrasselSpace::CLZ4DecompressorP::Decompress(data, static_cast<int>(size), out, length)) {
        std::unique_ptr<unsigned char[]> owned(out);
        if (DrasselSpace::CLZ4DecompressorP::DecodedSize(data, static_cast<int>(size)) != length) __builtin_trap();
    }
    return 0;
}
