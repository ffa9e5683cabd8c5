// Device memory for chunks that ask for a second, device-side buffer.
//
// Where a CUDA driver and a GPU are present (the driver is loaded at run
// time; nothing here builds or loads against CUDA), a device buffer is
// page-locked host memory mapped into the GPU's address space, portable
// across contexts: the host copies into it as into any memory, and a GPU
// kernel reads it through its device pointer (GetDevicePointer) with no
// staging copy. Elsewhere, and for any buffer the driver cannot give, it is
// host memory aligned to 4096 bytes, which the chunks can use just the same.
//
// The flags are read as cuMemHostAlloc's bits: 1 portable, 2 device-mapped,
// 4 write-combined; higher bits mean nothing. The 15 that chunks pass asks
// for portable, device-mapped memory; write-combining is not taken, since
// the host reads these buffers back (an image saved from its device buffer)
// and write-combined memory makes host reads very slow.
//
// Thread-safe: buffers may be allocated and released on any thread.
#pragma once

#include <string>

#include "grabsystem/grabsystem_export.h"

namespace Zentrik {

class GRABSYSTEM_EXPORT CDeviceManager {
public:
    // Allocates `size` bytes and stores their address in `buffer`. False,
    // with `buffer` null, for a size that is not positive or when memory
    // runs out.
    static bool AllocateMemory(void*& buffer, int size, int flags);

    // Frees a buffer from AllocateMemory. False for null.
    static bool ReleaseMemory(void* buffer);

    // The address under which the GPU reads a buffer from AllocateMemory;
    // null for null, on the host-memory fallback, or for a buffer that is
    // not mapped (one allocated without the device-mapped bit).
    static void* GetDevicePointer(void* buffer);

    // Whether CUDA backs the device buffers.
    static bool IsCudaBacked();

    // One line that says what backs the device buffers, for people:
    // "CUDA 13.0, NVIDIA H100 80GB HBM3: page-locked, device-mapped host
    // memory" or "host memory (no CUDA driver: libcuda.so.1 not found)".
    static std::string Describe();
};

}  // namespace Zentrik
