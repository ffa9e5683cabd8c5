// The system's Env: whole files through a temporary name, appends that cut
// back, folders through std::filesystem, the clock and threads of os.h.
#include "grabsystem/platform/os/env_system.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <new>
#include <system_error>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/os.h"

namespace GrabSystem {
namespace platform {

namespace fs = std::filesystem;

namespace {

using sys::PathKind;

// LevelDB's PosixWritableFile buffers as much; large frames go past it
// straight to the kernel, small header fields are gathered.
constexpr size_t kWriteBufferSize = 64 * 1024;

FILE* Buffered(FILE* file) {
    if (file != nullptr) std::setvbuf(file, nullptr, _IOFBF, kWriteBufferSize);
    return file;
}

// Unique within the process by the counter and between processes by the id,
// so that two writers of one path never share a temporary file.
std::string TempName(const std::string& path) {
    static std::atomic<uint64_t> counter{0};
    return path + ".tmp-" + std::to_string(sys::ProcessId()) + "-" + std::to_string(counter++);
}

// The common part of both kinds of file: a stream that is given up at the
// first failed write, so that nothing half-written outlives a failure even
// when the caller forgets to close.
class StreamFile : public WritableFile {
public:
    explicit StreamFile(FILE* file) : m_file(file) {}

    bool Append(const void* data, size_t size) final {
        if (m_file == nullptr) return false;
        if (size == 0 || std::fwrite(data, 1, size, m_file) == size) return true;
        Abandon();
        return false;
    }

    bool Sync() final { return sys::FlushToDevice(m_file); }

    bool Close() final {
        if (m_file == nullptr) return false;
        bool ok = std::fflush(m_file) == 0;
        ok = std::fclose(m_file) == 0 && ok;
        m_file = nullptr;
        return Finish(ok);
    }

    void Abandon() final {
        if (m_file == nullptr) return;
        std::fclose(m_file);
        m_file = nullptr;
        Undo();
    }

protected:
    // After the stream closed (`written`: every byte reached the file):
    // put the file in place, or undo it. The result is Close()'s.
    virtual bool Finish(bool written) = 0;
    // Leaves nothing of what this file wrote.
    virtual void Undo() = 0;

private:
    FILE* m_file;  // null once closed, abandoned or failed
};

// A whole file. With a temporary name it is written there and moved over
// `path` by Close(); without one (a device, pipe or link) it is written in
// place.
class WholeFile final : public StreamFile {
public:
    WholeFile(FILE* file, std::string path, std::string temp)
        : StreamFile(file), m_path(std::move(path)), m_temp(std::move(temp)) {}
    ~WholeFile() override { Abandon(); }

private:
    bool Finish(bool written) override {
        if (m_temp.empty()) return written;
        const bool ok = written && sys::Replace(m_temp, m_path);
        if (!ok) sys::Unlink(m_temp);
        return ok;
    }
    void Undo() override {
        if (!m_temp.empty()) sys::Unlink(m_temp);
    }

    const std::string m_path;
    const std::string m_temp;
};

// Appends in place; a failure or Abandon() puts the file back as it was.
class AppendFile final : public StreamFile {
public:
    AppendFile(FILE* file, std::string path, bool created, uint64_t length)
        : StreamFile(file), m_path(std::move(path)), m_created(created), m_length(length) {}
    ~AppendFile() override { Abandon(); }

private:
    bool Finish(bool written) override {
        if (!written) Undo();
        return written;
    }
    void Undo() override {
        if (sys::KindOf(m_path) != PathKind::kRegular) return;
        std::error_code ec;
        if (m_created)
            fs::remove(m_path, ec);
        else
            fs::resize_file(m_path, m_length, ec);
    }

