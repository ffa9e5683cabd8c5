// The concrete image kinds. Each fixes its bits per channel and supplies
// the per-kind BMP encoding, decoding and zero fill; floating-point images
// and flat-field tables add file forms of their own. Geometry, memory policy,
// raw format and file dispatch are IImgP's. No kind reads or writes JPEG.
//
// Float and double raw files (SaveToRaw / LoadFromRaw), little-endian:
//   u32 version (1) | u32 width | u32 height | u32 channels |
//   f64 resolution y | f64 resolution z | height x width x channels values
// (4-byte floats or 8-byte doubles). The first resolution value is not
// stored.
//
// Flat-field table stream (CFFCTableP::Append / Extract), at the stream's
// current position: the CImgInfo block tagged with format 2, then the raw
// format (version word, ImgSize record, pixels).
//
// A geometry larger than the buffer (memory mode 2 keeps the buffer) is
// written from the pixels the buffer holds and zeros for the rest, by every
// saver here and by the raw format: nothing reads past the buffer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/image/img.h"

namespace GrabSystem {

// 8 bits per channel; BMP of the raw bytes, grey for one channel. Loading a
// BMP sizes the image to what the decoder gave: a file that does not decode
// gives 0 x 0 x 0 and still loads true (the decoder's result is not what
// decides), so LoadFile of such a ".bmp" without an info block is true.
class GRABSYSTEM_EXPORT CImg8P : public IImgP {
public:
    CImg8P();
    unsigned char* GetImg() { return static_cast<unsigned char*>(GetData()); }

protected:
    bool _SaveBmp(const char* path) override;
    bool _LoadBmp(const char* path) override;
    void _ResetMemory() override;
};

class GRABSYSTEM_EXPORT CImg16P : public IImgP {
public:
    CImg16P();
    uint16_t* GetImg() { return static_cast<uint16_t*>(GetData()); }

protected:
    void _ResetMemory() override;
};

class GRABSYSTEM_EXPORT CImg32P : public IImgP {
public:
    CImg32P();
    uint32_t* GetImg() { return static_cast<uint32_t*>(GetData()); }

protected:
    void _ResetMemory() override;
};

// 32-bit floats. A one-channel image saves as 8-bit grey BMP, stretched
// over its value range; -99999.0 marks "no data" and renders black.
class GRABSYSTEM_EXPORT CImgFloatP : public IImgP {
public:
    static constexpr float kNoData = -99999.0f;

    CImgFloatP();
    float* GetImg() { return static_cast<float*>(GetData()); }

    // False when the file cannot be written (or without info).
    bool SaveToRaw(std::string path);
    // False without info, for a missing or short file, or when the image
    // cannot be sized; never reads past the file or writes past the image.
    bool LoadFromRaw(std::string path);

protected:
    bool _SaveBmp(const char* path) override;
    void _ResetMemory() override;
};

class GRABSYSTEM_EXPORT CImgDoubleP : public IImgP {
public:
    CImgDoubleP();
    double* GetImg() { return static_cast<double*>(GetData()); }

    bool SaveToRaw(std::string path);
    bool LoadFromRaw(std::string path);

protected:
    void _ResetMemory() override;
};

// One byte per pixel, 0 or 1. Saves as 0/255 grey; loads thresholded at
// 128, sized as CImg8P's load is (0 x 0 x 0 and true for a file that does
// not decode). Its zero fill clears one eighth of the pixel bytes: the kind has
// always counted its bytes as bits there, and callers rely on nothing more.
class GRABSYSTEM_EXPORT CImgMaskP : public IImgP {
public:
    CImgMaskP();
    unsigned char* GetImg() { return static_cast<unsigned char*>(GetData()); }

protected:
    bool _SaveBmp(const char* path) override;
    bool _LoadBmp(const char* path) override;
    void _ResetMemory() override;
};

// A flat-field-correction table of 16-bit values, stored as a stream.
class GRABSYSTEM_EXPORT CFFCTableP : public IImgP {
public:
    CFFCTableP();
    uint16_t* GetImg() { return static_cast<uint16_t*>(GetData()); }

    // Writes the table at the stream's current position. False for a null
    // file or a failed write.
    bool Append(FILE* file);
    // Reads a table written by Append at the current position: the block
    // (which brings its geometry, memory mode and bits per channel), then
    // the raw part, as LoadFile's raw step reads it. False for a null file
    // or a damaged stream. In memory modes 0 and 1 a block whose geometry
    // needs more than the buffer holds keeps the geometry the image had,
    // until the raw part sizes the buffer.
    bool Extract(FILE* file);
};

}  // namespace GrabSystem
