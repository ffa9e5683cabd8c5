// The POSIX steps of the system's Env.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "grabsystem/platform/os/env_system.h"

namespace GrabSystem {
namespace platform {
namespace sys {

namespace fs = std::filesystem;

PathKind KindOf(const std::string& path) {
    std::error_code ec;
    const fs::file_status status = fs::symlink_status(path, ec);
    if (!fs::exists(status)) return PathKind::kMissing;
    if (fs::is_regular_file(status)) return PathKind::kRegular;
    if (fs::is_directory(status)) return PathKind::kDirectory;
    return PathKind::kOther;
}

FILE* CreateNew(const std::string& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    FILE* file = ::fdopen(fd, "wb");
    if (file == nullptr) {
        const int error = errno;
        ::close(fd);
        ::unlink(path.c_str());
        errno = error;
    }
    return file;
}

bool FlushToDevice(FILE* file) { return file != nullptr && std::fflush(file) == 0 && ::fsync(::fileno(file)) == 0; }

bool Replace(const std::string& from, const std::string& to) { return ::rename(from.c_str(), to.c_str()) == 0; }

bool Unlink(const std::string& path) { return ::unlink(path.c_str()) == 0; }

unsigned long ProcessId() { return static_cast<unsigned long>(::getpid()); }

int64_t RegularFileSize(FILE* file) {
    struct stat info {};
    if (file == nullptr || ::fstat(::fileno(file), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 0) return -1;
    return static_cast<int64_t>(info.st_size);
}

}  // namespace sys
}  // namespace platform
}  // namespace GrabSystem
