// The data-structure library: image geometry, resolution, alignment, the
// processing log and the information block that travels with every image
// file. The records are plain values; their byte layouts, and the stream
// forms that the members below read and write, are the codecs of
// info_block.h.
//
// An image file (raw, BMP, JPEG) ends with one CImgInfo block, so
// HasCImgInfo and ExtractFileType work by seeking from the end. Readers
// check every field before using it (see info_block.h); a failed read leaves
// the object unchanged.
//
// These are plain values: not thread-safe, copied deeply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

// Camera index of an image; eCamNone (9) is the default of a new image.
enum eCamIdx : int32_t {
    eCam0 = 0,
    eCam1 = 1,
    eCam2 = 2,
    eCam3 = 3,
    eCam4 = 4,
    eCam5 = 5,
    eCam6 = 6,
    eCam7 = 7,
    eCam8 = 8,
    eCamNone = 9,
};

}  // namespace GrabSystem

namespace VormexDataStructure {

// How an image's buffer follows its size: reallocate on any change, only to
// grow, or never (any other value).
enum eMemMode : int32_t {
    eMemModeRealloc = 0,
    eMemModeGrow = 1,
    eMemModeFixed = 2,
};

enum eImgFileFormat : int32_t {
    eImgFmtUnknown = 0,
    eImgFmtRaw = 1,
    eImgFmtFFC = 2,  // tags the information block of a flat-field table stream
    eImgFmtBmp = 3,
    eImgFmtJpg = 4,
};

enum eProcTag : int32_t {
    eProcNone = 0,
    eProcGrab = 1,
    eProcLoadFile = 2,
};

class GRABSYSTEM_EXPORT ImgSize {
public:
    static const uint16_t byteVerSpt;

    ImgSize() = default;
    ImgSize(uint32_t width, uint32_t height, uint8_t channels, uint8_t bitsPerChannel);
    ImgSize(const ImgSize&) = default;
    ImgSize& operator=(const ImgSize&) = default;

    // The record's own serialisation is its first virtual operation, as the
    // raw image format has always called it; the destructor comes last.
    virtual bool Append(FILE* file) const;
    virtual bool Extract(FILE* file);
    virtual ~ImgSize() = default;

    // Sets the geometry and recomputes area, bits and bytes per pixel and
    // the pixel buffer byte size.
    void Set(uint32_t width, uint32_t height, uint8_t channels);
    uint8_t GetBitPerChannel() const { return m_bitsPerChannel; }
    void SetBitPerChannel(uint8_t bits);

    uint32_t GetWidth() const { return m_width; }
    uint32_t GetHeight() const { return m_height; }
    uint64_t GetArea() const { return m_area; }
    // Bytes of pixel memory for this geometry: bits per pixel (channels x
    // bits per channel, truncated to 8 bits) of 1 or 8 take one byte, of 10,
    // 12 or 16 two bytes, any other value bitsPerPixel / 8 bytes per pixel.
    // Formed in 32-bit unsigned arithmetic, as an image sizes its memory:
    // a geometry beyond 4 GiB wraps, and 4 x 64-bit channels (256 bits,
    // truncated to 0) take no bytes at all.
    uint64_t GetByteSize() const { return m_byteSize; }
    uint8_t GetChannels() const { return m_channels; }
    uint8_t GetBitPerPixel() const { return m_bitsPerPixel; }
    uint8_t GetBytePerChannel() const { return m_bytesPerChannel; }
    uint8_t GetBytePerPixel() const { return m_bytesPerPixel; }

    // Bytes per pixel by the rule above.
    static uint32_t BytesPerPixelFor(uint8_t bitsPerPixel);

private:
    void _Derive();

    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint64_t m_area = 0;
    uint64_t m_byteSize = 0;
    uint8_t m_channels = 1;
    uint8_t m_bitsPerChannel = 8;
    uint8_t m_bitsPerPixel = 8;
    uint8_t m_bytesPerChannel = 1;
    uint8_t m_bytesPerPixel = 1;
};

class GRABSYSTEM_EXPORT ImgRes {
public:
    static const uint16_t byteVerSpt;

    ImgRes() = default;
    ImgRes(double x, double y, double z) : dX(x), dY(y), dZ(z) {}
    virtual ~ImgRes() = default;
    ImgRes(const ImgRes&) = default;
    ImgRes& operator=(const ImgRes&) = default;

    virtual bool Append(FILE* file) const;
    virtual bool Extract(FILE* file);

    double dX = 10.0;
    double dY = 10.0;
    double dZ = 10.0;
};

class GRABSYSTEM_EXPORT ImgAlignment {
public:
    static const uint16_t byteVerSpt;

