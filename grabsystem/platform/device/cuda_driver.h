// The part of the CUDA driver API that device buffers use, loaded at run time
// (libcuda.so.1, nvcuda.dll) so that the library neither builds nor loads
// against CUDA: where no driver or no GPU is found, Get() is null and the
// device-memory layer falls back to host memory. Internal, not installed.
//
// The driver is loaded once, on first use, and kept for the life of the
// process, with the primary context of GPU 0. Driver calls need a current
// context on the calling thread: call MakeCurrent() first (it is cheap).
// All members may be used from any thread.
#pragma once

#include <cstddef>
#include <string>

namespace Zentrik {
namespace cuda {

using CUresult = int;
using CUdevice = int;
using CUdeviceptr = unsigned long long;
using CUcontext = struct CUctx_st*;
using CUmodule = struct CUmod_st*;
using CUfunction = struct CUfunc_st*;
using CUstream = struct CUstream_st*;

constexpr CUresult kSuccess = 0;
// cuMemHostAlloc's flags.
constexpr unsigned kHostAllocPortable = 0x01;
constexpr unsigned kHostAllocDeviceMap = 0x02;
constexpr unsigned kHostAllocWriteCombined = 0x04;

struct Driver {
    CUresult (*cuCtxSetCurrent)(CUcontext ctx);
    CUresult (*cuCtxSynchronize)();
    CUresult (*cuMemHostAlloc)(void** p, size_t bytes, unsigned flags);
    CUresult (*cuMemFreeHost)(void* p);
    CUresult (*cuMemHostGetDevicePointer)(CUdeviceptr* device, void* p, unsigned flags);
    CUresult (*cuMemHostGetFlags)(unsigned* flags, void* p);
    CUresult (*cuMemGetInfo)(size_t* free, size_t* total);
    CUresult (*cuMemAlloc)(CUdeviceptr* device, size_t bytes);
    CUresult (*cuMemFree)(CUdeviceptr device);
    CUresult (*cuMemcpyDtoH)(void* host, CUdeviceptr device, size_t bytes);
    CUresult (*cuMemcpyHtoD)(CUdeviceptr device, const void* host, size_t bytes);
    CUresult (*cuMemsetD8)(CUdeviceptr device, unsigned char value, size_t count);
    CUresult (*cuModuleLoadData)(CUmodule* module, const void* image);
    CUresult (*cuModuleUnload)(CUmodule module);
    CUresult (*cuModuleGetFunction)(CUfunction* function, CUmodule module, const char* name);
    CUresult (*cuLaunchKernel)(CUfunction f, unsigned gridX, unsigned gridY, unsigned gridZ, unsigned blockX,
                               unsigned blockY, unsigned blockZ, unsigned sharedBytes, CUstream stream,
                               void** params, void** extra);

    CUcontext context = nullptr;  // GPU 0's primary context
    std::string device;           // its name
    int version = 0;              // the driver's CUDA version, as 1000 x major + 10 x minor

    // Makes the context current on the calling thread.
    bool MakeCurrent() const { return cuCtxSetCurrent(context) == kSuccess; }
};

// The driver with a GPU that can map host memory, or null.
const Driver* Get();

// Why Get() is null ("" when it is not): for messages.
const std::string& Absence();

}  // namespace cuda
}  // namespace Zentrik
