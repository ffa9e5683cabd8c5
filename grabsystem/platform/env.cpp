#include "grabsystem/platform/env.h"

#include <atomic>
#include <cctype>
#include <new>
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

RandomAccessFile::~RandomAccessFile() = default;

Env::~Env() = default;

Env* Env::Default() {
    Env* installed = g_installed.load(std::memory_order_acquire);
    return installed != nullptr ? installed : BuiltInDefault();
}

Env* Env::Install(Env* env) { return g_installed.exchange(env, std::memory_order_acq_rel); }

Status Env::ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size) {
    data.reset();
    size = 0;
    std::unique_ptr<RandomAccessFile> file;
    Status s = NewRandomAccessFile(path, &file);
    if (!s.ok()) return s;
    const uint64_t length = file->Size();
    if (length > SIZE_MAX) return Status::IOError(path, "too large for this machine's memory");
    std::unique_ptr<unsigned char[]> buffer;
    if (length != 0) {
        buffer.reset(new (std::nothrow) unsigned char[static_cast<size_t>(length)]);
        if (!buffer) return Status::IOError(path, "out of memory for its " + std::to_string(length) + " bytes");
        size_t got = 0;
        s = file->Read(0, static_cast<size_t>(length), buffer.get(), &got);
        if (!s.ok()) return s;
        if (got != length)
            return Status::IOError(path, "read " + std::to_string(got) + " of its " + std::to_string(length) + " bytes");
    }
    data = std::move(buffer);
    size = length;
    return Status::OK();
}

Status Env::WriteFile(const std::string& path, const void* data, size_t size) {
    std::unique_ptr<WritableFile> file;
    Status s = NewWritableFile(path, &file);
    if (!s.ok()) return s;
    if (size != 0) s = file->Append(data, size);
    if (!s.ok()) {
        file->Abandon();
        return s;
    }
    return file->Close();
}

// ---------------------------------------------------------------- EnvWrapper

Status EnvWrapper::NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    return m_target->NewWritableFile(path, result);
}

Status EnvWrapper::NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    return m_target->NewAppendableFile(path, result);
}

Status EnvWrapper::NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) {
    return m_target->NewRandomAccessFile(path, result);
}

bool EnvWrapper::FileExists(const std::string& path) { return m_target->FileExists(path); }

bool EnvWrapper::IsDirectory(const std::string& path) { return m_target->IsDirectory(path); }

Status EnvWrapper::CreateDirectories(const std::string& path) { return m_target->CreateDirectories(path); }

Status EnvWrapper::ListFiles(const std::string& dir, std::vector<std::string>* names) {
    return m_target->ListFiles(dir, names);
}

Status EnvWrapper::RemoveFile(const std::string& path) { return m_target->RemoveFile(path); }

Status EnvWrapper::RenameFile(const std::string& from, const std::string& to) {
    return m_target->RenameFile(from, to);
}

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

Status DriveMappingEnv::NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    return Target()->NewWritableFile(Map(path), result);
}

Status DriveMappingEnv::NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    return Target()->NewAppendableFile(Map(path), result);
}

Status DriveMappingEnv::NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) {
    return Target()->NewRandomAccessFile(Map(path), result);
}

bool DriveMappingEnv::FileExists(const std::string& path) { return Target()->FileExists(Map(path)); }

bool DriveMappingEnv::IsDirectory(const std::string& path) { return Target()->IsDirectory(Map(path)); }

Status DriveMappingEnv::CreateDirectories(const std::string& path) { return Target()->CreateDirectories(Map(path)); }

Status DriveMappingEnv::ListFiles(const std::string& dir, std::vector<std::string>* names) {
    return Target()->ListFiles(Map(dir), names);
}

Status DriveMappingEnv::RemoveFile(const std::string& path) { return Target()->RemoveFile(Map(path)); }

Status DriveMappingEnv::RenameFile(const std::string& from, const std::string& to) {
    return Target()->RenameFile(Map(from), Map(to));
}

// Through the target too, so that a stack of wrappers names what the
// innermost one opens.
std::string DriveMappingEnv::NativePath(const std::string& path) { return Target()->NativePath(Map(path)); }

}  // namespace platform
}  // namespace GrabSystem
