#include "grabsystem/platform/device/cuda_driver.h"

#include "grabsystem/platform/os/os.h"

namespace Zentrik {
namespace cuda {

namespace {

#ifdef _WIN32
const char kLibrary[] = "nvcuda.dll";
#else
const char kLibrary[] = "libcuda.so.1";
#endif
constexpr int kCanMapHostMemory = 19;  // CU_DEVICE_ATTRIBUTE_CAN_MAP_HOST_MEMORY

struct Loaded {
    Driver driver{};
    bool ok = false;
    std::string absence;
};

template <typename F>
bool Bind(void* library, const char* name, F& function) {
    function = reinterpret_cast<F>(GrabSystem::platform::FindSymbol(library, name));
    return function != nullptr;
}

Loaded Load() {
    Loaded l;
    void* library = GrabSystem::platform::OpenLibrary(kLibrary);
    if (library == nullptr) {
        l.absence = std::string("no CUDA driver: ") + kLibrary + " not found";
        return l;
    }
    CUresult (*cuInit)(unsigned) = nullptr;
    CUresult (*cuDriverGetVersion)(int*) = nullptr;
    CUresult (*cuDeviceGetCount)(int*) = nullptr;
    CUresult (*cuDeviceGet)(CUdevice*, int) = nullptr;
    CUresult (*cuDeviceGetName)(char*, int, CUdevice) = nullptr;
    CUresult (*cuDeviceGetAttribute)(int*, int, CUdevice) = nullptr;
    CUresult (*cuDevicePrimaryCtxRetain)(CUcontext*, CUdevice) = nullptr;
    Driver& d = l.driver;
    const bool bound =
        Bind(library, "cuInit", cuInit) && Bind(library, "cuDriverGetVersion", cuDriverGetVersion) &&
        Bind(library, "cuDeviceGetCount", cuDeviceGetCount) && Bind(library, "cuDeviceGet", cuDeviceGet) &&
        Bind(library, "cuDeviceGetName", cuDeviceGetName) && Bind(library, "cuDeviceGetAttribute", cuDeviceGetAttribute) &&
        Bind(library, "cuDevicePrimaryCtxRetain", cuDevicePrimaryCtxRetain) &&
        Bind(library, "cuCtxSetCurrent", d.cuCtxSetCurrent) && Bind(library, "cuCtxSynchronize", d.cuCtxSynchronize) &&
        Bind(library, "cuMemHostAlloc", d.cuMemHostAlloc) && Bind(library, "cuMemFreeHost", d.cuMemFreeHost) &&
        Bind(library, "cuMemHostGetDevicePointer_v2", d.cuMemHostGetDevicePointer) &&
        Bind(library, "cuMemHostGetFlags", d.cuMemHostGetFlags) && Bind(library, "cuMemGetInfo_v2", d.cuMemGetInfo) &&
        Bind(library, "cuMemAlloc_v2", d.cuMemAlloc) && Bind(library, "cuMemFree_v2", d.cuMemFree) &&
        Bind(library, "cuMemcpyDtoH_v2", d.cuMemcpyDtoH) &&
        Bind(library, "cuMemcpyHtoD_v2", d.cuMemcpyHtoD) && Bind(library, "cuMemsetD8_v2", d.cuMemsetD8) &&
        Bind(library, "cuModuleLoadData", d.cuModuleLoadData) && Bind(library, "cuModuleUnload", d.cuModuleUnload) &&
        Bind(library, "cuModuleGetFunction", d.cuModuleGetFunction) && Bind(library, "cuLaunchKernel", d.cuLaunchKernel);
    if (!bound) {
        l.absence = std::string("a CUDA driver, ") + kLibrary + ", without the calls this library needs";
        return l;
    }
    int count = 0;
    if (cuInit(0) != kSuccess || cuDeviceGetCount(&count) != kSuccess || count < 1) {
        l.absence = "a CUDA driver but no GPU";
        return l;
    }
    CUdevice device = 0;
    int canMap = 0;
    char name[256] = {};
    if (cuDeviceGet(&device, 0) != kSuccess || cuDeviceGetAttribute(&canMap, kCanMapHostMemory, device) != kSuccess ||
        canMap == 0) {
        l.absence = "a GPU that cannot map host memory";
        return l;
    }
    if (cuDevicePrimaryCtxRetain(&d.context, device) != kSuccess) {
        l.absence = "a GPU whose context could not be made";
        return l;
    }
    cuDeviceGetName(name, static_cast<int>(sizeof name) - 1, device);
    cuDriverGetVersion(&d.version);
    d.device = name;
    l.ok = true;
    return l;
}

const Loaded& Instance() {
    static const Loaded loaded = Load();
    return loaded;
}

}  // namespace

const Driver* Get() { return Instance().ok ? &Instance().driver : nullptr; }

const std::string& Absence() { return Instance().absence; }

}  // namespace cuda
}  // namespace Zentrik
