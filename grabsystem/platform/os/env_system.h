// The system's Env is one class (env_system.cpp) over the few file-system
// steps that POSIX and Win32 take differently (env_posix.cpp,
// env_win32.cpp). Internal to the platform layer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace GrabSystem {
namespace platform {
namespace sys {

enum class PathKind { kMissing, kRegular, kDirectory, kOther };

// What `path` names itself, links not followed: a link, a device or a pipe
// is kOther, and only a kRegular file is ever replaced, removed or cut back.
PathKind KindOf(const std::string& path);
// Creates `path` for writing, binary, not inherited by child processes;
// null when it cannot, with errno EEXIST when the name is taken.
FILE* CreateNew(const std::string& path);
// Pushes what was written to the device (fsync / _commit).
bool FlushToDevice(FILE* file);
// Moves `from` over `to`, replacing a regular file there.
bool Replace(const std::string& from, const std::string& to);
// Removes the directory entry `path`.
bool Unlink(const std::string& path);
unsigned long ProcessId();
// The size of the regular file (links followed) behind an open stream; -1
// for anything else, so that a device is never read to its end.
int64_t RegularFileSize(FILE* file);

}  // namespace sys
}  // namespace platform
}  // namespace GrabSystem
