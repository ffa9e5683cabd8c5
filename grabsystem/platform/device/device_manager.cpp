#include "grabsystem/platform/device/device_manager.h"

#include <cstddef>
#include <cstdint>
#include <new>

#include "grabsystem/platform/device/cuda_driver.h"

namespace Zentrik {

namespace {

constexpr std::align_val_t kHostAlignment{4096};
// The flags' bits that are taken; write-combining is not (see the header).
constexpr unsigned kTakenFlags = cuda::kHostAllocPortable | cuda::kHostAllocDeviceMap;

void* HostMemory(int size) { return ::operator new(static_cast<size_t>(size), kHostAlignment, std::nothrow); }

// Whether the driver gave `buffer` (a query the driver answers for its own
// page-locked memory only).
bool FromDriver(const cuda::Driver* cu, void* buffer) {
    unsigned flags = 0;
    return cu != nullptr && cu->MakeCurrent() && cu->cuMemHostGetFlags(&flags, buffer) == cuda::kSuccess;
}

}  // namespace

bool CDeviceManager::AllocateMemory(void*& buffer, int size, int flags) {
    buffer = nullptr;
    if (size <= 0) return false;
    if (const cuda::Driver* cu = cuda::Get()) {
        void* pinned = nullptr;
        const unsigned taken = static_cast<unsigned>(flags) & kTakenFlags;
        if (cu->MakeCurrent() && cu->cuMemHostAlloc(&pinned, static_cast<size_t>(size), taken) == cuda::kSuccess) {
            buffer = pinned;
            return true;
        }
    }
    buffer = HostMemory(size);
    return buffer != nullptr;
}

bool CDeviceManager::ReleaseMemory(void* buffer) {
    if (buffer == nullptr) return false;
    const cuda::Driver* cu = cuda::Get();
    if (FromDriver(cu, buffer)) return cu->cuMemFreeHost(buffer) == cuda::kSuccess;
    ::operator delete(buffer, kHostAlignment);
    return true;
}

void* CDeviceManager::GetDevicePointer(void* buffer) {
    const cuda::Driver* cu = cuda::Get();
    if (buffer == nullptr || !FromDriver(cu, buffer)) return nullptr;
    cuda::CUdeviceptr device = 0;
    if (cu->cuMemHostGetDevicePointer(&device, buffer, 0) != cuda::kSuccess) return nullptr;
    return reinterpret_cast<void*>(static_cast<uintptr_t>(device));
}

bool CDeviceManager::IsCudaBacked() { return cuda::Get() != nullptr; }

std::string CDeviceManager::Describe() {
    const cuda::Driver* cu = cuda::Get();
    if (cu == nullptr) return "host memory (" + cuda::Absence() + ")";
    return "CUDA " + std::to_string(cu->version / 1000) + "." + std::to_string(cu->version % 1000 / 10) + ", " +
           cu->device + ": page-locked, device-mapped host memory";
}

}  // namespace Zentrik
