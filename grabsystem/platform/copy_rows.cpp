#include "grabsystem/platform/copy_rows.h"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define GRABSYS_STREAMING_STORES 1
#endif

namespace GrabSystem {
namespace platform {

namespace {

// Frames from here on leave the caches alone; below it the consumer that
// reads the frame next finds it cached.
constexpr size_t kStreamingBytes = size_t{4} << 20;

void CopyRowsCached(unsigned char* dst, const unsigned char* src, size_t rowBytes, size_t rows, size_t srcStride) {
    for (size_t row = 0; row < rows; ++row, dst += rowBytes, src += srcStride) std::memcpy(dst, src, rowBytes);
}

#ifdef GRABSYS_STREAMING_STORES
void CopyRowsStreaming(unsigned char* dst, const unsigned char* src, size_t rowBytes, size_t rows, size_t srcStride) {
    for (size_t row = 0; row < rows; ++row, dst += rowBytes, src += srcStride) {
        // Up to the destination's next 16-byte boundary, then whole aligned
        // 16-byte stores, then the tail.
        size_t head = (16 - (reinterpret_cast<uintptr_t>(dst) & 15)) & 15;
        if (head > rowBytes) head = rowBytes;
        std::memcpy(dst, src, head);
        size_t i = head;
        for (; i + 16 <= rowBytes; i += 16)
            _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
        std::memcpy(dst + i, src + i, rowBytes - i);
    }
    // The streamed lines are ordered before whatever the caller does next
    // (unlocking the pool, which hands the frame to a consumer).
    _mm_sfence();
}
#endif

}  // namespace

void CopyRows(void* dst, const void* src, size_t rowBytes, size_t rows, size_t srcStride) {
    auto* to = static_cast<unsigned char*>(dst);
    const auto* from = static_cast<const unsigned char*>(src);
#ifdef GRABSYS_STREAMING_STORES
    if (rowBytes >= 64 && rows != 0 && rowBytes * rows >= kStreamingBytes) {
        CopyRowsStreaming(to, from, rowBytes, rows, srcStride);
        return;
    }
#endif
    CopyRowsCached(to, from, rowBytes, rows, srcStride);
}

}  // namespace platform
}  // namespace GrabSystem
