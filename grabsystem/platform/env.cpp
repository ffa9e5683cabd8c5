#include "grabsystem/platform/env.h"

#include <atomic>
#include <cctype>
#include <utility>

namespace GrabSystem {
namespace platform {

namespace {

// An atomic pointer rather than a lock: Default() is asked for on every file
// operation, from any thread, and must never block.
std::atomic<Env*> g_installed{nullptr};

Env* BuiltInDefault() {
#ifdef _WIN32
    return Env::System();
#else
    static DriveMappingEnv mapped(Env::System(), "");
    return &mapped;
#endif
}

}  // namespace

WritableFile::~WritableFile() = default;

Env::~Env() = default;

Env* Env::Default() {
    Env* installed = g_installed.load(std::memory_order_acquire);
    return installed != nullptr ? installed : BuiltInDefault();
}

Env* Env::Install(Env* env) { return g_installed.exchange(env, std::memory_order_acq_rel); }

// ---------------------------------------------------------------- EnvWrapper

std::unique_ptr<WritableFile> EnvWrapper::NewWritableFile(const std::string& path) {
    return m_target->NewWritableFile(path);
}

std::unique_ptr<WritableFile> EnvWrapper::NewAppendableFile(const std::string& path) {
    return m_target->NewAppendableFile(path);
}

FILE* EnvWrapper::OpenStream(const std::string& path, const char* mode) { return m_target->OpenStream(path, mode); }

bool EnvWrapper::ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size) {
    return m_target->ReadFile(path, data, size);
}

bool EnvWrapper::FileExists(const std::string& path) { return m_target->FileExists(path); }

bool EnvWrapper::IsDirectory(const std::string& path) { return m_target->IsDirectory(path); }

bool EnvWrapper::CreateDirectories(const std::string& path) { return m_target->CreateDirectories(path); }

bool EnvWrapper::ListFiles(const std::string& dir, std::vector<std::string>& names) {
    return m_target->ListFiles(dir, names);
}

bool EnvWrapper::RemoveFile(const std::string& path) { return m_target->RemoveFile(path); }

bool EnvWrapper::RenameFile(const std::string& from, const std::string& to) { return m_target->RenameFile(from, to); }

std::string EnvWrapper::NativePath(const std::string& path) { return m_target->NativePath(path); }

uint32_t EnvWrapper::NowMs() { return m_target->NowMs(); }

void EnvWrapper::SleepMs(uint32_t ms) { m_target->SleepMs(ms); }

ThreadHandle EnvWrapper::StartThread(ThreadFunc func, void* arg) { return m_target->StartThread(func, arg); }

bool EnvWrapper::SetThreadPriority(ThreadHandle thread, int priority) {
    return m_target->SetThreadPriority(thread, priority);
}

bool EnvWrapper::WaitThread(ThreadHandle thread, unsigned long* exitCode) {
    return m_target->WaitThread(thread, exitCode);
}

void EnvWrapper::CloseThread(ThreadHandle thread) { m_target->CloseThread(thread); }

// ---------------------------------------------------------------- DriveMappingEnv

DriveMappingEnv::DriveMappingEnv(Env* target, std::string root) : EnvWrapper(target), m_root(std::move(root)) {}

std::string DriveMappingEnv::Map(const std::string& path) const {
    std::string out;
    size_t start = 0;
    if (path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':') {
        out = m_root.empty() ? std::string() : m_root + "/";
        out += static_cast<char>(std::toupper(static_cast<unsigned char>(path[0])));
        out += '/';
        start = 2;
    }
    for (size_t i = start; i < path.size(); ++i) {
        const char c = path[i] == '\\' ? '/' : path[i];
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out += c;
    }
    return out;
}

std::unique_ptr<WritableFile> DriveMappingEnv::NewWritableFile(const std::string& path) {
    return Target()->NewWritableFile(Map(path));
}

std::unique_ptr<WritableFile> DriveMappingEnv::NewAppendableFile(const std::string& path) {
    return Target()->NewAppendableFile(Map(path));
}

FILE* DriveMappingEnv::OpenStream(const std::string& path, const char* mode) {
    return Target()->OpenStream(Map(path), mode);
}

bool DriveMappingEnv::ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size) {
    return Target()->ReadFile(Map(path), data, size);
}

bool DriveMappingEnv::FileExists(const std::string& path) { return Target()->FileExists(Map(path)); }

bool DriveMappingEnv::IsDirectory(const std::string& path) { return Target()->IsDirectory(Map(path)); }

bool DriveMappingEnv::CreateDirectories(const std::string& path) { return Target()->CreateDirectories(Map(path)); }

bool DriveMappingEnv::ListFiles(const std::string& dir, std::vector<std::string>& names) {
    return Target()->ListFiles(Map(dir), names);
}

bool DriveMappingEnv::RemoveFile(const std::string& path) { return Target()->RemoveFile(Map(path)); }

bool DriveMappingEnv::RenameFile(const std::string& from, const std::string& to) {
    return Target()->RenameFile(Map(from), Map(to));
}

// Through the target too, so that a stack of wrappers names what the
// innermost one opens.
std::string DriveMappingEnv::NativePath(const std::string& path) { return Target()->NativePath(Map(path)); }

// ---------------------------------------------------------------- WriteWatch

class WriteWatch::Watched : public WritableFile {
public:
    Watched(std::unique_ptr<WritableFile> file, std::atomic<int>& failed) : m_file(std::move(file)), m_failed(failed) {}
    ~Watched() override {
        if (!m_closed) ++m_failed;
    }
    bool Append(const void* data, size_t size) override { return m_file->Append(data, size); }
    bool Sync() override { return m_file->Sync(); }
    bool Close() override {
        m_closed = true;
        const bool ok = m_file->Close();
        if (!ok) ++m_failed;
        return ok;
    }
    void Abandon() override {
        m_closed = true;
        ++m_failed;
        m_file->Abandon();
    }

private:
    std::unique_ptr<WritableFile> m_file;
    std::atomic<int>& m_failed;
    bool m_closed = false;
};

WriteWatch::WriteWatch() : EnvWrapper(Env::Default()), m_previous(Env::Install(this)) {}

WriteWatch::~WriteWatch() { Env::Install(m_previous); }

bool WriteWatch::Finished() const { return m_files.load() != 0 && m_failed.load() == 0; }

std::unique_ptr<WritableFile> WriteWatch::NewWritableFile(const std::string& path) {
    std::unique_ptr<WritableFile> file = EnvWrapper::NewWritableFile(path);
    if (!file) return file;
    ++m_files;
    return std::make_unique<Watched>(std::move(file), m_failed);
}

std::unique_ptr<WritableFile> WriteWatch::NewAppendableFile(const std::string& path) {
    std::unique_ptr<WritableFile> file = EnvWrapper::NewAppendableFile(path);
    if (!file) return file;
    ++m_files;
    return std::make_unique<Watched>(std::move(file), m_failed);
}

}  // namespace platform
}  // namespace GrabSystem
