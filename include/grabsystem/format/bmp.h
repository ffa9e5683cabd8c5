// BMP files as this system writes and reads them. The writer makes standard
// uncompressed top-down BMPs (negative height, so rows go out in memory
// order): 8-bit grey with a grey palette for one channel, 24-bit for three,
// 32-bit for four. The reader takes uncompressed 8-bit (palette mapped to
// grey), 24-bit and 32-bit files in either row order. Pixels in memory are
// packed rows, top row first, channels interleaved in the file's order
// (B, G, R[, A]). Bytes after the pixel array (such as an information block)
// belong to no BMP field and are ignored.
//
// The reader checks every header field against the file before anything is
// sized: sides up to kBmpMaxSide, the pixel array and palette inside the
// file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/status.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace format {

constexpr size_t kBmpFileHeaderBytes = 14;
constexpr size_t kBmpInfoHeaderBytes = 40;
constexpr size_t kBmpPaletteBytes = 256 * 4;
constexpr uint32_t kBmpMaxSide = 1u << 16;

// Where a BMP's pixels are and how to read them.
struct BmpLayout {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0;  // 1, 3 or 4
    bool bottomUp = false;
    uint64_t pixelOffset = 0;
    uint64_t stride = 0;  // bytes of one row in the file, padded to 4
    uint8_t grey[256] = {};  // for one channel: the palette, as grey levels
};

// Bytes of one row of `width` pixels of `channels` channels in a file.
GRABSYSTEM_EXPORT uint64_t BmpStride(uint64_t width, uint32_t channels);

GRABSYSTEM_EXPORT Status DecodeBmpLayout(Bytes file, BmpLayout& layout);
// Whether `file` starts as a BMP does, however short or damaged the rest:
// what tells a BMP that DecodeBmpLayout refuses from a file of another kind.
GRABSYSTEM_EXPORT bool HasBmpSignature(Bytes file);
// The pixels, packed top row first, into `out` (width x height x channels
// bytes). The layout must come from DecodeBmpLayout over the same bytes.
GRABSYSTEM_EXPORT void DecodeBmpPixels(Bytes file, const BmpLayout& layout, uint8_t* out);

// The bytes of pixels the writer takes for this geometry: width x height x
// channels; 0 when it refuses it (a side of 0 or beyond kBmpMaxSide, a
// channel count other than 1, 3 or 4, or a file beyond 4 GiB).
GRABSYSTEM_EXPORT uint64_t BmpPixelBytes(uint32_t width, uint32_t height, uint32_t channels);
// File header, info header and (for one channel) the grey palette.
GRABSYSTEM_EXPORT size_t BmpHeaderBytes(uint32_t channels);
GRABSYSTEM_EXPORT uint64_t BmpFileBytes(uint32_t width, uint32_t height, uint32_t channels);
// Writes the headers of a top-down BMP; the caller appends the rows, each
// padded with zeros to BmpStride.
GRABSYSTEM_EXPORT void EncodeBmpHeader(Writer& w, uint32_t width, uint32_t height, uint32_t channels);

}  // namespace format
}  // namespace GrabSystem
