#include "grabsystem/image/img_kinds.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/format/value_raw.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/image/grey_render.h"

namespace GrabSystem {

using DrasselSpace::ePixelFormatP;
using DrasselSpace::FileToolP;
using DrasselSpace::ImageIOToolP;

namespace {

// Frees a toolkit buffer when the scope ends.
using Owned = std::unique_ptr<unsigned char[]>;

uint64_t Values(const IImgP& img) { return uint64_t{img.GetChCnt()} * img.GetHeight() * img.GetWidth(); }

// Decodes a BMP and sizes the image to it, as the kinds that read BMPs do.
// The decoder's result is not what decides: a file that does not decode
// leaves no pixels and 0 x 0 x 0, and the image is sized to that; a file
// that cannot be read fails. `count` is
// the number of decoded bytes that fit the buffer (memory mode 2 may keep a
// smaller one than the geometry needs).
bool LoadBmpInto(IImgP& img, const char* path, Owned& pixels, uint64_t& count) {
    // A file that cannot be read is no file that does not decode: its load
    // fails.
    unsigned char* file = nullptr;
    unsigned long long size = 0;
    if (!FileToolP::LoadDataFromFile(path, file, size, img.GetEnv())) return false;
    const Owned bytes(file);
    unsigned char* data = nullptr;
    unsigned width = 0, height = 0;
    ePixelFormatP format = DrasselSpace::ePixelFormatUnknown;
    ImageIOToolP::DecodeBMP(bytes.get(), size, data, width, height, format);
    pixels.reset(data);
    if (!img.SetSize(width, height, static_cast<uint8_t>(format), false)) return false;
    const uint64_t decoded = uint64_t{static_cast<uint32_t>(format)} * width * height;
    count = decoded < img.GetMemSize() ? decoded : img.GetMemSize();
    return true;
}

template <typename T>
bool SaveValueRaw(IImgP& img, const std::string& path) {
    try {
        const uint32_t width = img.GetWidth(), height = img.GetHeight(), channels = img.GetChCnt();
        const ImgRes res = img.GetResolution();
        const uint64_t bytes = uint64_t{width} * height * channels * sizeof(T);
        // Zero-initialised: values the buffer does not hold (memory mode 2
        // under a larger geometry) are written as zeros, not read past it.
        std::vector<unsigned char> file(format::kValueRawHeaderBytes + bytes);
        format::Writer w(file.data(), file.size());
        format::EncodeValueRawHeader(w, width, height, channels, res.dY, res.dZ);
        const uint64_t held = std::min<uint64_t>(bytes, img.GetMemSize());
        if (held != 0) w.Raw(img.GetData(), static_cast<size_t>(held));
        return FileToolP::SaveDataToFile(path, file.data(), file.size(), img.GetEnv());
    } catch (...) {
        return false;
    }
}

// Neither the version nor the file's size is checked: a short file reads
// its missing header bytes as zeros and copies the values it holds.
template <typename T>
bool LoadValueRaw(IImgP& img, const std::string& path) {
    unsigned char* raw = nullptr;
    unsigned long long size = 0;
    if (!FileToolP::LoadDataFromFile(path, raw, size, img.GetEnv())) return false;
    Owned file(raw);
    const format::ValueRawView view = format::DecodeValueRaw(format::Bytes(file.get(), static_cast<size_t>(size)));
    if (!img.SetSize(view.width, view.height, static_cast<uint8_t>(view.channels), false)) return false;
    img.GetResolution().dY = view.resolutionY;
    img.GetResolution().dZ = view.resolutionZ;
    // The element count is the format's signed 32-bit product; a negative
    // one copies nothing, and no copy runs past the file or the buffer.
    const auto count = static_cast<int32_t>(view.channels * view.height * view.width);
    const uint64_t bytes = count > 0 ? uint64_t{static_cast<uint32_t>(count)} * sizeof(T) : 0;
    const uint64_t copy = std::min({bytes, uint64_t{view.values.size}, static_cast<uint64_t>(img.GetMemSize())});
    if (copy != 0) std::memcpy(img.GetData(), view.values.data, static_cast<size_t>(copy));
    return true;
}

}  // namespace

// ---------------------------------------------------------------- CImg8P

CImg8P::CImg8P() { _SetBitPerCn(8); }

bool CImg8P::_SaveBmp(const char* path) {
    // Pad only what the writer reads: a geometry it refuses is never read.
    const uint64_t read =
        ImageIOToolP::PixelBytesRead(GetWidth(), GetHeight(), static_cast<ePixelFormatP>(GetChCnt()));
    std::unique_ptr<unsigned char[]> padded;
    const unsigned char* pixels = _PaddedPixels(read, padded);
    if (pixels == nullptr && read != 0) return false;
    return ImageIOToolP::SaveBMP(path, const_cast<unsigned char*>(pixels), GetWidth(), GetHeight(),
                                 static_cast<ePixelFormatP>(GetChCnt()), GetEnv());
}

bool CImg8P::_LoadBmp(const char* path) {
    Owned pixels;
    uint64_t count = 0;
    if (!LoadBmpInto(*this, path, pixels, count)) return false;
    if (count != 0) std::memcpy(GetData(), pixels.get(), static_cast<size_t>(count));
    return true;
}

void CImg8P::_ResetMemory() { _ZeroFill(Values(*this)); }

// ---------------------------------------------------------------- 16 / 32

CImg16P::CImg16P() { _SetBitPerCn(16); }
void CImg16P::_ResetMemory() { _ZeroFill(Values(*this) * 2); }

CImg32P::CImg32P() { _SetBitPerCn(32); }
void CImg32P::_ResetMemory() { _ZeroFill(Values(*this) * 4); }

// ---------------------------------------------------------------- float

CImgFloatP::CImgFloatP() { _SetBitPerCn(32); }

void CImgFloatP::_ResetMemory() { _ZeroFill(Values(*this) * 4); }

bool CImgFloatP::_SaveBmp(const char* path) {
    if (_Info() == nullptr || GetChCnt() != 1) return false;
    const uint64_t n = uint64_t{GetWidth()} * GetHeight();
    std::unique_ptr<unsigned char[]> padded;
    const auto* values = reinterpret_cast<const float*>(_PaddedPixels(n * sizeof(float), padded));
    if (values == nullptr && n != 0) throw std::bad_alloc();

    // One rendering for the BMP and the preview sheets (see grey_render.h).
    std::unique_ptr<unsigned char[]> grey(new unsigned char[n == 0 ? 1 : n]);
    StretchToGrey(values, n, grey.get());
    ImageIOToolP::SaveBMP(path, grey.get(), GetWidth(), GetHeight(), DrasselSpace::ePixelFormatGray8, GetEnv());
    return true;
}

bool CImgFloatP::SaveToRaw(std::string path) { return SaveValueRaw<float>(*this, path); }

bool CImgFloatP::LoadFromRaw(std::string path) { return _Info() != nullptr && LoadValueRaw<float>(*this, path); }

// ---------------------------------------------------------------- double

CImgDoubleP::CImgDoubleP() { _SetBitPerCn(64); }

void CImgDoubleP::_ResetMemory() { _ZeroFill(Values(*this) * 8); }

bool CImgDoubleP::SaveToRaw(std::string path) { return SaveValueRaw<double>(*this, path); }

bool CImgDoubleP::LoadFromRaw(std::string path) { return _Info() != nullptr && LoadValueRaw<double>(*this, path); }

// ---------------------------------------------------------------- mask

CImgMaskP::CImgMaskP() { _SetBitPerCn(1); }

void CImgMaskP::_ResetMemory() { _ZeroFill(Values(*this) / 8); }

bool CImgMaskP::_SaveBmp(const char* path) {
    const uint64_t count = GetBufferSize();
    std::unique_ptr<unsigned char[]> grey(new (std::nothrow) unsigned char[count == 0 ? 1 : count]);
    if (!grey) return false;
    // Mask bytes the buffer does not hold (memory mode 2) count as 0.
    const uint64_t held = std::min<uint64_t>(count, GetMemSize());
    const unsigned char* mask = GetImg();
    for (uint64_t i = 0; i < count; ++i) grey[i] = i < held && mask[i] > 0 ? 255 : 0;
    return ImageIOToolP::SaveBMP(path, grey.get(), GetWidth(), GetHeight(), static_cast<ePixelFormatP>(GetChCnt()),
                                 GetEnv());
}

bool CImgMaskP::_LoadBmp(const char* path) {
    Owned pixels;
    uint64_t count = 0;
    if (!LoadBmpInto(*this, path, pixels, count)) return false;
    unsigned char* mask = GetImg();
    for (uint64_t i = 0; i < count; ++i) mask[i] = pixels[i] >= 128 ? 1 : 0;
    return true;
}

// ---------------------------------------------------------------- flat-field table

CFFCTableP::CFFCTableP() { _SetBitPerCn(16); }

bool CFFCTableP::Append(FILE* file) {
    if (file == nullptr || !GetInfo().Append(file, VormexDataStructure::eImgFmtFFC)) return false;
    return _SaveRaw(file);
}

bool CFFCTableP::Extract(FILE* file) {
    if (file == nullptr) return false;
    const ImgSize before = GetInfo().size;
    if (!GetInfo().Extract(file, true)) return false;
    // The block brings its own geometry; until the raw part has sized the
    // buffer to it, it may not claim more bytes than the buffer holds (in
    // memory mode 2 the caller answers for the buffer, as SetSize says).
    const eMemMode mode = GetMemMode();
    const bool sizesBuffer = mode == VormexDataStructure::eMemModeRealloc || mode == VormexDataStructure::eMemModeGrow;
    if (sizesBuffer && GetInfo().size.GetByteSize() > GetMemSize()) GetInfo().size = before;
    return _LoadRaw(file);
}

}  // namespace GrabSystem
