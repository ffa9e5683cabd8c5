// CArmImageOutputMemory: one reusable output buffer of the arm output
// manager's pool. The manager owns the blocks; a view's data borrows one,
// compresses its frames into it and writes it to its file; the using status
// says whether a view holds it.
//
// A block reports exactly the size it was asked for (GetAllocatedSize), the
// figure that views are measured against. Its buffer is larger: behind that
// size it keeps room for the 1024-byte file header and LZ4's worst-case
// growth of every frame the size can stand for (GetCapacity), so that a view
// whose frames match its estimate always compresses, whatever the content.
// That room is allocated but never written unless needed, and untouched
// pages cost no memory.
//
// Threads: only the using status is guarded, by the block's own lock.
// AllocateMemory takes no lock: the manager calls it only on a block that no
// view holds.
#pragma once

#include <cstdint>
#include <memory>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {

class GRABSYSTEM_EXPORT CArmImageOutputMemory {
public:
    CArmImageOutputMemory() = default;
    virtual ~CArmImageOutputMemory();
    CArmImageOutputMemory(const CArmImageOutputMemory&) = delete;
    CArmImageOutputMemory& operator=(const CArmImageOutputMemory&) = delete;

    // Frees any buffer, clears the using status, then allocates `size`
    // bytes and the room behind them (std::bad_alloc when memory runs out).
    void AllocateMemory(uint64_t size);
    unsigned char* GetAddress() { return m_address.get(); }
    uint64_t GetAllocatedSize() const { return m_size; }
    // Bytes the buffer really holds: the allocated size plus the room for
    // the file header and LZ4's growth; 0 without a buffer.
    uint64_t GetCapacity() const { return m_capacity; }
    // The capacity AllocateMemory(size) gives.
    static uint64_t CapacityFor(uint64_t size);

    void SetUsingStatus(bool inUse);
    bool GetUsingStatus();

private:
    void _DeleteMemory();

    bool m_using GRABSYS_GUARDED_BY(m_lock) = false;
    std::unique_ptr<unsigned char[]> m_address;
    uint64_t m_size = 0;
    uint64_t m_capacity = 0;
    platform::CriticalSection m_lock;
};

}  // namespace GrabSystem
