#include "grabsystem/platform/mem_env.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

namespace GrabSystem {
namespace platform {

namespace {

// The folder part of a clean path; "" for a name at the root.
std::string Parent(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return std::string();
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::string Name(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool IsRoot(const std::string& dir) {
    return dir.empty() || dir == "/" || dir == "." ||
           (dir.size() == 2 && dir[1] == ':' && std::isalpha(static_cast<unsigned char>(dir[0])));
}

}  // namespace

// Writes into a buffer of its own; Close() puts the buffer in place.
class MemEnv::File final : public WritableFile {
public:
    File(MemEnv* env, std::string path, std::vector<unsigned char> start)
        : m_env(env), m_path(std::move(path)), m_bytes(std::move(start)) {}

    Status Append(const void* data, size_t size) override {
        if (m_closed) return Status::IOError(m_path, "the file is already finished");
        const auto* p = static_cast<const unsigned char*>(data);
        m_bytes.insert(m_bytes.end(), p, p + size);
        return Status::OK();
    }
    Status Sync() override {
        return m_closed ? Status::IOError(m_path, "the file is already finished") : Status::OK();
    }
    Status Close() override {
        if (m_closed) return Status::IOError(m_path, "the file is already finished");
        m_closed = true;
        if (m_env->Publish(m_path, std::make_shared<const std::vector<unsigned char>>(std::move(m_bytes))))
            return Status::OK();
        return Status::NotFound(m_path, "cannot finish the file: its folder is gone");
    }
    void Abandon() override { m_closed = true; }

private:
    MemEnv* const m_env;
    const std::string m_path;
    std::vector<unsigned char> m_bytes;
    bool m_closed = false;
};

namespace {

class MemReader final : public RandomAccessFile {
public:
    explicit MemReader(std::shared_ptr<const std::vector<unsigned char>> bytes) : m_bytes(std::move(bytes)) {}
    uint64_t Size() const override { return m_bytes->size(); }
    Status Read(uint64_t offset, size_t n, void* dst, size_t* got) const override {
        *got = offset < m_bytes->size() ? static_cast<size_t>(std::min<uint64_t>(n, m_bytes->size() - offset)) : 0;
        if (*got != 0) std::memcpy(dst, m_bytes->data() + offset, *got);
        return Status::OK();
    }

private:
    const std::shared_ptr<const std::vector<unsigned char>> m_bytes;
};

}  // namespace

MemEnv::MemEnv(Env* base) : EnvWrapper(base) {}

std::string MemEnv::Clean(const std::string& path) {
    std::string out;
    for (char c : path) {
        if (c == '\\') c = '/';
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out += c;
    }
    if (out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}

size_t MemEnv::FileCount() const {
    MutexLock lock(m_mutex);
    return m_files.size();
}

uint64_t MemEnv::BytesHeld() const {
    MutexLock lock(m_mutex);
    uint64_t bytes = 0;
    for (const auto& file : m_files) bytes += file.second->size();
    return bytes;
}

bool MemEnv::FolderExistsLocked(const std::string& dir) const { return IsRoot(dir) || m_folders.count(dir) != 0; }

Status MemEnv::CanHoldFileLocked(const std::string& path) const {
    if (path.empty() || IsRoot(path)) return Status::InvalidArgument(path, "no file name");
    if (m_folders.count(path) != 0) return Status::IOError(path, "cannot write a file: the name is a folder");
    if (!FolderExistsLocked(Parent(path))) return Status::NotFound(path, "cannot create the file: no such folder");
    return Status::OK();
}

bool MemEnv::Publish(const std::string& path, Contents contents) {
    MutexLock lock(m_mutex);
    if (!CanHoldFileLocked(path).ok()) return false;
    m_files[path] = std::move(contents);
    return true;
}

Status MemEnv::NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    result->reset();
    const std::string clean = Clean(path);
    MutexLock lock(m_mutex);
    const Status s = CanHoldFileLocked(clean);
    if (s.ok()) *result = std::make_unique<File>(this, clean, std::vector<unsigned char>());
    return s;
}

Status MemEnv::NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    result->reset();
    const std::string clean = Clean(path);
    MutexLock lock(m_mutex);
    const Status s = CanHoldFileLocked(clean);
    if (!s.ok()) return s;
    const auto it = m_files.find(clean);
    *result = std::make_unique<File>(this, clean, it == m_files.end() ? std::vector<unsigned char>() : *it->second);
    return s;
}

Status MemEnv::NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) {
    result->reset();
    const std::string clean = Clean(path);
    MutexLock lock(m_mutex);
    const auto it = m_files.find(clean);
    if (it == m_files.end()) {
        if (m_folders.count(clean) != 0) return Status::IOError(clean, "cannot read: not a regular file");
        return Status::NotFound(clean, "cannot open for reading: no such file");
    }
    *result = std::make_unique<MemReader>(it->second);
    return Status::OK();
}

bool MemEnv::FileExists(const std::string& path) {
    MutexLock lock(m_mutex);
    return m_files.count(Clean(path)) != 0;
}

bool MemEnv::IsDirectory(const std::string& path) {
    const std::string clean = Clean(path);
    MutexLock lock(m_mutex);
    return FolderExistsLocked(clean);
}

Status MemEnv::CreateDirectories(const std::string& path) {
    const std::string clean = Clean(path);
    if (clean.empty()) return Status::InvalidArgument(path, "no folder name");
    MutexLock lock(m_mutex);
    std::vector<std::string> missing;
    for (std::string dir = clean; !FolderExistsLocked(dir); dir = Parent(dir)) {
        if (m_files.count(dir) != 0) return Status::IOError(clean, "cannot create the folder: a file is in the way");
        missing.push_back(dir);
    }
    m_folders.insert(missing.begin(), missing.end());
    return Status::OK();
}

Status MemEnv::ListFiles(const std::string& dir, std::vector<std::string>* names) {
    names->clear();
    const std::string clean = Clean(dir);
    MutexLock lock(m_mutex);
    if (!FolderExistsLocked(clean)) return Status::NotFound(clean, "cannot list the folder: no such folder");
    for (const auto& file : m_files)
        if (Parent(file.first) == clean) names->push_back(Name(file.first));
    return Status::OK();
}

Status MemEnv::RemoveFile(const std::string& path) {
    const std::string clean = Clean(path);
    MutexLock lock(m_mutex);
    if (m_files.erase(clean) == 0) return Status::NotFound(clean, "cannot remove: no such file");
    return Status::OK();
}

Status MemEnv::RenameFile(const std::string& from, const std::string& to) {
    const std::string source = Clean(from), target = Clean(to);
    MutexLock lock(m_mutex);
    const auto it = m_files.find(source);
    if (it == m_files.end()) return Status::NotFound(source, "cannot rename: no such file");
    const Status s = CanHoldFileLocked(target);
    if (!s.ok()) return s;
    Contents contents = it->second;
    m_files.erase(it);
    m_files[target] = std::move(contents);
    return Status::OK();
}

std::string MemEnv::NativePath(const std::string& path) { return Clean(path); }

}  // namespace platform
}  // namespace GrabSystem
