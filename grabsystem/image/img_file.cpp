// The file operations of IImgP: raw format, format dispatch, file naming and
// the information block that follows every saved file.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "grabsystem/format/info_block.h"
#include "grabsystem/format/raw_image.h"
#include "grabsystem/image/img.h"
#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

using VormexDataStructure::eImgFmtBmp;
using VormexDataStructure::eImgFmtJpg;
using VormexDataStructure::eImgFmtRaw;
using VormexDataStructure::eImgFmtUnknown;

namespace {

// The information block at the end of an open file, from the bytes it can
// span: `found` tells whether there is one. An error when the file will not
// give those bytes.
Status ReadBlockAtEnd(const platform::RandomAccessFile& file, CImgInfo& info, bool& found) {
    found = false;
    const uint64_t size = file.Size();
    const uint64_t span = std::min<uint64_t>(size, format::kMaxInfoStreamBytes + format::kInfoTailBytes);
    std::vector<uint8_t> tail(static_cast<size_t>(span));
    size_t got = 0;
    const Status s = file.Read(size - span, tail.size(), tail.data(), &got);
    if (!s.ok()) return s;
    found = got == tail.size() &&
            format::DecodeInfoBlockAtEnd(format::Bytes(tail.data(), tail.size()), info) == format::Status::kOk;
    return s;
}

}  // namespace

bool IImgP::_SaveRaw(const char* path) {
    // The raw format is written to a stream (the virtual _SaveRaw(FILE*)
    // that kinds may replace) in memory, then goes to its file through the
    // Env as one whole file.
    platform::MemoryStream stream;
    if (stream.Stream() == nullptr) return false;
    const bool written = _SaveRaw(stream.Stream());
    std::vector<unsigned char> bytes;
    const bool taken = stream.Take(bytes);
    std::unique_ptr<platform::WritableFile> file;
    if (!GetEnv()->NewWritableFile(path, &file).ok()) return false;
    if (!written || !taken) {
        file->Abandon();
        return false;
    }
    return file->Append(bytes.data(), bytes.size()).ok() && file->Close().ok();
}

bool IImgP::_LoadRaw(const char* path) {
    // The stream the virtual reader takes holds the file's bytes, read
    // through the Env.
    std::unique_ptr<unsigned char[]> bytes;
    uint64_t size = 0;
    if (path == nullptr || !GetEnv()->ReadFile(path, bytes, size).ok()) return false;
    platform::ReadStream stream(std::move(bytes), size);
    return stream.Stream() != nullptr && _LoadRaw(stream.Stream());
}

bool IImgP::_SaveRaw(FILE* file) { return _SaveRawCore(file); }

bool IImgP::_LoadRaw(FILE* file) { return _LoadRawCore(file); }

bool IImgP::_SaveRawCore(FILE* file) {
    if (file == nullptr) return false;
    uint8_t version[format::kRawVersionBytes];
    format::Writer w(version, sizeof version);
    format::EncodeRawVersion(w);
    if (std::fwrite(version, 1, sizeof version, file) != sizeof version) return false;
    return _SaveCoreRaw01(file);
}

bool IImgP::_LoadRawCore(FILE* file) {
    if (file == nullptr) return false;
    uint8_t version[format::kRawVersionBytes];
    const size_t got = std::fread(version, 1, sizeof version, file);
    format::Reader r(format::Bytes(version, got));
    if (format::DecodeRawVersion(r) != format::Status::kOk) return false;
    return _LoadCoreRaw01(file);
}

bool IImgP::_SaveCoreRaw01(FILE* file) {
    if (!m_info || !m_info->size.Append(file)) return false;
    const uint64_t bytes = m_info->size.GetByteSize();
    // A geometry larger than the buffer (memory mode 2) writes the buffer
    // and zeros for the rest, rather than read past the buffer.
    const uint64_t held = std::min<uint64_t>(bytes, GetMemSize());
    if (held != 0 && std::fwrite(GetData(), 1, static_cast<size_t>(held), file) != held) return false;
    static const unsigned char kZeros[4096] = {};
    for (uint64_t left = bytes - held; left != 0;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(left, sizeof kZeros));
        if (std::fwrite(kZeros, 1, n, file) != n) return false;
        left -= n;
    }
    return true;
}

bool IImgP::_LoadCoreRaw01(FILE* file) {
    if (!m_info) return false;
    ImgSize size;
    if (!size.Extract(file)) return false;
    // The kind's depth sizes the buffer, not the file's.
    if (!SetSize(size.GetWidth(), size.GetHeight(), size.GetChannels(), false)) return false;
    // A file of a deeper kind (or memory mode 2 under a smaller buffer)
    // brings more bytes than the buffer holds: those past its end are not
    // read, and the load fails as a short file does.
    const uint64_t bytes = size.GetByteSize();
    const size_t fits = static_cast<size_t>(bytes < GetMemSize() ? bytes : GetMemSize());
    const size_t read = fits == 0 ? 0 : std::fread(GetData(), 1, fits, file);
    return read == bytes;
}

