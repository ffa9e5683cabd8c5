#include "grabsystem/capture/ffc_file.h"

#include <utility>

#include "grabsystem/platform/os/os.h"

namespace GrabSystem {
namespace capture {

Status ReadFfcTables(const std::string& path, std::vector<std::unique_ptr<CFFCTableP>>& tables, platform::Env* env) {
    std::unique_ptr<unsigned char[]> bytes;
    uint64_t size = 0;
    const Status read = platform::Env::Or(env)->ReadFile(path, bytes, size);
    if (!read.ok()) return read;
    // The tables read from a stream, as Extract takes them.
    platform::ReadStream stream(std::move(bytes), size);
    if (stream.Stream() == nullptr) return Status::IOError(path, "no stream over the file's bytes");
    std::vector<std::unique_ptr<CFFCTableP>> found;
    while (platform::FileTell(stream.Stream()) >= 0 && static_cast<uint64_t>(platform::FileTell(stream.Stream())) < size) {
        auto table = std::make_unique<CFFCTableP>();
        if (!table->Extract(stream.Stream()))
            return Status::Corruption(path, "flat-field table " + std::to_string(found.size()) + " is damaged or cut short");
        found.push_back(std::move(table));
    }
    if (found.empty()) return Status::Corruption(path, "no flat-field table in the file");
    tables = std::move(found);
    return Status::OK();
}

Status WriteFfcTables(const std::string& path, const std::vector<CFFCTableP*>& tables, platform::Env* env) {
    platform::MemoryStream stream;
    if (stream.Stream() == nullptr) return Status::IOError(path, "no stream to lay out the tables in");
    for (size_t i = 0; i < tables.size(); ++i)
        if (tables[i] == nullptr || !tables[i]->Append(stream.Stream()))
            return Status::InvalidArgument(path, "flat-field table " + std::to_string(i) + " cannot be written");
    std::vector<unsigned char> bytes;
    if (!stream.Take(bytes)) return Status::IOError(path, "the tables could not be laid out in memory");
    return platform::Env::Or(env)->WriteFile(path, bytes.data(), bytes.size());
}

}  // namespace capture
}  // namespace GrabSystem
