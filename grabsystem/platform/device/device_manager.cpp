#include "grabsystem/platform/device/device_manager.h"

#include <cstddef>
#include <new>

namespace Zentrik {

bool CDeviceManager::AllocateMemory(void*& buffer, int size, int /*flags*/) {
    buffer = nullptr;
    if (size <= 0) return false;
    buffer = ::operator new(static_cast<size_t>(size), std::nothrow);
    return buffer != nullptr;
}

bool CDeviceManager::ReleaseMemory(void* buffer) {
    if (buffer == nullptr) return false;
    ::operator delete(buffer);
    return true;
}

}  // namespace Zentrik
