#include "grabsystem/format/image_io_tool.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "grabsystem/format/bmp.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace DrasselSpace {

namespace format = GrabSystem::format;

unsigned long long ImageIOToolP::PixelBytesRead(unsigned width, unsigned height, ePixelFormatP format) {
    return format::BmpPixelBytes(width, height, static_cast<uint32_t>(format));
}

bool ImageIOToolP::SaveBMP(const char* path, unsigned char* pixels, unsigned width, unsigned height,
                           ePixelFormatP format, GrabSystem::platform::Env* env) {
    if (path == nullptr || pixels == nullptr || PixelBytesRead(width, height, format) == 0) return false;
    const auto channels = static_cast<uint32_t>(format);
    std::vector<uint8_t> head(format::BmpHeaderBytes(channels));
    format::Writer w(head.data(), head.size());
    format::EncodeBmpHeader(w, width, height, channels);

    std::unique_ptr<GrabSystem::platform::WritableFile> file;
    if (!GrabSystem::platform::Env::Or(env)->NewWritableFile(path, &file).ok()) return false;
    bool ok = file->Append(head.data(), head.size()).ok();
    const uint64_t stride = format::BmpStride(width, channels);
    const size_t rowBytes = size_t{width} * channels;
    if (stride == rowBytes) {
        // Unpadded rows go out in one write straight from the pixels.
        ok = ok && file->Append(pixels, rowBytes * height).ok();
    } else {
        std::vector<unsigned char> row(stride, 0);
        for (uint32_t y = 0; ok && y < height; ++y) {
            std::memcpy(row.data(), pixels + size_t{y} * rowBytes, rowBytes);
            ok = file->Append(row.data(), row.size()).ok();
        }
    }
    return ok && file->Close().ok();
}

bool ImageIOToolP::LoadBMP(const char* path, unsigned char*& pixels, unsigned& width, unsigned& height,
                           ePixelFormatP& format, GrabSystem::platform::Env* env) {
    pixels = nullptr;
    width = height = 0;
    format = ePixelFormatUnknown;
    if (path == nullptr) return false;
    unsigned char* data = nullptr;
    unsigned long long size = 0;
    if (!FileToolP::LoadDataFromFile(path, data, size, env)) return false;
    std::unique_ptr<unsigned char[]> file(data);
    return DecodeBMP(file.get(), size, pixels, width, height, format);
}

bool ImageIOToolP::DecodeBMP(const unsigned char* file, unsigned long long fileSize, unsigned char*& pixels,
                             unsigned& width, unsigned& height, ePixelFormatP& format) {
    pixels = nullptr;
    width = height = 0;
    format = ePixelFormatUnknown;
    const format::Bytes bytes(file, static_cast<size_t>(fileSize));
    format::BmpLayout layout;
    if (format::DecodeBmpLayout(bytes, layout) != format::Status::kOk) return false;
    auto* out = new (std::nothrow) unsigned char[size_t{layout.width} * layout.height * layout.channels];
    if (out == nullptr) return false;
    format::DecodeBmpPixels(bytes, layout, out);
    pixels = out;
    width = layout.width;
    height = layout.height;
    format = static_cast<ePixelFormatP>(layout.channels);
    return true;
}

}  // namespace DrasselSpace
