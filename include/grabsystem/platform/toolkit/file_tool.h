// File and directory helpers of the toolkit library. Paths are the system's
// own texts; they go through `env` (the default Env when it is null), which
// also translates them. Static and thread-safe; none throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace platform {
class Env;
}
}  // namespace GrabSystem

namespace DrasselSpace {

class GRABSYSTEM_EXPORT FileToolP {
public:
    // Writes `size` bytes as the whole file. False when the file cannot be
    // created or the write is short.
    static bool SaveDataToFile(const std::string& path, unsigned char* data, unsigned long long size,
                               GrabSystem::platform::Env* env = nullptr);

    // Reads the whole file into a buffer allocated with new[]; the caller
    // owns it and frees it with delete[]. An empty file gives a null buffer
    // and size 0 with a true result. False, with `data` null and `size` 0,
    // when the file cannot be opened or read.
    static bool LoadDataFromFile(const std::string& path, unsigned char*& data, unsigned long long& size,
                                 GrabSystem::platform::Env* env = nullptr);

    static bool FileExists(const std::string& path, GrabSystem::platform::Env* env = nullptr);
    static bool IsDirectoryExists(const std::string& path, GrabSystem::platform::Env* env = nullptr);
    // Creates the directory and its missing parents; true when it exists
    // afterwards.
    static bool CreateDirectoryRecursively(const std::string& path, GrabSystem::platform::Env* env = nullptr);

    // The key length EncryptData takes: 16 bytes (AES-128).
    static constexpr size_t kKeyLength = 16;

    // Transforms `size` bytes in place with a 16-byte key: AES-128 in CTR
    // mode with an all-zero initial counter block. Applying it twice with
    // the same key restores the data, so it both encrypts and decrypts; the
    // result is what `openssl enc -aes-128-ctr -K <key in hex> -iv 0...0`
    // produces. False, changing nothing, for a key of another length or a
    // null buffer.
    static bool EncryptData(unsigned char* data, size_t size, const unsigned char* key, size_t keyLength);
};

}  // namespace DrasselSpace
