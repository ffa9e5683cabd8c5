#include "grabsystem/platform/toolkit/file_tool.h"

#include <cstdio>
#include <filesystem>
#include <new>
#include <system_error>

#include "grabsystem/platform/os/os.h"

namespace DrasselSpace {

namespace fs = std::filesystem;
using GrabSystem::platform::FileSize;
using GrabSystem::platform::OpenFile;
using GrabSystem::platform::TranslatePath;

bool FileToolP::SaveDataToFile(const std::string& path, unsigned char* data, unsigned long long size) {
    if (data == nullptr && size != 0) return false;
    FILE* file = OpenFile(path, "wb");
    if (file == nullptr) return false;
    const bool written = size == 0 || std::fwrite(data, 1, static_cast<size_t>(size), file) == size;
    const bool closed = std::fclose(file) == 0;
    if (written && closed) return true;
    GrabSystem::platform::DiscardFile(path);
    return false;
}

bool FileToolP::LoadDataFromFile(const std::string& path, unsigned char*& data, unsigned long long& size) {
    data = nullptr;
    size = 0;
    FILE* file = OpenFile(path, "rb");
    if (file == nullptr) return false;
    const int64_t length = FileSize(file);
    bool ok = length >= 0;
    unsigned char* buffer = nullptr;
    if (ok && length > 0) {
        buffer = new (std::nothrow) unsigned char[static_cast<size_t>(length)];
        ok = buffer != nullptr && std::fread(buffer, 1, static_cast<size_t>(length), file) == static_cast<size_t>(length);
    }
    std::fclose(file);
    if (!ok) {
        delete[] buffer;
        return false;
    }
    data = buffer;
    size = static_cast<unsigned long long>(length);
    return true;
}

bool FileToolP::FileExists(const std::string& path) {
    std::error_code ec;
    return !path.empty() && fs::is_regular_file(TranslatePath(path), ec);
}

bool FileToolP::IsDirectoryExists(const std::string& path) {
    std::error_code ec;
    return !path.empty() && fs::is_directory(TranslatePath(path), ec);
}

bool FileToolP::CreateDirectoryRecursively(const std::string& path) {
    if (path.empty()) return false;
    std::error_code ec;
    const fs::path dir = TranslatePath(path);
    fs::create_directories(dir, ec);
    return fs::is_directory(dir, ec);
}

}  // namespace DrasselSpace
