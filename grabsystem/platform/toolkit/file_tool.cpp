#include "grabsystem/platform/toolkit/file_tool.h"

#include <cstdint>
#include <memory>

#include "grabsystem/platform/env.h"

namespace DrasselSpace {

using GrabSystem::platform::Env;

bool FileToolP::SaveDataToFile(const std::string& path, unsigned char* data, unsigned long long size, Env* env) {
    if ((data == nullptr && size != 0) || size > SIZE_MAX) return false;
    return Env::Or(env)->WriteFile(path, data, static_cast<size_t>(size)).ok();
}

bool FileToolP::LoadDataFromFile(const std::string& path, unsigned char*& data, unsigned long long& size, Env* env) {
    std::unique_ptr<unsigned char[]> contents;
    uint64_t length = 0;
    const bool read = Env::Or(env)->ReadFile(path, contents, length).ok();
    data = contents.release();
    size = length;
    return read;
}

bool FileToolP::FileExists(const std::string& path, Env* env) { return !path.empty() && Env::Or(env)->FileExists(path); }

bool FileToolP::IsDirectoryExists(const std::string& path, Env* env) {
    return !path.empty() && Env::Or(env)->IsDirectory(path);
}

bool FileToolP::CreateDirectoryRecursively(const std::string& path, Env* env) {
    return !path.empty() && Env::Or(env)->CreateDirectories(path).ok();
}

}  // namespace DrasselSpace
