// The Win32 steps of the system's Env.
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>

#include "grabsystem/platform/os/env_system.h"

namespace GrabSystem {
namespace platform {
namespace sys {

// The handle's type tells devices (NUL, CON, COM1) from files, which their
// attributes do not.
PathKind KindOf(const std::string& path) {
    if (path.rfind("\\\\.\\", 0) == 0) return PathKind::kOther;  // device namespace: opening a pipe would connect to it
    HANDLE handle = ::CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD attributes = ::GetFileAttributesA(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) return PathKind::kMissing;
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::kDirectory : PathKind::kOther;
    }
    PathKind kind = PathKind::kOther;
    BY_HANDLE_FILE_INFORMATION info{};
    if (::GetFileType(handle) == FILE_TYPE_DISK && ::GetFileInformationByHandle(handle, &info) != 0) {
        if ((info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
            kind = PathKind::kOther;
        else if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            kind = PathKind::kDirectory;
        else
            kind = PathKind::kRegular;
    }
    ::CloseHandle(handle);
    return kind;
}

FILE* CreateNew(const std::string& path) {
    const int fd = ::_open(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    if (fd < 0) return nullptr;
    FILE* file = ::_fdopen(fd, "wb");
    if (file == nullptr) {
        const int error = errno;
        ::_close(fd);
        ::DeleteFileA(path.c_str());
        errno = error;
    }
    return file;
}

bool FlushToDevice(FILE* file) { return file != nullptr && std::fflush(file) == 0 && ::_commit(::_fileno(file)) == 0; }

bool Replace(const std::string& from, const std::string& to) {
    return ::MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}

bool Unlink(const std::string& path) { return ::DeleteFileA(path.c_str()) != 0; }

unsigned long ProcessId() { return static_cast<unsigned long>(::GetCurrentProcessId()); }

int64_t RegularFileSize(FILE* file) {
    struct _stat64 info {};
    if (file == nullptr || ::_fstat64(::_fileno(file), &info) != 0 || (info.st_mode & _S_IFMT) != _S_IFREG ||
        info.st_size < 0)
        return -1;
    return static_cast<int64_t>(info.st_size);
}

}  // namespace sys
}  // namespace platform
}  // namespace GrabSystem
