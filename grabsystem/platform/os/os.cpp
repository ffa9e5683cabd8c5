#include "grabsystem/platform/os/os.h"

#include <atomic>
#include <mutex>

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
