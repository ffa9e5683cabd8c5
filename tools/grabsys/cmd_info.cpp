// grabsys info: identifies a file of the system and prints its header.
#include <cstring>
#include <iostream>
#include <memory>
#include <cstdio>
#include <string>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;

// An ordered set of fields that prints as "key: value" lines or as JSON.
class Report {
public:
    void Num(const std::string& key, double value) { m_fields.push_back({key, Number(value), false}); }
    void Str(const std::string& key, const std::string& value) { m_fields.push_back({key, value, true}); }
    // One table row per record.
    void Row(std::vector<std::pair<std::string, double>> row) { m_rows.push_back(std::move(row)); }

    // Whole numbers print whole; others with four decimals.
    static std::string Number(double value) {
        char text[64];
        if (value == static_cast<double>(static_cast<long long>(value)))
            std::snprintf(text, sizeof text, "%lld", static_cast<long long>(value));
        else
            std::snprintf(text, sizeof text, "%.4f", value);
        return text;
    }

    void Print(std::ostream& out, bool json) const {
        if (!json) {
            for (const Field& f : m_fields) out << "  " << f.key << ": " << f.value << "\n";
            for (size_t i = 0; i < m_rows.size(); ++i) {
                out << "  record " << i << ":";
                for (const auto& [k, v] : m_rows[i]) out << " " << k << "=" << Number(v);
                out << "\n";
            }
            return;
        }
        out << "{";
        for (size_t i = 0; i < m_fields.size(); ++i) {
            const Field& f = m_fields[i];
            out << (i ? ", " : "") << Quote(f.key) << ": " << (f.quoted ? Quote(f.value) : f.value);
        }
        out << ", \"records\": [";
        for (size_t i = 0; i < m_rows.size(); ++i) {
            out << (i ? ", " : "") << "{";
            for (size_t j = 0; j < m_rows[i].size(); ++j)
                out << (j ? ", " : "") << Quote(m_rows[i][j].first) << ": " << Number(m_rows[i][j].second);
            out << "}";
        }
        out << "]}";
    }

private:
    static std::string Quote(const std::string& s) {
        std::string q = "\"";
        for (char c : s) {
            if (c == '"' || c == '\\') q += '\\';
            if (static_cast<unsigned char>(c) < 0x20) continue;
            q += c;
        }
        return q + "\"";
    }
    struct Field {
        std::string key, value;
        bool quoted;
    };
    std::vector<Field> m_fields;
    std::vector<std::vector<std::pair<std::string, double>>> m_rows;
};

uint32_t Word(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

const char* FormatName(int format) {
    switch (format) {
        case 1: return "raw";
        case 2: return "flat-field table";
        case 3: return "BMP";
        case 4: return "JPEG";
        default: return "unknown";
    }
}

void DescribeInfo(const CImgInfo& info, Report& r) {
    r.Num("width", info.size.GetWidth());
    r.Num("height", info.size.GetHeight());
    r.Num("channels", info.size.GetChannels());
    r.Num("bits_per_channel", info.size.GetBitPerChannel());
    r.Num("pixel_bytes", static_cast<double>(info.size.GetByteSize()));
    r.Str("file_format", FormatName(info.fileFormat));
    r.Num("memory_mode", info.memMode);
    r.Num("camera", info.camIdx);
    r.Num("frame_attribute", info.frameAttr);
    r.Num("resolution_x", info.resolution.dX);
    r.Num("resolution_y", info.resolution.dY);
    r.Num("resolution_z", info.resolution.dZ);
    r.Num("processing_steps", static_cast<double>(info.procLog.Size()));
}

bool DescribeArm(const unsigned char* d, uint64_t size, Report& r) {
    if (size < 1024) return false;
    OneViewArmImageDataHeader h;
    std::memcpy(&h, d, sizeof h);
    if (h.version == 0 || h.version > 2) return false;
    r.Str("type", "arm view (.armraw)");
    r.Num("version", h.version);
    r.Num("sin_frames", h.sinFrameCount);
    r.Num("white_frames", h.whiteFrameCount);
    r.Num("width", h.width);
    r.Num("height", h.height);
    r.Num("cameras", h.camCount);
    r.Num("sin_dim_a", h.sinDimA);
    r.Num("sin_dim_b", h.sinDimB);
    r.Num("sin_dim_c", h.sinDimC);
    uint64_t at = 1024, compressed = 0;
    const uint64_t frames = uint64_t{h.sinFrameCount} + h.whiteFrameCount;
    for (uint64_t f = 0; f < frames && at + 64 <= size; ++f) {
        const uint32_t n = Word(d + at + 4);
        r.Row({{"kind", Word(d + at)}, {"lz4_bytes", n}});
        compressed += n;
        at += 64 + uint64_t{n};
    }
    r.Num("file_bytes", static_cast<double>(size));
    r.Str("complete", at == size ? "yes" : "no: the records do not end where the file does");
    if (compressed != 0)
        r.Num("compression_ratio", static_cast<double>(frames * h.width * h.height) / static_cast<double>(compressed));
    return true;
}

bool DescribeImagePackage(const unsigned char* d, uint64_t size, Report& r) {
    const uint32_t version = Word(d), count = Word(d + 4);
    const uint64_t recordsAt = version == 1 ? 8 : 12;
    if (count == 0 || recordsAt + 20ull * count > size) return false;
    uint64_t data = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* p = d + recordsAt + 20ull * i;
        data += uint64_t{Word(p)} * Word(p + 4) * Word(p + 8);
    }
    if (recordsAt + 20ull * count + data != size) return false;
    r.Str("type", "image debug package");
    r.Num("version", version);
    r.Num("jump_index", version == 1 ? 0 : Word(d + 8));
    r.Num("data_bytes", static_cast<double>(data));
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* p = d + recordsAt + 20ull * i;
        r.Row({{"width", Word(p)}, {"height", Word(p + 4)}, {"frames", Word(p + 8)}, {"group", Word(p + 12)}, {"camera", Word(p + 16)}});
    }
    return true;
}

