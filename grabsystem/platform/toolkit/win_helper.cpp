#include "grabsystem/platform/toolkit/win_helper.h"

#include <algorithm>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/toolkit/file_tool.h"

namespace DrasselSpace {

using GrabSystem::platform::Env;

bool CWinHelper::IsDirectoryExists(const std::string& path, Env* env) { return FileToolP::IsDirectoryExists(path, env); }

bool CWinHelper::CreateDirectoryRecursively(const std::string& path, Env* env) {
    return FileToolP::CreateDirectoryRecursively(path, env);
}

bool CWinHelper::GetDirectoryAllFilePath(const std::string& dir, std::vector<std::string>& paths, Env* env) {
    paths.clear();
    std::vector<std::string> names;
    if (!Env::Or(env)->ListFiles(dir, &names).ok()) return false;
    const std::string prefix = WithTrailingSeparator(dir);
    for (const std::string& name : names) paths.push_back(prefix + name);
    return true;
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

std::string CWinHelper::WithTrailingSeparator(const std::string& dir, char add, const char* separators) {
    if (!dir.empty() && std::string(separators).find(dir.back()) != std::string::npos) return dir;
    return dir + add;
}

bool StringToolP::IsNumber(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace DrasselSpace
