#include "grabsystem/platform/os/os.h"

#include <atomic>
#include <filesystem>
#include <mutex>
#include <system_error>

namespace GrabSystem {
namespace platform {

namespace {
std::atomic<TickSource> g_tickSource{nullptr};
std::mutex g_rootMutex;
std::string g_driveRoot;
}  // namespace

uint32_t GetTickMs() {
    TickSource source = g_tickSource.load(std::memory_order_acquire);
    return source != nullptr ? source() : SystemTickMs();
}

void SetTickSource(TickSource source) { g_tickSource.store(source, std::memory_order_release); }

void SetDriveRoot(const std::string& root) {
    std::lock_guard<std::mutex> lock(g_rootMutex);
    g_driveRoot = root;
}

std::string GetDriveRoot() {
    std::lock_guard<std::mutex> lock(g_rootMutex);
    return g_driveRoot;
}

FILE* OpenFile(const std::string& path, const char* mode) {
    if (path.empty() || mode == nullptr) return nullptr;
    return std::fopen(TranslatePath(path).c_str(), mode);
}

namespace {
// The translated path when it names a regular file itself (not a link).
bool IsPlainFile(const std::filesystem::path& path) {
    std::error_code ec;
    return std::filesystem::is_regular_file(std::filesystem::symlink_status(path, ec));
}
}  // namespace

bool DiscardFile(const std::string& path) {
    const std::filesystem::path p(TranslatePath(path));
    std::error_code ec;
    return !path.empty() && IsPlainFile(p) && std::filesystem::remove(p, ec);
}

bool TruncateFile(const std::string& path, uint64_t size) {
    const std::filesystem::path p(TranslatePath(path));
    std::error_code ec;
    if (path.empty() || !IsPlainFile(p)) return false;
    std::filesystem::resize_file(p, size, ec);
    return !ec;
}

int64_t FileSize(FILE* file) {
    if (file == nullptr) return -1;
    const int64_t here = FileTell(file);
    if (here < 0 || !FileSeek(file, 0, SEEK_END)) return -1;
    const int64_t size = FileTell(file);
    FileSeek(file, here, SEEK_SET);
    return size;
}

}  // namespace platform
}  // namespace GrabSystem
