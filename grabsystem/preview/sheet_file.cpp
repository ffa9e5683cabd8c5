#include "grabsystem/preview/sheet_file.h"

#ifdef GRABSYS_HAVE_PNG
#include <png.h>
#else
#include "grabsystem/format/bmp.h"
#endif

namespace GrabSystem {
namespace preview {

#ifdef GRABSYS_HAVE_PNG

const char* SheetFileExtension() { return ".png"; }

namespace {

void AppendPng(png_structp png, png_bytep data, png_size_t n) {
    auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + n);
}

}  // namespace

bool EncodeSheet(const Sheet& s, std::vector<uint8_t>& out) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    if (info == nullptr) {
        png_destroy_write_struct(&png, nullptr);
        return false;
    }
    // libpng reports its errors by longjmp; nothing here needs unwinding.
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, &out, AppendPng, nullptr);
    png_set_IHDR(png, info, s.width, s.height, 8, s.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 9);
    png_write_info(png, info);
    for (uint32_t y = 0; y < s.height; ++y)
        png_write_row(png, const_cast<png_bytep>(&s.pixels[static_cast<size_t>(y) * s.width * s.channels]));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

#else

const char* SheetFileExtension() { return ".bmp"; }

bool EncodeSheet(const Sheet& s, std::vector<uint8_t>& out) {
    if (format::BmpPixelBytes(s.width, s.height, s.channels) == 0) return false;
    out.assign(static_cast<size_t>(format::BmpFileBytes(s.width, s.height, s.channels)), 0);
    format::Writer w(out.data(), out.size());
    format::EncodeBmpHeader(w, s.width, s.height, s.channels);
    const size_t stride = static_cast<size_t>(format::BmpStride(s.width, s.channels));
    for (uint32_t y = 0; y < s.height; ++y) {
        const uint8_t* row = &s.pixels[static_cast<size_t>(y) * s.width * s.channels];
        for (uint32_t x = 0; x < s.width; ++x)  // BMP keeps B, G, R
            for (uint32_t c = 0; c < s.channels; ++c) w.U8(row[x * s.channels + s.channels - 1 - c]);
        w.Zeros(stride - static_cast<size_t>(s.width) * s.channels);
    }
    return !w.Full();
}

#endif

}  // namespace preview
}  // namespace GrabSystem
