#include "grabsystem/format/bmp.h"

#include <cstring>

namespace GrabSystem {
namespace format {

namespace {
constexpr uint32_t kPixelsPerMetre = 2835;  // 72 dpi
bool KnownChannels(uint32_t channels) { return channels == 1 || channels == 3 || channels == 4; }
}  // namespace

uint64_t BmpStride(uint64_t width, uint32_t channels) { return ((width * channels * 8 + 31) / 32) * 4; }

size_t BmpHeaderBytes(uint32_t channels) {
    return kBmpFileHeaderBytes + kBmpInfoHeaderBytes + (channels == 1 ? kBmpPaletteBytes : 0);
}

uint64_t BmpFileBytes(uint32_t width, uint32_t height, uint32_t channels) {
    return BmpHeaderBytes(channels) + BmpStride(width, channels) * height;
}

uint64_t BmpPixelBytes(uint32_t width, uint32_t height, uint32_t channels) {
    if (width == 0 || height == 0 || width > kBmpMaxSide || height > kBmpMaxSide || !KnownChannels(channels)) return 0;
    return BmpFileBytes(width, height, channels) > UINT32_MAX ? 0 : uint64_t{width} * height * channels;
}

void EncodeBmpHeader(Writer& w, uint32_t width, uint32_t height, uint32_t channels) {
    const uint64_t offset = BmpHeaderBytes(channels);
    const uint64_t pixels = BmpStride(width, channels) * height;
    w.U8('B');
    w.U8('M');
    w.U32(static_cast<uint32_t>(offset + pixels));
    w.U32(0);  // reserved
    w.U32(static_cast<uint32_t>(offset));
    w.U32(kBmpInfoHeaderBytes);
    w.U32(width);
    // Negative height: rows top-down, in memory order, so that an unpadded
    // image goes out in one write straight from the caller's pixels.
    w.I32(-static_cast<int32_t>(height));
    w.U16(1);  // planes
    w.U16(static_cast<uint16_t>(channels * 8));
    w.U32(0);  // no compression
    w.U32(static_cast<uint32_t>(pixels));
    w.U32(kPixelsPerMetre);
    w.U32(kPixelsPerMetre);
    w.U32(channels == 1 ? 256 : 0);  // palette entries
    w.U32(0);                        // important colours: all
    if (channels == 1)
        for (uint32_t i = 0; i < 256; ++i) {
            const uint8_t entry[4] = {static_cast<uint8_t>(i), static_cast<uint8_t>(i), static_cast<uint8_t>(i), 0};
            w.Raw(entry, sizeof entry);
        }
}

Status DecodeBmpLayout(Bytes file, BmpLayout& layout) {
    if (file.size < kBmpFileHeaderBytes + kBmpInfoHeaderBytes) return Status::kTruncated;
    if (file.data[0] != 'B' || file.data[1] != 'M') return Status::kNotFound;
    Reader r(file.Sub(10));
    const uint32_t offset = r.U32();
    const uint32_t infoSize = r.U32();
    const int32_t w = r.I32();
    const int32_t h = r.I32();
    const uint16_t planes = r.U16();
    const uint16_t bits = r.U16();
    const uint32_t compression = r.U32();
    if (infoSize < kBmpInfoHeaderBytes || kBmpFileHeaderBytes + uint64_t{infoSize} > file.size) return Status::kTruncated;
    if (planes != 1 || compression != 0 || (bits != 8 && bits != 24 && bits != 32)) return Status::kBadValue;
    if (w <= 0 || h == 0 || h == INT32_MIN) return Status::kBadValue;
    BmpLayout read;
    read.width = static_cast<uint32_t>(w);
    read.height = static_cast<uint32_t>(h < 0 ? -h : h);
    read.bottomUp = h > 0;
    read.channels = bits / 8u;
    if (read.width > kBmpMaxSide || read.height > kBmpMaxSide) return Status::kBadValue;
    read.stride = BmpStride(read.width, read.channels);
    read.pixelOffset = offset;
    if (offset < kBmpFileHeaderBytes + kBmpInfoHeaderBytes || uint64_t{offset} + read.stride * read.height > file.size)
        return Status::kTruncated;
    if (bits == 8) {
        uint32_t entries = GetU32(file.data + 46);
        if (entries == 0) entries = 256;
        const uint64_t paletteAt = kBmpFileHeaderBytes + uint64_t{infoSize};
        if (entries > 256 || paletteAt + uint64_t{entries} * 4 > offset) return Status::kBadValue;
        for (uint32_t i = 0; i < entries; ++i) {
            const uint8_t* e = file.data + paletteAt + 4 * i;  // B, G, R, reserved
            read.grey[i] = e[0] == e[1] && e[1] == e[2]
                               ? e[0]
                               : static_cast<uint8_t>((299u * e[2] + 587u * e[1] + 114u * e[0] + 500u) / 1000u);
        }
    }
    layout = read;
    return Status::kOk;
}

bool HasBmpSignature(Bytes file) { return file.size >= 2 && file.data[0] == 'B' && file.data[1] == 'M'; }

void DecodeBmpPixels(Bytes file, const BmpLayout& layout, uint8_t* out) {
    const size_t rowBytes = size_t{layout.width} * layout.channels;
    for (uint32_t y = 0; y < layout.height; ++y) {
        const uint32_t fileRow = layout.bottomUp ? layout.height - 1 - y : y;
        const uint8_t* src = file.data + layout.pixelOffset + fileRow * layout.stride;
        uint8_t* dst = out + size_t{y} * rowBytes;
        if (layout.channels == 1) {
            for (uint32_t x = 0; x < layout.width; ++x) dst[x] = layout.grey[src[x]];
        } else {
            std::memcpy(dst, src, rowBytes);
        }
    }
}

}  // namespace format
}  // namespace GrabSystem
