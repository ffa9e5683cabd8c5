// The system's Env: whole files through a temporary name, appends that cut
// back, folders through std::filesystem, the clock and threads of os.h.
#include "grabsystem/platform/os/env_system.h"

#include <atomic>
#include <cerrno>
#include <climits>
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

// A std::filesystem error, worded as the system words it.
Status FromErrorCode(const std::string& path, const std::string& what, const std::error_code& ec) {
    std::string cause = ec ? what + " (" + ec.message() + ")" : what;
    if (ec == std::errc::no_such_file_or_directory) return Status::NotFound(path, std::move(cause));
    return Status::IOError(path, std::move(cause));
}

// The common part of both kinds of file: a stream that is given up at the
// first failed write, so that nothing half-written outlives a failure even
// when the caller forgets to close. The first failure is the file's answer
// from then on.
class StreamFile : public WritableFile {
public:
    StreamFile(FILE* file, std::string path) : m_file(file), m_path(std::move(path)) {}

    Status Append(const void* data, size_t size) final {
        if (m_file == nullptr) return Failed();
        if (size == 0) return Status::OK();
        errno = 0;
        const size_t written = std::fwrite(data, 1, size, m_file);
        if (written == size) {
            m_written += size;
            return Status::OK();
        }
        m_error = Status::FromErrno(m_path, "write cut short after " + std::to_string(m_written + written) + " bytes",
                                    errno);
        Abandon();
        return m_error;
    }

    Status Sync() final {
        if (m_file == nullptr) return Failed();
        errno = 0;
        if (sys::FlushToDevice(m_file)) return Status::OK();
        m_error = Status::FromErrno(m_path, "cannot push the file to the device", errno);
        Abandon();
        return m_error;
    }

    Status Close() final {
        if (m_file == nullptr) return Failed();
        errno = 0;
        bool ok = std::fflush(m_file) == 0;
        int error = ok ? 0 : errno;
        if (std::fclose(m_file) != 0 && ok) {
            ok = false;
            error = errno;
        }
        m_file = nullptr;
        if (!ok) m_error = Status::FromErrno(m_path, "the last writes did not reach the file", error);
        m_error.Update(Finish(ok));
        return m_error;
    }

    void Abandon() final {
        if (m_file == nullptr) return;
        std::fclose(m_file);
        m_file = nullptr;
        Undo();
    }

protected:
    // After the stream closed (`written`: every byte reached the file):
    // put the file in place, or undo it.
    virtual Status Finish(bool written) = 0;
    // Leaves nothing of what this file wrote.
    virtual void Undo() = 0;
    const std::string& Path() const { return m_path; }

private:
    Status Failed() const { return m_error.ok() ? Status::IOError(m_path, "the file is already closed") : m_error; }

    FILE* m_file;  // null once closed, abandoned or failed
    const std::string m_path;
    uint64_t m_written = 0;
    Status m_error;
};

// A whole file. With a temporary name it is written there and moved over
// `path` by Close(); without one (a device, pipe or link) it is written in
// place.
class WholeFile final : public StreamFile {
public:
    WholeFile(FILE* file, std::string path, std::string temp) : StreamFile(file, std::move(path)), m_temp(std::move(temp)) {}
    ~WholeFile() override { Abandon(); }

private:
    Status Finish(bool written) override {
        if (m_temp.empty()) return Status::OK();
        if (!written) {
            sys::Unlink(m_temp);
            return Status::OK();
        }
        errno = 0;
        if (sys::Replace(m_temp, Path())) return Status::OK();
        const int error = errno;
        sys::Unlink(m_temp);
        return Status::FromErrno(Path(), "cannot move the finished file into place", error);
    }
    void Undo() override {
        if (!m_temp.empty()) sys::Unlink(m_temp);
    }

    const std::string m_temp;
};

// Appends in place; a failure or Abandon() puts the file back as it was.
class AppendFile final : public StreamFile {
public:
    AppendFile(FILE* file, std::string path, bool created, uint64_t length)
        : StreamFile(file, std::move(path)), m_created(created), m_length(length) {}
    ~AppendFile() override { Abandon(); }

private:
    Status Finish(bool written) override {
        if (!written) Undo();
        return Status::OK();
    }
    void Undo() override {
        if (sys::KindOf(Path()) != PathKind::kRegular) return;
        std::error_code ec;
        if (m_created)
            fs::remove(Path(), ec);
        else
            fs::resize_file(Path(), m_length, ec);
    }

    const bool m_created;
    const uint64_t m_length;
};

// Reads at offsets through one stream; the lock keeps a seek and its read
// together when several threads read one file.
class StreamReadFile final : public RandomAccessFile {
public:
    StreamReadFile(FILE* file, std::string path, uint64_t size) : m_file(file), m_path(std::move(path)), m_size(size) {}
    ~StreamReadFile() override { std::fclose(m_file); }

    uint64_t Size() const override { return m_size; }

    Status Read(uint64_t offset, size_t n, void* dst, size_t* got) const override {
        *got = 0;
        if (n == 0 || offset >= m_size) return Status::OK();
        MutexLock lock(m_mutex);
        errno = 0;
        if (offset > static_cast<uint64_t>(INT64_MAX) || !FileSeek(m_file, static_cast<int64_t>(offset), SEEK_SET))
            return Status::FromErrno(m_path, "cannot seek to byte " + std::to_string(offset), errno);
        *got = std::fread(dst, 1, n, m_file);
        if (*got == n) return Status::OK();
        if (std::ferror(m_file) != 0) {
            const int error = errno;
            std::clearerr(m_file);
            return Status::FromErrno(m_path, "read failed at byte " + std::to_string(offset + *got), error);
        }
        std::clearerr(m_file);
        const uint64_t end = offset + *got;
        if (end < m_size)
            return Status::IOError(m_path, "the file ends at byte " + std::to_string(end) + " of its " +
                                               std::to_string(m_size));
        return Status::OK();
    }

private:
    FILE* const m_file;
    const std::string m_path;
    const uint64_t m_size;
    mutable Mutex m_mutex;
};

