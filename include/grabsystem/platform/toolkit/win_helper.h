// Directory and file-name helpers of the toolkit library. Static and
// thread-safe; none throws.
#pragma once

#include <string>
#include <vector>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace platform {
class Env;
}
}  // namespace GrabSystem

namespace DrasselSpace {

class GRABSYSTEM_EXPORT CWinHelper {
public:
    // Through `env`, the default Env when it is null.
    static bool IsDirectoryExists(const std::string& path, GrabSystem::platform::Env* env = nullptr);
    static bool CreateDirectoryRecursively(const std::string& path, GrabSystem::platform::Env* env = nullptr);

    // The plain files of one directory (not its subdirectories), as
    // `dir` + separator + name, in the order the file system lists them.
    // False when the directory cannot be listed.
    static bool GetDirectoryAllFilePath(const std::string& dir, std::vector<std::string>& paths,
                                        GrabSystem::platform::Env* env = nullptr);

    // The extension of the file-name part, from its last dot, dot included;
    // "" when the name has no dot. Both "\" and "/" separate directories.
    static std::string GetFileExtension(const std::string& path);
    // The file-name part without directory and extension.
    static std::string GetFileNameWithoutExtension(const std::string& path);
    // `dir` ready for a file name to be appended: as it is when it ends with
    // one of `separators`, else (an empty `dir` too) with `add` appended.
    static std::string WithTrailingSeparator(const std::string& dir, char add = '\\',
                                             const char* separators = "\\/");
};

class GRABSYSTEM_EXPORT StringToolP {
public:
    // True for a non-empty string of decimal digits only.
    static bool IsNumber(const std::string& text);
};

}  // namespace DrasselSpace
