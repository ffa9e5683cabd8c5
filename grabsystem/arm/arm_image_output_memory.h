// CArmImageOutputMemory: one reusable output buffer of the arm output
// manager's pool. The manager owns the blocks; a view's data borrows one,
// compresses its frames into it and writes it to its file; the using status
// says whether a view holds it.
//
// Threads: only the using status is guarded, by the block's own lock.
// AllocateMemory takes no lock: the manager calls it only on a block that no
// view holds.
#pragma once

#include <cstdint>
#include <memory>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/os/os.h"

namespace GrabSystem {

class GRABSYSTEM_EXPORT CArmImageOutputMemory {
public:
    CArmImageOutputMemory() = default;
    virtual ~CArmImageOutputMemory();
    CArmImageOutputMemory(const CArmImageOutputMemory&) = delete;
    CArmImageOutputMemory& operator=(const CArmImageOutputMemory&) = delete;

    // Frees any buffer, clears the using status, then allocates `size`
    // bytes (std::bad_alloc when memory runs out).
    void AllocateMemory(uint64_t size);
    unsigned char* GetAddress() { return m_address.get(); }
    uint64_t GetAllocatedSize() const { return m_size; }

    void SetUsingStatus(bool inUse);
    bool GetUsingStatus();

private:
    void _DeleteMemory();

    bool m_using GUARDED_BY(m_lock) = false;
    std::unique_ptr<unsigned char[]> m_address;
    uint64_t m_size = 0;
    platform::CriticalSection m_lock;
};

}  // namespace GrabSystem
