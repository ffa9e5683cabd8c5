#include "fault_env.h"

#include <algorithm>
#include <filesystem>
#include <utility>

using GrabSystem::platform::MutexLock;
using GrabSystem::platform::WritableFile;

namespace grabsys_test {

namespace {

// Path components without empty or "." ones, so that "a//b/" and "a/./b"
// name the same folder as "a/b".
std::vector<std::string> Parts(const std::string& path) {
    std::vector<std::string> parts;
    for (const auto& part : std::filesystem::path(path).lexically_normal())
        if (!part.empty() && part != ".") parts.push_back(part.string());
    return parts;
}

// Fails with the env's verdict. Once failed, the real file is abandoned
// at once, as the system's files do, so nothing of it stays behind.
class FaultFile final : public WritableFile {
public:
    FaultFile(FaultEnv* env, std::unique_ptr<WritableFile> file) : m_env(env), m_file(std::move(file)) {}

    bool Append(const void* data, size_t size) override {
        const FaultEnv::Verdict verdict = m_env->Admit(size);
        if (m_failed) return false;
        const bool written = verdict.pass == 0 || m_file->Append(data, verdict.pass);
        if (written && !verdict.fail) return true;
        m_failed = true;
        m_file->Abandon();
        return false;
    }

    bool Sync() override { return !m_failed && m_file->Sync(); }

    bool Close() override { return !m_failed && m_file->Close(); }

    void Abandon() override {
        if (!m_failed) m_file->Abandon();
    }

private:
    FaultEnv* m_env;
    std::unique_ptr<WritableFile> m_file;
    bool m_failed = false;
};

}  // namespace

FaultEnv::FaultEnv(GrabSystem::platform::Env* target) : EnvWrapper(target) {}

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

void FaultEnv::RefuseFolder(const std::string& dir) {
    std::string native = Target()->NativePath(dir);
    MutexLock lock(m_mutex);
    m_refused.push_back(std::move(native));
}

void FaultEnv::Clear() {
    MutexLock lock(m_mutex);
    m_appends = m_failAt = m_shortAt = m_diskLeft = 0;
    m_diskLimited = m_diskFull = false;
    m_refused.clear();
}

uint64_t FaultEnv::Appends() {
    MutexLock lock(m_mutex);
    return m_appends;
}

FaultEnv::Verdict FaultEnv::Admit(size_t size) {
    MutexLock lock(m_mutex);
    const uint64_t n = ++m_appends;
    if (n == m_failAt || (m_diskLimited && m_diskFull)) return {0, true};
    Verdict verdict{size, false};
    if (n == m_shortAt) verdict = {size / 2, true};
    if (m_diskLimited) {
        if (size > m_diskLeft) {
            verdict = {static_cast<size_t>(std::min<uint64_t>(verdict.pass, m_diskLeft)), true};
            m_diskFull = true;
        }
        m_diskLeft -= verdict.pass;
    }
    return verdict;
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

std::unique_ptr<WritableFile> FaultEnv::NewWritableFile(const std::string& path) {
    if (Refused(path)) return nullptr;
    std::unique_ptr<WritableFile> file = Target()->NewWritableFile(path);
    if (file == nullptr) return nullptr;
    return std::make_unique<FaultFile>(this, std::move(file));
}

std::unique_ptr<WritableFile> FaultEnv::NewAppendableFile(const std::string& path) {
    if (Refused(path)) return nullptr;
    std::unique_ptr<WritableFile> file = Target()->NewAppendableFile(path);
    if (file == nullptr) return nullptr;
    return std::make_unique<FaultFile>(this, std::move(file));
}

// As a read-only folder: what is there already still counts as created.
bool FaultEnv::CreateDirectories(const std::string& path) {
    if (Refused(path)) return Target()->IsDirectory(path);
    return Target()->CreateDirectories(path);
}

}  // namespace grabsys_test
