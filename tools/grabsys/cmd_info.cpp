// grabsys info: what capture::DescribeFile says of each file, as text or
// JSON; exit 1 when any file is missing, foreign or damaged.
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
        capture::FileDescription description;
        const Status described =
            capture::DescribeFile(path, format::Bytes(data.get(), static_cast<size_t>(size)), description);
        if (!described.ok()) {
            status = Fail(described.ToString());
            continue;
        }
        Report r;
        if (o.json) r.Str("file", path);
        for (const capture::FileDescription::Field& f : description.fields) {
            if (f.isText)
                r.Str(f.key, f.text);
            else
                r.Num(f.key, f.number);
        }
        for (const auto& record : description.records) r.Row(record);
        if (o.json) {
            std::cout << (first ? "" : ", ");
            first = false;
            r.Print(std::cout, true);
        } else {
            std::cout << path << "\n";
            r.Print(std::cout, false);
        }
        // A damaged file is described as far as it reads, and still fails
        // the command, so that a script learns of it from the exit status.
        if (!description.damage.empty())
            status = Fail(path + ": " + FileKindName(description.kind) + ": " + description.damage);
    }
    if (o.json) std::cout << "]\n";
    return status;
}

}  // namespace

void RegisterInfo(CLI::App& app, const Output&, Runner& run) {
    auto o = std::make_shared<InfoOptions>();
    CLI::App* info = app.add_subcommand("info", "Identify .armraw files, debug packages, raw, BMP and float raw images, print their headers");
    info->add_option("FILE", o->files, "Files to describe")->required()->check(CLI::ExistingFile);
    info->add_flag("--json", o->json, "One JSON array of objects, for scripts");
    info->footer(
        "A damaged file is described as far as it reads, and named on stderr with the cause; the exit status is then 1.\n"
        "Example:\n  grabsys info 12.armraw capture.dbg frame.raw --json");
    RunWhenParsed(info, run, [o] { return RunInfo(*o); });
}

}  // namespace grabsys