class SystemEnv final : public Env {
public:
    Status NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override {
        result->reset();
        if (path.empty()) return Status::InvalidArgument(path, "no file name");
        const PathKind kind = sys::KindOf(path);
        if (kind == PathKind::kDirectory) return Status::IOError(path, "cannot write a file: the name is a folder");
        if (kind == PathKind::kOther) {
            errno = 0;
            FILE* file = Buffered(std::fopen(path.c_str(), "wb"));
            if (file == nullptr) return Status::FromErrno(path, "cannot open for writing", errno);
            *result = std::make_unique<WholeFile>(file, path, std::string());
            return Status::OK();
        }
        // A name left by a crashed process with our id is skipped, not reused.
        int error = EEXIST;
        for (int attempt = 0; attempt < 16 && error == EEXIST; ++attempt) {
            const std::string temp = TemporaryFileName(path);
            errno = 0;
            FILE* file = Buffered(sys::CreateNew(temp));
            if (file != nullptr) {
                *result = std::make_unique<WholeFile>(file, path, temp);
                return Status::OK();
            }
            error = errno;
        }
        return Status::FromErrno(path, "cannot create the file", error);
    }

    Status NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override {
        result->reset();
        if (path.empty()) return Status::InvalidArgument(path, "no file name");
        const PathKind kind = sys::KindOf(path);
        if (kind == PathKind::kDirectory) return Status::IOError(path, "cannot append: the name is a folder");
        uint64_t length = 0;
        if (kind == PathKind::kRegular) {
            std::error_code ec;
            length = fs::file_size(path, ec);
            if (ec) return FromErrorCode(path, "cannot size the file", ec);
        }
        errno = 0;
        FILE* file = Buffered(std::fopen(path.c_str(), "ab"));
        if (file == nullptr) return Status::FromErrno(path, "cannot open for appending", errno);
        *result = std::make_unique<AppendFile>(file, path, kind == PathKind::kMissing, length);
        return Status::OK();
    }

    Status NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) override {
        result->reset();
        if (path.empty()) return Status::InvalidArgument(path, "no file name");
        errno = 0;
        FILE* file = std::fopen(path.c_str(), "rb");
        if (file == nullptr && errno == ENOENT) return Status::NotFound(path, "no such file");
        if (file == nullptr) return Status::FromErrno(path, "cannot open for reading", errno);
        const int64_t size = sys::RegularFileSize(file);
        if (size < 0) {
            std::fclose(file);
            return Status::IOError(path, "cannot read: not a regular file");
        }
        *result = std::make_unique<StreamReadFile>(file, path, static_cast<uint64_t>(size));
        return Status::OK();
    }

    bool FileExists(const std::string& path) override {
        std::error_code ec;
        return fs::is_regular_file(path, ec);
    }

    bool IsDirectory(const std::string& path) override {
        std::error_code ec;
        return fs::is_directory(path, ec);
    }

    Status CreateDirectories(const std::string& path) override {
        if (path.empty()) return Status::InvalidArgument(path, "no folder name");
        std::error_code ec, kindError;
        fs::create_directories(path, ec);
        if (fs::is_directory(path, kindError)) return Status::OK();
        return FromErrorCode(path, ec ? "cannot create the folder" : "cannot create the folder: a file is in the way", ec);
    }

    Status ListFiles(const std::string& dir, std::vector<std::string>* names) override {
        names->clear();
        std::error_code ec;
        fs::directory_iterator it(dir, ec);
        for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
            std::error_code kindError;
            if (it->is_regular_file(kindError)) names->push_back(it->path().filename().string());
        }
        if (!ec) return Status::OK();
        names->clear();
        return FromErrorCode(dir, "cannot list the folder", ec);
    }

    Status RemoveFile(const std::string& path) override {
        if (path.empty() || sys::KindOf(path) != PathKind::kRegular)
            return Status::IOError(path, "not removed: not a regular file");
        errno = 0;
        if (sys::Unlink(path)) return Status::OK();
        return Status::FromErrno(path, "cannot remove the file", errno);
    }

    Status RenameFile(const std::string& from, const std::string& to) override {
        if (from.empty() || to.empty()) return Status::InvalidArgument(from, "no file name");
        errno = 0;
        if (sys::Replace(from, to)) return Status::OK();
        return Status::FromErrno(from, "cannot rename to " + to, errno);
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

std::string TemporaryFileName(const std::string& path) {
    static std::atomic<uint64_t> counter{0};
    return path + ".tmp-" + std::to_string(sys::ProcessId()) + "-" + std::to_string(counter++);
}

bool IsTemporaryFileName(const std::string& name) {
    // <name>.tmp-<digits>-<digits>, with a name of at least one character.
    const size_t at = name.rfind(".tmp-");
    if (at == std::string::npos || at == 0) return false;
    const std::string numbers = name.substr(at + 5);
    const size_t dash = numbers.find('-');
    auto digits = [](const std::string& s) {
        return !s.empty() && s.find_first_not_of("0123456789") == std::string::npos;
    };
    return dash != std::string::npos && digits(numbers.substr(0, dash)) && digits(numbers.substr(dash + 1));
}

Env* Env::System() {
    static SystemEnv env;
    return &env;
}

}  // namespace platform
}  // namespace GrabSystem
