#include "grabsystem/platform/toolkit/lz4_tool.h"

#include <lz4.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

namespace DrasselSpace {

int CLZ4CompressorP::GetCompressBound(int inputSize) { return LZ4_compressBound(inputSize); }

int CLZ4CompressorP::CompressRaw(const unsigned char* src, int srcSize, unsigned char* dst, int dstCapacity,
                                 int level) {
    static const unsigned char kEmpty = 0;
    if (src == nullptr && srcSize == 0) src = &kEmpty;
    if (src == nullptr || dst == nullptr || srcSize < 0 || dstCapacity <= 0) return 0;
    const int n = LZ4_compress_fast(reinterpret_cast<const char*>(src), reinterpret_cast<char*>(dst), srcSize,
                                    dstCapacity, level < 1 ? 1 : level);
    return n > 0 ? n : 0;
}

int CLZ4DecompressorP::DecompressRaw(const unsigned char* src, int srcSize, unsigned char* dst, int dstCapacity) {
    if (src == nullptr || dst == nullptr || srcSize <= 0 || dstCapacity < 0) return 0;
    const int n = LZ4_decompress_safe(reinterpret_cast<const char*>(src), reinterpret_cast<char*>(dst), srcSize,
                                      dstCapacity);
    return n > 0 ? n : 0;
}

int CLZ4DecompressorP::CapacityOf(unsigned long long size) {
    // Converting a value above INT_MAX to int is implementation-defined
    // before C++20; int32_t's bytes are two's complement by definition.
    const auto low = static_cast<uint32_t>(size);
    int32_t capacity = 0;
    std::memcpy(&capacity, &low, sizeof capacity);
    return capacity;
}

long long CLZ4DecompressorP::DecodedSize(const unsigned char* src, int srcLength) {
    if (src == nullptr || srcLength <= 0) return -1;
    const unsigned char* p = src;
    const unsigned char* const end = src + srcLength;
    long long produced = 0;
    // Reads an LZ4 length extension: bytes of 255 continue, the first other
    // byte ends it.
    auto extend = [&](long long& length) {
        for (;;) {
            if (p >= end) return false;
            const unsigned char b = *p++;
            length += b;
            if (length > INT_MAX) return false;
            if (b != 255) return true;
        }
    };
    for (;;) {
        if (p >= end) return -1;
        const unsigned char token = *p++;
        long long literals = token >> 4;
        if (literals == 15 && !extend(literals)) return -1;
        if (literals > end - p) return -1;
        p += literals;
        produced += literals;
        if (p == end) break;  // the last sequence holds literals only
        if (end - p < 2) return -1;
        const unsigned offset = p[0] | (p[1] << 8);
        p += 2;
        if (offset == 0 || offset > produced) return -1;
        long long match = token & 15;
        if (match == 15 && !extend(match)) return -1;
        produced += match + 4;
        if (produced > INT_MAX) return -1;
    }
    return produced;
}

bool CLZ4DecompressorP::Decompress(const unsigned char* src, int srcLength, unsigned char*& dst, int& dstLength) {
    dst = nullptr;
    dstLength = 0;
    const long long size = DecodedSize(src, srcLength);
    if (size < 0) return false;
    auto* out = new (std::nothrow) unsigned char[size == 0 ? 1 : static_cast<size_t>(size)];
    if (out == nullptr) return false;
    const int n = size == 0 ? 0 : DecompressRaw(src, srcLength, out, static_cast<int>(size));
    if (n != size) {
        delete[] out;
        return false;
    }
    dst = out;
    dstLength = n;
    return true;
}

}  // namespace DrasselSpace