bool DescribeGeneralPackage(const unsigned char* d, uint64_t size, Report& r) {
    const uint32_t flag = Word(d + 4), count = Word(d + 8);
    const uint64_t header = 12 + 24ull * count;
    if (count == 0 || header > size) return false;
    // Decrypt a copy of the data area to walk its blocks.
    std::vector<unsigned char> data(d + header, d + size);
    DrasselSpace::FileToolP::EncryptData(data.data(), data.size(),
                                         reinterpret_cast<const unsigned char*>(CDebugImgPackageP::kKey), 16);
    uint64_t at = 0, blocks = 0, project = 0;
    while (at + 4 <= data.size()) {
        const uint32_t n = Word(data.data() + at);
        if (at + 4 + n > data.size()) break;
        if (blocks == 0 && flag == 1) project = n;
        at += 4 + uint64_t{n};
        ++blocks;
    }
    r.Str("type", "general debug package");
    r.Num("version", Word(d));
    r.Str("project_file", flag == 1 ? "yes" : "no");
    if (flag == 1) r.Num("project_file_bytes", static_cast<double>(project));
    r.Num("frame_blocks", static_cast<double>(blocks - (flag == 1 && blocks ? 1 : 0)));
    r.Str("complete", at == data.size() ? "yes" : "no: a block runs past the end of the file");
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* p = d + 12 + 24ull * i;
        r.Row({{"jump", Word(p)}, {"width", Word(p + 4)}, {"height", Word(p + 8)}, {"frames", Word(p + 12)},
               {"group", Word(p + 16)}, {"camera", Word(p + 20)}});
    }
    return true;
}

// An image file of this library (raw or BMP) that ends with an info block.
bool DescribeImageFile(const std::string& path, const unsigned char* d, uint64_t size, Report& r) {
    FILE* f = GrabSystem::platform::Env::Default()->OpenStream(path, "rb");
    if (f == nullptr) return false;
    CImgInfo info;
    const bool found = info.Extract(f, false);
    std::fclose(f);
    const bool bmp = size >= 2 && d[0] == 'B' && d[1] == 'M';
    if (!found && !bmp) return false;
    r.Str("type", bmp ? "BMP image" : std::string(FormatName(info.fileFormat)) + " image");
    r.Str("information_block", found ? "yes" : "no");
    if (found) DescribeInfo(info, r);
    if (bmp && !found) {
        unsigned char* px = nullptr;
        unsigned w = 0, h = 0;
        DrasselSpace::ePixelFormatP fmt{};
        const bool ok = DrasselSpace::ImageIOToolP::DecodeBMP(d, size, px, w, h, fmt);
        delete[] px;
        r.Str("readable", ok ? "yes" : "no");
        r.Num("width", w);
        r.Num("height", h);
        r.Num("channels", fmt);
    }
    return true;
}

}  // namespace

int RunInfo(const std::vector<std::string>& files, bool json, const Output&) {
    if (files.empty()) return Fail("give at least one file");
    int status = 0;
    bool first = true;
    if (json) std::cout << "[";
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string& path = files[i];
        unsigned char* raw = nullptr;
        unsigned long long size = 0;
        if (!DrasselSpace::FileToolP::LoadDataFromFile(path, raw, size)) {
            status = Fail(path + ": cannot read the file");
            continue;
        }
        std::unique_ptr<unsigned char[]> data(raw);
        Report r;
        if (json) r.Str("file", path);
        const std::string ext = DrasselSpace::CWinHelper::GetFileExtension(path);
        const unsigned char* d = data.get();
        const bool known = (ext == ".armraw" && DescribeArm(d, size, r)) || DescribeImageFile(path, d, size, r) ||
                           (size >= 12 && (Word(d) == 1 || Word(d) == 2) && DescribeImagePackage(d, size, r)) ||
                           (size >= 12 && Word(d) == 3 && DescribeGeneralPackage(d, size, r)) ||
                           DescribeArm(d, size, r);
        if (!known) {
            status = Fail(path + ": not a file of this system (arm view, debug package, raw or BMP image)");
            continue;
        }
        if (json) {
            std::cout << (first ? "" : ", ");
            first = false;
            r.Print(std::cout, true);
        } else {
            std::cout << path << "\n";
            r.Print(std::cout, false);
        }
    }
    if (json) std::cout << "]\n";
    return status;
}

}  // namespace grabsys