    const std::string m_path;
    const bool m_created;
    const uint64_t m_length;
};

class SystemEnv final : public Env {
public:
    std::unique_ptr<WritableFile> NewWritableFile(const std::string& path) override {
        if (path.empty()) return nullptr;
        const PathKind kind = sys::KindOf(path);
        if (kind == PathKind::kDirectory) return nullptr;
        if (kind == PathKind::kOther) {
            FILE* file = Buffered(std::fopen(path.c_str(), "wb"));
            if (file == nullptr) return nullptr;
            return std::make_unique<WholeFile>(file, path, std::string());
        }
        // A name left by a crashed process with our id is skipped, not reused.
        for (int attempt = 0; attempt < 16; ++attempt) {
            const std::string temp = TempName(path);
            FILE* file = Buffered(sys::CreateNew(temp));
            if (file != nullptr) return std::make_unique<WholeFile>(file, path, temp);
            if (errno != EEXIST) return nullptr;
        }
        return nullptr;
    }

    std::unique_ptr<WritableFile> NewAppendableFile(const std::string& path) override {
        if (path.empty()) return nullptr;
        const PathKind kind = sys::KindOf(path);
        if (kind == PathKind::kDirectory) return nullptr;
        uint64_t length = 0;
        if (kind == PathKind::kRegular) {
            std::error_code ec;
            length = fs::file_size(path, ec);
            if (ec) return nullptr;
        }
        FILE* file = Buffered(std::fopen(path.c_str(), "ab"));
        if (file == nullptr) return nullptr;
        return std::make_unique<AppendFile>(file, path, kind == PathKind::kMissing, length);
    }

    FILE* OpenStream(const std::string& path, const char* mode) override {
        if (path.empty() || mode == nullptr) return nullptr;
        return std::fopen(path.c_str(), mode);
    }

    bool ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size) override {
        data.reset();
        size = 0;
        FILE* file = path.empty() ? nullptr : std::fopen(path.c_str(), "rb");
        if (file == nullptr) return false;
        const int64_t bytes = sys::RegularFileSize(file);
        bool ok = bytes >= 0 && static_cast<uint64_t>(bytes) <= SIZE_MAX;
        const size_t length = ok ? static_cast<size_t>(bytes) : 0;
        std::unique_ptr<unsigned char[]> buffer;
        if (ok && length > 0) {
            buffer.reset(new (std::nothrow) unsigned char[length]);
            ok = buffer != nullptr && std::fread(buffer.get(), 1, length, file) == length;
        }
        std::fclose(file);
        if (!ok) return false;
        data = std::move(buffer);
        size = length;
        return true;
    }

    bool FileExists(const std::string& path) override {
        std::error_code ec;
        return fs::is_regular_file(path, ec);
    }

    bool IsDirectory(const std::string& path) override {
        std::error_code ec;
        return fs::is_directory(path, ec);
    }

    bool CreateDirectories(const std::string& path) override {
        if (path.empty()) return false;
        std::error_code ec;
        fs::create_directories(path, ec);
        return fs::is_directory(path, ec);
    }

    bool ListFiles(const std::string& dir, std::vector<std::string>& names) override {
        names.clear();
        std::error_code ec;
        fs::directory_iterator it(dir, ec);
        for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
            std::error_code kindError;
            if (it->is_regular_file(kindError)) names.push_back(it->path().filename().string());
        }
        if (ec) names.clear();
        return !ec;
    }

    bool RemoveFile(const std::string& path) override {
        return !path.empty() && sys::KindOf(path) == PathKind::kRegular && sys::Unlink(path);
    }

    bool RenameFile(const std::string& from, const std::string& to) override {
        return !from.empty() && !to.empty() && sys::Replace(from, to);
    }

    std::string NativePath(const std::string& path) override { return path; }

    uint32_t NowMs() override { return SystemTickMs(); }

    void SleepMs(uint32_t ms) override { SystemSleepMs(ms); }

    ThreadHandle StartThread(ThreadFunc func, void* arg) override { return SystemStartThread(func, arg); }

    bool SetThreadPriority(ThreadHandle thread, int priority) override {
        return SystemSetThreadPriority(thread, priority);
    }

    bool WaitThread(ThreadHandle thread, unsigned long* exitCode) override {
        return SystemWaitThread(thread, exitCode);
    }

    void CloseThread(ThreadHandle thread) override { SystemCloseThread(thread); }
};

}  // namespace

Env* Env::System() {
    static SystemEnv env;
    return &env;
}

}  // namespace platform
}  // namespace GrabSystem
