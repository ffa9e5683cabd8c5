// Win32 implementation of the system's Env.
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <new>
#include <system_error>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/os.h"

namespace GrabSystem {
namespace platform {

namespace fs = std::filesystem;

namespace {

// As the POSIX Env: large frames go past the buffer, small fields gather.
constexpr size_t kWriteBufferSize = 64 * 1024;

enum class Kind { kMissing, kRegular, kDirectory, kOther };

// What `path` names itself, links not followed. The handle's type tells
// devices (NUL, CON, COM1) from files, which their attributes do not.
Kind KindOf(const std::string& path) {
    if (path.rfind("\\\\.\\", 0) == 0) return Kind::kOther;  // device namespace: opening a pipe would connect to it
    HANDLE handle = ::CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD attributes = ::GetFileAttributesA(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) return Kind::kMissing;
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? Kind::kDirectory : Kind::kOther;
    }
    Kind kind = Kind::kOther;
    BY_HANDLE_FILE_INFORMATION info{};
    if (::GetFileType(handle) == FILE_TYPE_DISK && ::GetFileInformationByHandle(handle, &info) != 0) {
        if ((info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
            kind = Kind::kOther;
        else if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            kind = Kind::kDirectory;
        else
            kind = Kind::kRegular;
    }
    ::CloseHandle(handle);
    return kind;
}

bool FlushToDisk(FILE* file) {
    return file != nullptr && std::fflush(file) == 0 && ::_commit(::_fileno(file)) == 0;
}

// A whole file. With a temporary name it is written there and moved over
// `path` by Close(); without one it is written in place.
class Win32WritableFile final : public WritableFile {
public:
    Win32WritableFile(FILE* file, std::string path, std::string temp)
        : m_file(file), m_path(std::move(path)), m_temp(std::move(temp)) {}
    ~Win32WritableFile() override { Abandon(); }

    bool Append(const void* data, size_t size) override {
        if (m_file == nullptr) return false;
        if (size == 0 || std::fwrite(data, 1, size, m_file) == size) return true;
        // Given up at once, so that no temporary file outlives a failure
        // even when the caller forgets to close.
        Abandon();
        return false;
    }

    bool Sync() override { return FlushToDisk(m_file); }

    bool Close() override {
        if (m_file == nullptr) return false;
        bool ok = std::fflush(m_file) == 0;
        ok = std::fclose(m_file) == 0 && ok;
        m_file = nullptr;
        if (!m_temp.empty()) {
            ok = ok && ::MoveFileExA(m_temp.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
            if (!ok) ::DeleteFileA(m_temp.c_str());
        }
        return ok;
    }

    void Abandon() override {
        if (m_file == nullptr) return;
        std::fclose(m_file);
        m_file = nullptr;
        if (!m_temp.empty()) ::DeleteFileA(m_temp.c_str());
    }

private:
    FILE* m_file;  // null once closed, abandoned or failed
    const std::string m_path;
    const std::string m_temp;
};

// Appends in place; a failure or Abandon() puts the file back as it was.
class Win32AppendableFile final : public WritableFile {
public:
    Win32AppendableFile(FILE* file, std::string path, bool created, uint64_t length)
        : m_file(file), m_path(std::move(path)), m_created(created), m_length(length) {}
    ~Win32AppendableFile() override { Abandon(); }

    bool Append(const void* data, size_t size) override {
        if (m_file == nullptr) return false;
        if (size == 0 || std::fwrite(data, 1, size, m_file) == size) return true;
        Abandon();
        return false;
    }

    bool Sync() override { return FlushToDisk(m_file); }

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
        if (KindOf(m_path) != Kind::kRegular) return;
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
    return path + ".tmp-" + std::to_string(static_cast<unsigned long>(::GetCurrentProcessId())) + "-" +
           std::to_string(counter++);
}

FILE* Buffered(FILE* file) {
    if (file != nullptr) std::setvbuf(file, nullptr, _IOFBF, kWriteBufferSize);
    return file;
}

class Win32Env final : public Env {
public:
    std::unique_ptr<WritableFile> NewWritableFile(const std::string& path) override {
        if (path.empty()) return nullptr;
        const Kind kind = KindOf(path);
        if (kind == Kind::kDirectory) return nullptr;
        if (kind == Kind::kOther) {
            FILE* file = Buffered(std::fopen(path.c_str(), "wb"));
            if (file == nullptr) return nullptr;
            return std::make_unique<Win32WritableFile>(file, path, std::string());
        }
        // A name left by a crashed process with our id is skipped, not reused.
        for (int attempt = 0; attempt < 16; ++attempt) {
            const std::string temp = TempName(path);
            const int fd = ::_open(temp.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT,
                                   _S_IREAD | _S_IWRITE);
            if (fd < 0) {
                if (errno == EEXIST) continue;
                return nullptr;
            }
            FILE* file = Buffered(::_fdopen(fd, "wb"));
            if (file == nullptr) {
                ::_close(fd);
                ::DeleteFileA(temp.c_str());
                return nullptr;
            }
            return std::make_unique<Win32WritableFile>(file, path, temp);
        }
        return nullptr;
    }

    std::unique_ptr<WritableFile> NewAppendableFile(const std::string& path) override {
        if (path.empty()) return nullptr;
        const Kind kind = KindOf(path);
        if (kind == Kind::kDirectory) return nullptr;
        uint64_t length = 0;
        if (kind == Kind::kRegular) {
            std::error_code ec;
            length = fs::file_size(path, ec);
            if (ec) return nullptr;
        }
        FILE* file = Buffered(std::fopen(path.c_str(), "ab"));
        if (file == nullptr) return nullptr;
        return std::make_unique<Win32AppendableFile>(file, path, kind == Kind::kMissing, length);
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
        struct _stat64 info {};
        bool ok = ::_fstat64(::_fileno(file), &info) == 0 && (info.st_mode & _S_IFMT) == _S_IFREG &&
                  info.st_size >= 0 && static_cast<uint64_t>(info.st_size) <= SIZE_MAX;
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
        return !path.empty() && KindOf(path) == Kind::kRegular && ::DeleteFileA(path.c_str()) != 0;
    }

    bool RenameFile(const std::string& from, const std::string& to) override {
        return !from.empty() && !to.empty() && ::MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
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
    static Win32Env env;
    return &env;
}

}  // namespace platform
}  // namespace GrabSystem
