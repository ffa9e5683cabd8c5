#include "grabsystem/platform/toolkit/image_io_tool.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace DrasselSpace {

namespace {

constexpr uint32_t kFileHeader = 14;
constexpr uint32_t kInfoHeader = 40;
// Larger images are refused before anything is allocated.
constexpr uint32_t kMaxSide = 1u << 16;

void Put16(unsigned char* p, uint16_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}
void Put32(unsigned char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
uint16_t Get16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t Get32(const unsigned char* p) {
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

uint64_t RowStride(uint64_t width, uint32_t bitsPerPixel) { return ((width * bitsPerPixel + 31) / 32) * 4; }

}  // namespace

unsigned long long ImageIOToolP::PixelBytesRead(unsigned width, unsigned height, ePixelFormatP format) {
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) return 0;
    if (format != ePixelFormatGray8 && format != ePixelFormatBGR24 && format != ePixelFormatBGRA32) return 0;
    const auto channels = static_cast<uint32_t>(format);
    const uint64_t fileSize = kFileHeader + kInfoHeader + (channels == 1 ? 256 * 4 : 0) +
                              RowStride(width, channels * 8) * height;
    return fileSize > UINT32_MAX ? 0 : uint64_t{width} * height * channels;
}

bool ImageIOToolP::SaveBMP(const char* path, unsigned char* pixels, unsigned width, unsigned height,
                           ePixelFormatP format) {
    if (path == nullptr || pixels == nullptr || PixelBytesRead(width, height, format) == 0) return false;
    const uint32_t channels = static_cast<uint32_t>(format);
    const uint32_t bitsPerPixel = channels * 8;
    const uint32_t paletteBytes = channels == 1 ? 256 * 4 : 0;
    const uint64_t stride = RowStride(width, bitsPerPixel);
    const uint64_t offset = kFileHeader + kInfoHeader + paletteBytes;
    const uint64_t fileSize = offset + stride * height;

    std::vector<unsigned char> head(offset, 0);
    head[0] = 'B';
    head[1] = 'M';
    Put32(&head[2], static_cast<uint32_t>(fileSize));
    Put32(&head[10], static_cast<uint32_t>(offset));
    Put32(&head[14], kInfoHeader);
    Put32(&head[18], width);
    // Negative height: rows top-down, in memory order, so that an unpadded
    // image goes out in one write straight from the caller's pixels.
    Put32(&head[22], static_cast<uint32_t>(-static_cast<int32_t>(height)));
    Put16(&head[26], 1);
    Put16(&head[28], static_cast<uint16_t>(bitsPerPixel));
    Put32(&head[34], static_cast<uint32_t>(stride * height));
    Put32(&head[38], 2835);  // 72 dpi
    Put32(&head[42], 2835);
    if (channels == 1) {
        Put32(&head[46], 256);
        for (uint32_t i = 0; i < 256; ++i) {
            unsigned char* entry = &head[kFileHeader + kInfoHeader + 4 * i];
            entry[0] = entry[1] = entry[2] = static_cast<unsigned char>(i);
        }
    }

    FILE* file = GrabSystem::platform::OpenFile(path, "wb");
    if (file == nullptr) return false;
    bool ok = std::fwrite(head.data(), 1, head.size(), file) == head.size();
    const size_t rowBytes = size_t{width} * channels;
    if (stride == rowBytes) {
        ok = ok && std::fwrite(pixels, 1, rowBytes * height, file) == rowBytes * height;
    } else {
        std::vector<unsigned char> row(stride, 0);
        for (uint32_t y = 0; ok && y < height; ++y) {
            std::memcpy(row.data(), pixels + size_t{y} * rowBytes, rowBytes);
            ok = std::fwrite(row.data(), 1, row.size(), file) == row.size();
        }
    }
    if (std::fclose(file) == 0 && ok) return true;
    GrabSystem::platform::DiscardFile(path);
    return false;
}

bool ImageIOToolP::LoadBMP(const char* path, unsigned char*& pixels, unsigned& width, unsigned& height,
                           ePixelFormatP& format) {
    pixels = nullptr;
    width = height = 0;
    format = ePixelFormatUnknown;
    if (path == nullptr) return false;
    unsigned char* data = nullptr;
    unsigned long long size = 0;
    if (!FileToolP::LoadDataFromFile(path, data, size)) return false;
    std::unique_ptr<unsigned char[]> file(data);
    return DecodeBMP(file.get(), size, pixels, width, height, format);
}

bool ImageIOToolP::DecodeBMP(const unsigned char* file, unsigned long long fileSize, unsigned char*& pixels,
                             unsigned& width, unsigned& height, ePixelFormatP& format) {
    pixels = nullptr;
    width = height = 0;
    format = ePixelFormatUnknown;
    if (file == nullptr || fileSize < kFileHeader + kInfoHeader || file[0] != 'B' || file[1] != 'M') return false;

    const uint32_t offset = Get32(file + 10);
    const uint32_t infoSize = Get32(file + 14);
    const int32_t w = static_cast<int32_t>(Get32(file + 18));
    const int32_t h = static_cast<int32_t>(Get32(file + 22));
    const uint16_t planes = Get16(file + 26);
    const uint16_t bits = Get16(file + 28);
    const uint32_t compression = Get32(file + 30);
    if (infoSize < kInfoHeader || uint64_t{kFileHeader} + infoSize > fileSize) return false;
    if (planes != 1 || compression != 0 || (bits != 8 && bits != 24 && bits != 32)) return false;
    if (w <= 0 || h == 0 || h == INT32_MIN) return false;
    const uint32_t cols = static_cast<uint32_t>(w);
    const uint32_t rows = static_cast<uint32_t>(h < 0 ? -h : h);
    if (cols > kMaxSide || rows > kMaxSide) return false;

    const uint64_t stride = RowStride(cols, bits);
    if (offset < kFileHeader + kInfoHeader || uint64_t{offset} + stride * rows > fileSize) return false;

    unsigned char grey[256];
    if (bits == 8) {
        uint32_t entries = Get32(file + 46);
        if (entries == 0) entries = 256;
        const uint64_t paletteAt = uint64_t{kFileHeader} + infoSize;
        if (entries > 256 || paletteAt + uint64_t{entries} * 4 > offset) return false;
        for (uint32_t i = 0; i < 256; ++i) {
            if (i >= entries) {
                grey[i] = 0;
                continue;
            }
            const unsigned char* e = file + paletteAt + 4 * i;  // B, G, R, reserved
            grey[i] = e[0] == e[1] && e[1] == e[2]
                          ? e[0]
                          : static_cast<unsigned char>((299u * e[2] + 587u * e[1] + 114u * e[0] + 500u) / 1000u);
        }
    }

    const uint32_t channels = bits / 8;
    const size_t rowBytes = size_t{cols} * channels;
    auto* out = new (std::nothrow) unsigned char[rowBytes * rows];
    if (out == nullptr) return false;
    for (uint32_t y = 0; y < rows; ++y) {
        const uint32_t fileRow = h > 0 ? rows - 1 - y : y;
        const unsigned char* src = file + offset + fileRow * stride;
        unsigned char* dst = out + size_t{y} * rowBytes;
        if (bits == 8) {
            for (uint32_t x = 0; x < cols; ++x) dst[x] = grey[src[x]];
        } else {
            std::memcpy(dst, src, rowBytes);
        }
    }
    pixels = out;
    width = cols;
    height = rows;
    format = static_cast<ePixelFormatP>(channels);
    return true;
}

}  // namespace DrasselSpace
