// POSIX implementation of the system's Env.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
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

// LevelDB's PosixWritableFile buffers as much; large frames go past it
// straight to the kernel, small header fields are gathered.
constexpr size_t kWriteBufferSize = 64 * 1024;

// Only a path that is itself a regular file (not a link to one) is ever
// removed or cut back.
bool IsPlainFile(const std::string& path) {
    std::error_code ec;
    return fs::is_regular_file(fs::symlink_status(path, ec));
}

// A whole file. With a temporary name it is written there and renamed over
// `path` by Close(); without one it is written in place.
class PosixWritableFile final : public WritableFile {
public:
    PosixWritableFile(FILE* file, std::string path, std::string temp)
        : m_file(file), m_path(std::move(path)), m_temp(std::move(temp)) {}
    ~PosixWritableFile() override { Abandon(); }

    bool Append(const void* data, size_t size) override {
        if (m_file == nullptr) return false;
        if (size == 0 || std::fwrite(data, 1, size, m_file) == size) return true;
        // Given up at once, so that no temporary file outlives a failure
        // even when the caller forgets to close.
        Abandon();
        return false;
    }

    bool Sync() override {
        return m_file != nullptr && std::fflush(m_file) == 0 && ::fsync(::fileno(m_file)) == 0;
    }

    bool Close() override {
        if (m_file == nullptr) return false;
        bool ok = std::fflush(m_file) == 0;
        ok = std::fclose(m_file) == 0 && ok;
        m_file = nullptr;
        if (!m_temp.empty()) {
            ok = ok && ::rename(m_temp.c_str(), m_path.c_str()) == 0;
            if (!ok) ::unlink(m_temp.c_str());
        }
        return ok;
    }

    void Abandon() override {
        if (m_file == nullptr) return;
        std::fclose(m_file);
        m_file = nullptr;
        if (!m_temp.empty()) ::unlink(m_temp.c_str());
    }

private:
    FILE* m_file;  // null once closed, abandoned or failed
    const std::string m_path;
    const std::string m_temp;
};

// Appends in place; a failure or Abandon() puts the file back as it was.
class PosixAppendableFile final : public WritableFile {
public:
    PosixAppendableFile(FILE* file, std::string path, bool created, uint64_t length)
        : m_file(file), m_path(std::move(path)), m_created(created), m_length(length) {}
    ~PosixAppendableFile() override { Abandon(); }

    bool Append(const void* data, size_t size) override {
        if (m_file == nullptr) return false;
        if (size == 0 || std::fwrite(data, 1, size, m_file) == size) return true;
        Abandon();
        return false;
    }

    bool Sync() override {
        return m_file != nullptr && std::fflush(m_file) == 0 && ::fsync(::fileno(m_file)) == 0;
    }

    bool Close() override {
        if (m_file == nullptr) return false;
        bool ok = std::fflush(m_file) == 0;
        ok = std::fclose(m_file) == 0 && ok;
        m_file = nullptr;
        if (!ok) CutBack();
        return ok;
    }

    void Abandon() override {
        if (m_file == nullptr) return;
        std::fclose(m_file);
        m_file = nullptr;
        CutBack();
    }

private:
    void CutBack() {
        if (!IsPlainFile(m_path)) return;
        std::error_code ec;
        if (m_created)
            fs::remove(m_path, ec);
        else
            fs::resize_file(m_path, m_length, ec);
    }

    FILE* m_file;  // null once closed, abandoned or failed
    const std::string m_path;
    const bool m_created;
    const uint64_t m_length;
};

// Unique within the process by the counter and between processes by the id,
// so that two writers of one path never share a temporary file.
std::string TempName(const std::string& path) {
    static std::atomic<uint64_t> counter{0};
    return path + ".tmp-" + std::to_string(static_cast<long>(::getpid())) + "-" + std::to_string(counter++);
}

FILE* Buffered(FILE* file) {
    if (file != nullptr) std::setvbuf(file, nullptr, _IOFBF, kWriteBufferSize);
    return file;
}

class PosixEnv final : public Env {
public:
    std::unique_ptr<WritableFile> NewWritableFile(const std::string& path) override {
        if (path.empty()) return nullptr;
        std::error_code ec;
        const fs::file_status status = fs::symlink_status(path, ec);
        if (fs::is_directory(status)) return nullptr;
        if (fs::exists(status) && !fs::is_regular_file(status)) {
            FILE* file = Buffered(std::fopen(path.c_str(), "wb"));
            if (file == nullptr) return nullptr;
            return std::make_unique<PosixWritableFile>(file, path, std::string());
        }
        // A name left by a crashed process with our id is skipped, not reused.
        for (int attempt = 0; attempt < 16; ++attempt) {
            const std::string temp = TempName(path);
            const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd < 0) {
                if (errno == EEXIST) continue;
                return nullptr;
            }
            FILE* file = Buffered(::fdopen(fd, "wb"));
            if (file == nullptr) {
                ::close(fd);
                ::unlink(temp.c_str());
                return nullptr;
            }
            return std::make_unique<PosixWritableFile>(file, path, temp);
        }
        return nullptr;
    }

    std::unique_ptr<WritableFile> NewAppendableFile(const std::string& path) override {
        if (path.empty()) return nullptr;
        std::error_code ec;
        const fs::file_status status = fs::symlink_status(path, ec);
        if (fs::is_directory(status)) return nullptr;
        const bool existed = fs::exists(status);
        uint64_t length = 0;
        if (fs::is_regular_file(status)) {
            length = fs::file_size(path, ec);
            if (ec) return nullptr;
        }
        FILE* file = Buffered(std::fopen(path.c_str(), "ab"));
        if (file == nullptr) return nullptr;
        return std::make_unique<PosixAppendableFile>(file, path, !existed, length);
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
        struct stat info {};
        bool ok = ::fstat(::fileno(file), &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= 0 &&
                  static_cast<uint64_t>(info.st_size) <= SIZE_MAX;
        const size_t length = ok ? static_cast<size_t>(info.st_size) : 0;
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
        std::error_code ec;
        return IsPlainFile(path) && fs::remove(path, ec);
    }

    bool RenameFile(const std::string& from, const std::string& to) override {
        return !from.empty() && !to.empty() && ::rename(from.c_str(), to.c_str()) == 0;
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
    static PosixEnv env;
    return &env;
}

}  // namespace platform
}  // namespace GrabSystem
