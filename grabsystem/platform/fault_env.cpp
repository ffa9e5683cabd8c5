#include "grabsystem/platform/fault_env.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace GrabSystem {
namespace platform {

namespace {

// Path components without empty or "." ones, so that "a//b/" and "a/./b"
// name the same folder as "a/b".
std::vector<std::string> Parts(const std::string& path) {
    std::vector<std::string> parts;
    for (const auto& part : std::filesystem::path(path).lexically_normal())
        if (!part.empty() && part != ".") parts.push_back(part.string());
    return parts;
}

std::string Injected(const char* what) { return std::string(what) + " (injected fault)"; }

// Fails with the env's verdict. Once failed, the real file is abandoned at
// once, as the system's files do, so nothing of it stays behind.
class FaultFile final : public WritableFile {
public:
    FaultFile(FaultEnv* env, std::unique_ptr<WritableFile> file, std::string name)
        : m_env(env), m_file(std::move(file)), m_name(std::move(name)) {}

    Status Append(const void* data, size_t size) override {
        const FaultEnv::Verdict verdict = m_env->AdmitWrite(size);
        if (!m_error.ok()) return m_error;
        const Status written = verdict.pass == 0 ? Status::OK() : m_file->Append(data, verdict.pass);
        if (!written.ok()) return Failed(written);
        if (!verdict.fail) return written;
        return Failed(Status::IOError(m_name, Injected(verdict.why) + " after " + std::to_string(verdict.pass) +
                                                  " of " + std::to_string(size) + " bytes"));
    }

    Status Sync() override {
        if (!m_error.ok()) return m_error;
        if (!m_env->AdmitSync()) return Failed(Status::IOError(m_name, Injected("the device failed to sync")));
        return m_file->Sync();
    }

    Status Close() override { return m_error.ok() ? m_file->Close() : m_error; }

    void Abandon() override {
        if (m_error.ok()) m_file->Abandon();
    }

private:
    Status Failed(Status s) {
        m_error = std::move(s);
        m_file->Abandon();
        return m_error;
    }

    FaultEnv* const m_env;
    std::unique_ptr<WritableFile> m_file;
    const std::string m_name;
    Status m_error;
};

class FaultReader final : public RandomAccessFile {
public:
    FaultReader(FaultEnv* env, std::unique_ptr<RandomAccessFile> file, std::string name)
        : m_env(env), m_file(std::move(file)), m_name(std::move(name)) {}

    uint64_t Size() const override { return m_file->Size(); }

