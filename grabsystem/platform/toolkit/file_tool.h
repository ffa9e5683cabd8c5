// File and directory helpers of the toolkit library. Paths are the system's
// own texts and go through the platform's path translation. Static and
// thread-safe; none throws.
#pragma once

#include <cstdint>
#include <string>

#include "grabsystem/grabsystem_export.h"

namespace DrasselSpace {

class GRABSYSTEM_EXPORT FileToolP {
public:
    // Writes `size` bytes as the whole file. False when the file cannot be
    // created or the write is short.
    static bool SaveDataToFile(const std::string& path, unsigned char* data, unsigned long long size);

    // Reads the whole file into a buffer allocated with new[]; the caller
    // owns it and frees it with delete[]. An empty file gives a null buffer
    // and size 0 with a true result. False, with `data` null and `size` 0,
    // when the file cannot be opened or read.
    static bool LoadDataFromFile(const std::string& path, unsigned char*& data, unsigned long long& size);

    static bool FileExists(const std::string& path);
    static bool IsDirectoryExists(const std::string& path);
    // Creates the directory and its missing parents; true when it exists
    // afterwards.
    static bool CreateDirectoryRecursively(const std::string& path);
};

}  // namespace DrasselSpace
