#include "grabsystem/platform/toolkit/file_tool.h"

#include <cstdint>
#include <memory>

#include "grabsystem/platform/env.h"

namespace DrasselSpace {

using GrabSystem::platform::Env;

bool FileToolP::SaveDataToFile(const std::string& path, unsigned char* data, unsigned long long size) {
    if (data == nullptr && size != 0) return false;
    const auto file = Env::Default()->NewWritableFile(path);
    return file && (size == 0 || file->Append(data, static_cast<size_t>(size))) && file->Close();
}

bool FileToolP::LoadDataFromFile(const std::string& path, unsigned char*& data, unsigned long long& size) {
    std::unique_ptr<unsigned char[]> contents;
    uint64_t length = 0;
    const bool read = Env::Default()->ReadFile(path, contents, length);
    data = contents.release();
    size = length;
    return read;
}

bool FileToolP::FileExists(const std::string& path) { return !path.empty() && Env::Default()->FileExists(path); }

bool FileToolP::IsDirectoryExists(const std::string& path) {
    return !path.empty() && Env::Default()->IsDirectory(path);
}

bool FileToolP::CreateDirectoryRecursively(const std::string& path) {
    return !path.empty() && Env::Default()->CreateDirectories(path);
}

}  // namespace DrasselSpace
