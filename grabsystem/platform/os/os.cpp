#include "grabsystem/platform/os/os.h"

#include <atomic>

namespace GrabSystem {
namespace platform {

namespace {
std::atomic<TickSource> g_tickSource{nullptr};
}  // namespace

uint32_t GetTickMs() {
    TickSource source = g_tickSource.load(std::memory_order_acquire);
    return source != nullptr ? source() : SystemTickMs();
}

void SetTickSource(TickSource source) { g_tickSource.store(source, std::memory_order_release); }

}  // namespace platform
}  // namespace GrabSystem
