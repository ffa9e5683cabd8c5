// LZ4 raw blocks (no frame header, no checksum) through liblz4.
//
// Static and thread-safe. No call ever reads outside [src, src + srcSize)
// or writes outside [dst, dst + dstCapacity).
#pragma once

#include "grabsystem/grabsystem_export.h"

namespace DrasselSpace {

class GRABSYSTEM_EXPORT CLZ4CompressorP {
public:
    // Largest block CompressRaw can produce for `inputSize` bytes; 0 for a
    // size LZ4 cannot take (negative or above about 2 GB).
    static int GetCompressBound(int inputSize);

    // Compresses one block; `level` is the fast compressor's acceleration
    // (3 is what the arm files use). Returns the block's length, or 0 when
    // the arguments are bad or the block does not fit in dstCapacity.
    static int CompressRaw(const unsigned char* src, int srcSize, unsigned char* dst, int dstCapacity, int level);
};

class GRABSYSTEM_EXPORT CLZ4DecompressorP {
public:
    // Decodes one block. Returns the decoded length, or 0 for a damaged
    // block or one that decodes to more than dstCapacity.
    static int DecompressRaw(const unsigned char* src, int srcSize, unsigned char* dst, int dstCapacity);

    // Decodes one block into a buffer it allocates with new[] (the caller
    // frees it with delete[]) of exactly the decoded size, found first by
    // walking the block's sequences. False, with `dst` null and `dstLength`
    // 0, for a damaged block.
    static bool Decompress(const unsigned char* src, int srcLength, unsigned char*& dst, int& dstLength);

    // The decoded size of a block, or -1 when it is not a valid block.
    static long long DecodedSize(const unsigned char* src, int srcLength);

    // `size` as the int capacity a caller hands over when it passes a
    // buffer's size_t size where the call takes an int: its low 32 bits,
    // two's complement, so 2^31 bytes and more come out negative (or 0),
    // which DecompressRaw refuses. The same on every compiler.
    static int CapacityOf(unsigned long long size);
};

}  // namespace DrasselSpace
