// grabsys info: identifies a file of the system and prints its header.
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
};

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

const char* FormatName(VormexDataStructure::eImgFileFormat format) {
    switch (format) {
        case VormexDataStructure::eImgFmtRaw: return "raw";
        case VormexDataStructure::eImgFmtFFC: return "flat-field table";
        case VormexDataStructure::eImgFmtBmp: return "BMP";
        case VormexDataStructure::eImgFmtJpg: return "JPEG";
        default: return "unknown";
    }
}

// "yes", or "no: " and why.
std::string YesOr(bool yes, const std::string& why) { return yes ? "yes" : "no: " + why; }

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

bool DescribeArm(format::Bytes file, Report& r) {
    format::ArmViewSummary s;
    if (format::SummarizeArmView(file, s) != format::Status::kOk) return false;
    const OneViewArmImageDataHeader& h = s.header;
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
    for (const format::ArmRecordView& record : s.records) r.Row({{"kind", record.kind}, {"lz4_bytes", record.length}});
    r.Num("file_bytes", static_cast<double>(file.size));
    r.Str("complete", YesOr(s.complete, "the records do not end where the file does"));
    const double frames = static_cast<double>(h.sinFrameCount) + h.whiteFrameCount;
    if (s.compressedBytes != 0)
        r.Num("compression_ratio", frames * h.width * h.height / static_cast<double>(s.compressedBytes));
    return true;
}

bool DescribeImagePackage(format::Bytes file, Report& r) {
    format::ImagePackageSummary s;
    if (format::SummarizeImagePackage(file, s) != format::Status::kOk) return false;
    r.Str("type", "image debug package");
    r.Num("version", s.head.version);
    r.Num("jump_index", s.head.jumpIdx);
    r.Num("data_bytes", static_cast<double>(s.dataBytes));
    for (const CDebugImgPackageInfoP& p : s.records)
        r.Row({{"width", p.Width}, {"height", p.Height}, {"frames", p.FrameCount}, {"group", p.GroupIdx}, {"camera", p.CamIdx}});
    return true;
}

bool DescribeGeneralPackage(format::Bytes file, Report& r) {
    format::GeneralPackageSummary s;
    if (format::SummarizeGeneralPackage(file, s) != format::Status::kOk) return false;
    // The blocks are walked over a decrypted copy of the data area.
    std::vector<unsigned char> plain(s.data.data, s.data.data + s.data.size);
    DrasselSpace::FileToolP::EncryptData(plain.data(), plain.size(),
                                         reinterpret_cast<const unsigned char*>(CDebugImgPackageP::kKey),
                                         DrasselSpace::FileToolP::kKeyLength);
    const format::PackageBlocksSummary blocks = format::SummarizePackageBlocks(format::Bytes(plain.data(), plain.size()));
    const bool project = s.head.flag == 1;
    r.Str("type", "general debug package");
    r.Num("version", s.head.version);
    r.Str("project_file", project ? "yes" : "no");
    if (project) r.Num("project_file_bytes", blocks.firstLength);
    r.Num("frame_blocks", static_cast<double>(blocks.blocks - (project && blocks.blocks ? 1 : 0)));
    r.Str("complete", YesOr(blocks.complete, "a block runs past the end of the file"));
    for (const CDebugPackageInfoP& p : s.records)
        r.Row({{"jump", p.JumpIdx}, {"width", p.Width}, {"height", p.Height}, {"frames", p.FrameCount},
               {"group", p.GroupIdx}, {"camera", p.CamIdx}});
    return true;
}

// An image file of this library: a BMP, or a raw image or any other that
// ends with an information block.
bool DescribeImageFile(format::Bytes file, Report& r) {
    const bool bmp = format::HasBmpSignature(file);
    format::RawImageView raw;
    const bool isRaw = !bmp && format::DecodeRawImage(file, raw) == format::Status::kOk;
    CImgInfo info;
    const bool found = isRaw ? raw.hasInfo : format::DecodeInfoBlockAtEnd(file, info) == format::Status::kOk;
    if (isRaw) info = raw.info;
    if (!found && !bmp && !isRaw) return false;
    r.Str("type", bmp ? "BMP image" : isRaw ? "raw image" : std::string(FormatName(info.fileFormat)) + " image");
    r.Str("information_block", found ? "yes" : "no");
    if (found) DescribeInfo(info, r);
    if (isRaw) r.Str("complete", YesOr(raw.complete, "the pixels end early"));
    if (bmp && !found) {
        format::BmpLayout layout;
        const format::Status status = format::DecodeBmpLayout(file, layout);
        r.Str("readable", YesOr(status == format::Status::kOk, format::Describe(status)));
        r.Num("width", layout.width);
        r.Num("height", layout.height);
        r.Num("channels", layout.channels);
    }
    return true;
}

int RunInfo(const InfoOptions& o) {
    int status = 0;
    bool first = true;
    if (o.json) std::cout << "[";
    for (const std::string& path : o.files) {
        std::unique_ptr<unsigned char[]> data;
        uint64_t size = 0;
        const Status read = ToolEnv()->ReadFile(path, data, size);
        if (!read.ok()) {
            status = Fail(read.ToString());
            continue;
        }
        const format::Bytes file(data.get(), static_cast<size_t>(size));
        Report r;
        if (o.json) r.Str("file", path);
        const bool armName = DrasselSpace::CWinHelper::GetFileExtension(path) == ".armraw";
        // The name decides only between kinds that could both read the file.
        const bool known = (armName && DescribeArm(file, r)) || DescribeImageFile(file, r) ||
                           DescribeImagePackage(file, r) || DescribeGeneralPackage(file, r) || DescribeArm(file, r);
        if (!known) {
            status = Fail(path + ": not a file of this system (arm view, debug package, raw or BMP image)");
            continue;
        }
        if (o.json) {
            std::cout << (first ? "" : ", ");
            first = false;
            r.Print(std::cout, true);
        } else {
            std::cout << path << "\n";
            r.Print(std::cout, false);
        }
    }
    if (o.json) std::cout << "]\n";
    return status;
}

}  // namespace

void RegisterInfo(CLI::App& app, const Output&, Runner& run) {
    auto o = std::make_shared<InfoOptions>();
    CLI::App* info = app.add_subcommand("info", "Identify .armraw files, debug packages, raw and BMP images, print their headers");
    info->add_option("FILE", o->files, "Files to describe")->required()->check(CLI::ExistingFile);
    info->add_flag("--json", o->json, "One JSON array of objects, for scripts");
    info->footer("Example:\n  grabsys info 12.armraw capture.dbg frame.raw --json");
    RunWhenParsed(info, run, [o] { return RunInfo(*o); });
}

}  // namespace grabsys
