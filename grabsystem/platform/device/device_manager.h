// Device memory for chunks that ask for a second, device-side buffer.
//
// This build has no accelerator: device buffers are host memory, which is
// what the chunks need anyway since they copy into them with memcpy.
// Thread-safe; buffers may be released on any thread.
#pragma once

#include "grabsystem/grabsystem_export.h"

namespace Zentrik {

class GRABSYSTEM_EXPORT CDeviceManager {
public:
    // Allocates `size` bytes and stores their address in `buffer`. `flags`
    // selects the kind of device memory and is accepted as given. False, with
    // `buffer` null, for a size that is not positive or when memory runs out.
    static bool AllocateMemory(void*& buffer, int size, int flags);

    // Frees a buffer from AllocateMemory; null is ignored. False for null.
    static bool ReleaseMemory(void* buffer);
};

}  // namespace Zentrik
