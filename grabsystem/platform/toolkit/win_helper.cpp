#include "grabsystem/platform/toolkit/win_helper.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace DrasselSpace {

namespace fs = std::filesystem;

bool CWinHelper::IsDirectoryExists(const std::string& path) { return FileToolP::IsDirectoryExists(path); }

bool CWinHelper::CreateDirectoryRecursively(const std::string& path) {
    return FileToolP::CreateDirectoryRecursively(path);
}

bool CWinHelper::GetDirectoryAllFilePath(const std::string& dir, std::vector<std::string>& paths) {
    paths.clear();
    std::error_code ec;
    fs::directory_iterator it(GrabSystem::platform::TranslatePath(dir), ec);
    if (ec) return false;
    const bool separated = !dir.empty() && (dir.back() == '\\' || dir.back() == '/');
    for (; it != fs::directory_iterator(); it.increment(ec)) {
        if (ec) return false;
        if (!it->is_regular_file(ec)) continue;
        paths.push_back(dir + (separated ? "" : "\\") + it->path().filename().string());
    }
    return !ec;
}

namespace {
size_t NameStart(const std::string& path) {
    const size_t sep = path.find_last_of("\\/");
    return sep == std::string::npos ? 0 : sep + 1;
}
}  // namespace

std::string CWinHelper::GetFileExtension(const std::string& path) {
    const size_t start = NameStart(path);
    const size_t dot = path.find_last_of('.');
    return dot == std::string::npos || dot < start ? std::string() : path.substr(dot);
}

std::string CWinHelper::GetFileNameWithoutExtension(const std::string& path) {
    const size_t start = NameStart(path);
    const std::string name = path.substr(start);
    const size_t dot = name.find_last_of('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

bool StringToolP::IsNumber(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace DrasselSpace