    ImgAlignment() = default;
    ImgAlignment(uint32_t width, uint32_t height, int32_t offsetX = 0, int32_t offsetY = 0)
        : nWidth(width), nHeight(height), nOffsetX(offsetX), nOffsetY(offsetY) {}
    virtual ~ImgAlignment() = default;
    ImgAlignment(const ImgAlignment&) = default;
    ImgAlignment& operator=(const ImgAlignment&) = default;

    virtual bool Append(FILE* file) const;
    virtual bool Extract(FILE* file);

    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    int32_t nOffsetX = 0;
    int32_t nOffsetY = 0;
};

// One step of an image's processing history: a tag and a short note.
class GRABSYSTEM_EXPORT ImgProcCmd {
public:
    static const uint16_t byteVerSpt;
    static const int nMsgCnt;  // 32: characters of the note, terminator included

    static constexpr size_t kMsgBytes = 32;

    explicit ImgProcCmd(eProcTag tag = eProcNone, const char* msg = nullptr);
    virtual ~ImgProcCmd() = default;
    ImgProcCmd(const ImgProcCmd&) = default;
    ImgProcCmd& operator=(const ImgProcCmd&) = default;

    virtual bool Append(FILE* file) const;
    virtual bool Extract(FILE* file);

    eProcTag GetTag() const { return m_tag; }
    const char* GetMsg() const { return m_msg; }
    // The note as a record stores it: all kMsgBytes bytes, the last one
    // forced to the terminator.
    void Set(eProcTag tag, const char* msg);

private:
    eProcTag m_tag;
    char m_msg[32];
};

// The processing log: owns its commands.
class GRABSYSTEM_EXPORT ImgProcCmds {
public:
    static const uint16_t byteVerSpt;
    // A stream that claims more commands than this is refused.
    static const uint32_t kMaxCmds;

    ImgProcCmds() = default;
    virtual ~ImgProcCmds() = default;
    ImgProcCmds(const ImgProcCmds& other);
    ImgProcCmds& operator=(const ImgProcCmds& other);

    virtual bool Append(FILE* file) const;
    virtual bool Extract(FILE* file);

    // Takes ownership of `cmd`; null is ignored.
    void Add(ImgProcCmd* cmd);
    void Clear() { m_cmds.clear(); }
    size_t Size() const { return m_cmds.size(); }
    const ImgProcCmd& At(size_t i) const { return *m_cmds[i]; }

private:
    std::vector<std::unique_ptr<ImgProcCmd>> m_cmds;
};

class GRABSYSTEM_EXPORT CPointF {
public:
    static const uint16_t byteVerSpt;

    CPointF() = default;
    CPointF(float x_, float y_) : x(x_), y(y_) {}
    virtual ~CPointF() = default;
    CPointF(const CPointF&) = default;
    CPointF& operator=(const CPointF&) = default;

    virtual bool Append(FILE* file) const;
    virtual bool Extract(FILE* file);

    float x = 0.0f;
    float y = 0.0f;
};

// The information block of an image: geometry, memory mode, file format,
// alignments, resolution, processing log, camera index and frame attribute.
class GRABSYSTEM_EXPORT CImgInfo {
public:
    static const uint16_t byteVerSpt;
    static const char kMagic[9];  // "VXIMINFO"

    CImgInfo() = default;
    virtual ~CImgInfo() = default;
    CImgInfo(const CImgInfo&) = default;
    CImgInfo& operator=(const CImgInfo&) = default;

    // Writes the block at the end of `file`, tagged with `format`. False for
    // a null file or a short write.
    virtual bool Append(FILE* file, eImgFileFormat format) const;
    // With `atCurrent`, reads a block at the current position and leaves the
    // position after it; otherwise reads the block at the end of the file.
    // False, changing nothing, when there is no valid block.
    virtual bool Extract(FILE* file, bool atCurrent);

    // Whether the file ends with a valid block. The position is kept.
    static bool HasCImgInfo(FILE* file);
    // The format stored in the block at the end of the file, or
    // eImgFmtUnknown. The position is kept.
    static eImgFileFormat ExtractFileType(FILE* file);

    ImgSize size;
    eMemMode memMode = eMemModeRealloc;
    eImgFileFormat fileFormat = eImgFmtUnknown;
    ImgAlignment imgAlignment;
    ImgAlignment cadAlignment;
    ImgRes resolution;
    ImgProcCmds procLog;
    uint16_t status = 0;  // 65535 marks an image that came from a file
    GrabSystem::eCamIdx camIdx = GrabSystem::eCamNone;
    uint32_t frameAttr = 0;
};

}  // namespace VormexDataStructure