bool IImgP::_SaveBmp(const char*) { return false; }
bool IImgP::_LoadBmp(const char*) { return false; }
bool IImgP::_SaveJpg(const char*) { return false; }
bool IImgP::_LoadJpg(const char*) { return false; }

bool IImgP::SaveFile(const char* path, eImgFileFormat fmt) {
    if (path == nullptr) return false;
    if (m_info) m_info->fileFormat = fmt;
    switch (fmt) {
        case eImgFmtRaw:
            _SaveRaw(path);
            break;
        case eImgFmtBmp:
            _SaveBmp(path);
            break;
        case eImgFmtJpg:
            _SaveJpg(path);
            break;
        default:
            break;
    }
    // The block goes behind whatever the pixel step left. When it cannot be
    // written whole, the Env cuts the file back to what it held before (or
    // removes it, when the append made it), so that no reader meets half a
    // block.
    std::unique_ptr<platform::WritableFile> file;
    if (!GetEnv()->NewAppendableFile(path, &file).ok()) return true;
    std::vector<uint8_t> block(format::InfoBlockBytes(GetInfo()));
    format::Writer w(block.data(), block.size());
    format::EncodeInfoBlock(w, GetInfo(), fmt);
    if (!file->Append(block.data(), block.size()).ok() || !file->Close().ok()) file->Abandon();
    return true;
}

bool IImgP::SaveBmp(const char* path) { return SaveFile(path, eImgFmtBmp); }

bool IImgP::SaveJpg(const char* path) { return SaveFile(path, eImgFmtJpg); }

bool IImgP::SaveToPath(const char* dir, eImgFileFormat fmt) {
    if (dir == nullptr) return false;
    const uint32_t tick = platform::GetTickMs();
    const char* ext = fmt == eImgFmtBmp ? "bmp" : fmt == eImgFmtJpg ? "jpg" : "raw";
    char path[2048];
    std::snprintf(path, sizeof path, "%s%d.%s", dir, static_cast<int>(tick), ext);
    return SaveFile(path, fmt);
}

eImgFileFormat IImgP::_FormatOf(const char* path) {
    std::string ext = DrasselSpace::CWinHelper::GetFileExtension(path).substr(0, 256);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (ext == ".BMP") return eImgFmtBmp;
    if (ext == ".JPG" || ext == ".JPEG") return eImgFmtJpg;
    if (ext == ".RAW") return eImgFmtRaw;
    return eImgFmtUnknown;
}

void IImgP::_RestoreInfo(const CImgInfo& block) {
    CImgInfo saved = block;
    // A block whose geometry needs more memory than the image holds (it
    // lies, or the pixels failed to load) keeps the geometry as loaded in
    // memory modes 0 and 1, so that no reader of this image runs past its
    // buffer; in other modes the caller answers for the buffer.
    const bool sizesBuffer = saved.memMode == VormexDataStructure::eMemModeRealloc ||
                             saved.memMode == VormexDataStructure::eMemModeGrow;
    if (sizesBuffer && saved.size.GetByteSize() > GetMemSize()) saved.size = m_info->size;
    *m_info = saved;
}

bool IImgP::LoadFile(const char* path) {
    if (path == nullptr || !m_info) return false;
    CImgInfo block;
    bool hasBlock = false;
    bool readable = false;
    {
        std::unique_ptr<platform::RandomAccessFile> file;
        if (!GetEnv()->NewRandomAccessFile(path, &file).ok()) return false;
        // A file that fails while its block is sought loads as nothing: the
        // image must not come back without the block it may carry.
        readable = ReadBlockAtEnd(*file, block, hasBlock).ok();
    }
    eImgFileFormat format = hasBlock ? block.fileFormat : eImgFmtUnknown;
    if (format == eImgFmtUnknown) format = _FormatOf(path);
    if (!readable) format = eImgFmtUnknown;

    bool result = false;
    switch (format) {
        case eImgFmtRaw:
            result = _LoadRaw(path);
            break;
        case eImgFmtBmp:
            result = _LoadBmp(path);
            break;
        case eImgFmtJpg:
            result = _LoadJpg(path);
            break;
        default:
            break;
    }

    // Descriptive fields start from the defaults of a loaded image, then the
    // file's own block (if any) brings back what was saved.
    m_info->procLog.Clear();
    m_info->cadAlignment = ImgAlignment(GetWidth(), GetHeight());
    m_info->imgAlignment = ImgAlignment(GetWidth(), GetHeight());
    m_info->camIdx = eCamNone;
    m_info->status = 65535;
    m_info->memMode = VormexDataStructure::eMemModeRealloc;
    m_info->resolution = ImgRes(10.0, 10.0, 10.0);
    if (hasBlock) _RestoreInfo(block);
    if (m_info->procLog.Size() == 0) m_info->procLog.Add(new ImgProcCmd(VormexDataStructure::eProcLoadFile));
    // A load in memory mode 2 may leave a geometry larger than the buffer;
    // the reset above puts the image in mode 0, where that may not stand.
    _FitSizeToBuffer();
    return result;
}

}  // namespace GrabSystem