    Status Read(uint64_t offset, size_t n, void* dst, size_t* got) const override {
        const FaultEnv::Verdict verdict = m_env->AdmitRead(n);
        const Status s = m_file->Read(offset, verdict.pass, dst, got);
        if (!s.ok() || !verdict.fail) return s;
        return Status::IOError(m_name, Injected(verdict.why) + " at byte " + std::to_string(offset + *got));
    }

private:
    FaultEnv* const m_env;
    std::unique_ptr<RandomAccessFile> m_file;
    const std::string m_name;
};

}  // namespace

FaultEnv::FaultEnv(Env* target) : EnvWrapper(target) {}

void FaultEnv::FailWrite(uint64_t n) {
    MutexLock lock(m_mutex);
    m_failAt = n == 0 ? 0 : m_appends + n;
}

void FaultEnv::ShortWrite(uint64_t n) {
    MutexLock lock(m_mutex);
    m_shortAt = n == 0 ? 0 : m_appends + n;
}

void FaultEnv::FillDiskAfter(uint64_t bytes) {
    MutexLock lock(m_mutex);
    m_diskLimited = true;
    m_diskFull = false;
    m_diskLeft = bytes;
}

void FaultEnv::FailSync(uint64_t n) {
    MutexLock lock(m_mutex);
    m_syncFailAt = n == 0 ? 0 : m_syncs + n;
}

void FaultEnv::RefuseFolder(const std::string& dir) {
    std::string native = Target()->NativePath(dir);
    MutexLock lock(m_mutex);
    m_refused.push_back(std::move(native));
}

void FaultEnv::FailOpen(uint64_t n) {
    MutexLock lock(m_mutex);
    m_openFailAt = n == 0 ? 0 : m_opens + n;
}

void FaultEnv::FailRead(uint64_t n) {
    MutexLock lock(m_mutex);
    m_readFailAt = n == 0 ? 0 : m_reads + n;
}

void FaultEnv::ShortRead(uint64_t n) {
    MutexLock lock(m_mutex);
    m_readShortAt = n == 0 ? 0 : m_reads + n;
}

void FaultEnv::Clear() {
    MutexLock lock(m_mutex);
    m_appends = m_syncs = m_opens = m_reads = 0;
    m_failAt = m_shortAt = m_syncFailAt = m_openFailAt = m_readFailAt = m_readShortAt = m_diskLeft = 0;
    m_diskLimited = m_diskFull = false;
    m_refused.clear();
}

uint64_t FaultEnv::Appends() {
    MutexLock lock(m_mutex);
    return m_appends;
}

uint64_t FaultEnv::Syncs() {
    MutexLock lock(m_mutex);
    return m_syncs;
}

uint64_t FaultEnv::Opens() {
    MutexLock lock(m_mutex);
    return m_opens;
}

uint64_t FaultEnv::Reads() {
    MutexLock lock(m_mutex);
    return m_reads;
}

FaultEnv::Verdict FaultEnv::AdmitWrite(size_t size) {
    MutexLock lock(m_mutex);
    const uint64_t n = ++m_appends;
    if (m_diskLimited && m_diskFull) return {0, true, "no space left on device"};
    if (n == m_failAt) return {0, true, "write failed"};
    Verdict verdict{size, false, ""};
    if (n == m_shortAt) verdict = {size / 2, true, "write cut short"};
    if (m_diskLimited) {
        if (size > m_diskLeft) {
            verdict = {static_cast<size_t>(std::min<uint64_t>(verdict.pass, m_diskLeft)), true,
                       "no space left on device"};
            m_diskFull = true;
        }
        m_diskLeft -= verdict.pass;
    }
    return verdict;
}

FaultEnv::Verdict FaultEnv::AdmitRead(size_t size) {
    MutexLock lock(m_mutex);
    const uint64_t n = ++m_reads;
    if (n == m_readFailAt) return {0, true, "read failed"};
    if (n == m_readShortAt) return {size / 2, true, "read cut short"};
    return {size, false, ""};
}

bool FaultEnv::AdmitSync() {
    MutexLock lock(m_mutex);
    return ++m_syncs != m_syncFailAt;
}

bool FaultEnv::AdmitOpen() {
    MutexLock lock(m_mutex);
    return ++m_opens != m_openFailAt;
}

// A folder refuses what would be created inside it; the folder itself
// belongs to its parent.
bool FaultEnv::Refused(const std::string& path) {
    const std::vector<std::string> parts = Parts(Target()->NativePath(path));
    MutexLock lock(m_mutex);
    for (const std::string& dir : m_refused) {
        const std::vector<std::string> dirParts = Parts(dir);
        if (parts.size() > dirParts.size() && std::equal(dirParts.begin(), dirParts.end(), parts.begin())) return true;
    }
    return false;
}

Status FaultEnv::NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    result->reset();
    const std::string name = Target()->NativePath(path);
    if (Refused(path)) return Status::IOError(name, Injected("cannot create the file: the folder is read-only"));
    std::unique_ptr<WritableFile> file;
    const Status s = Target()->NewWritableFile(path, &file);
    if (s.ok()) *result = std::make_unique<FaultFile>(this, std::move(file), name);
    return s;
}

Status FaultEnv::NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    result->reset();
    const std::string name = Target()->NativePath(path);
    if (Refused(path)) return Status::IOError(name, Injected("cannot open for appending: the folder is read-only"));
    std::unique_ptr<WritableFile> file;
    const Status s = Target()->NewAppendableFile(path, &file);
    if (s.ok()) *result = std::make_unique<FaultFile>(this, std::move(file), name);
    return s;
}

Status FaultEnv::NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) {
    result->reset();
    const std::string name = Target()->NativePath(path);
    if (!AdmitOpen()) return Status::IOError(name, Injected("cannot open for reading"));
    std::unique_ptr<RandomAccessFile> file;
    const Status s = Target()->NewRandomAccessFile(path, &file);
    if (s.ok()) *result = std::make_unique<FaultReader>(this, std::move(file), name);
    return s;
}

// As a read-only folder: what is there already still counts as created.
Status FaultEnv::CreateDirectories(const std::string& path) {
    if (Refused(path) && !Target()->IsDirectory(path))
        return Status::IOError(Target()->NativePath(path), Injected("cannot create the folder: its parent is read-only"));
    return Target()->CreateDirectories(path);
}

Status FaultEnv::ListFiles(const std::string& dir, std::vector<std::string>* names) {
    if (!AdmitOpen()) {
        names->clear();
        return Status::IOError(Target()->NativePath(dir), Injected("cannot list the folder"));
    }
    return Target()->ListFiles(dir, names);
}

}  // namespace platform
}  // namespace GrabSystem
