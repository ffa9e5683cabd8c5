// CMemBlockMngP: hands out pieces of one large region that somebody else
// allocated and assigned to it (typically a camera's frame buffer).
//
// The manager never allocates or frees the region: it records the pieces in
// use, serves requests from the untouched tail of the region first and from
// gaps between pieces second (first fit, in allocation order), and takes
// pieces back on release. Released memory is not merged back into the tail.
// No alignment is applied. Gaps are judged in allocation order, which stops
// being address order once a gap is reused: a new piece may then overlap a
// piece further on in the array, as the policy has it; a piece whose
// predecessor in the array lies behind it has no gap before it, since the
// difference would place a piece outside the region.
//
// Threads: every public operation takes the main mutex, so pieces may be
// allocated and released from several threads. The mutex is re-entrant: the
// getters take it too, and a placement policy (which runs with it held) may
// call them. AllocMem additionally passes the allocation gate while holding
// it, so an owner holding the gate stops allocations. Inside a chunk pool
// the pool mutex is taken first.
//
// The three placement operations are virtual so that a derived manager can
// replace the policy; they run with the main mutex held. They are declared
// first, in their slot order (_AllocMem, _ReleaseMem, _IsRemainMemEnough).
// The destructor is virtual as well and comes after them: a derived manager
// that replaces the policy may hold state of its own, and deleting it
// through this class must run its destructor too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/memory/mem_block.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {

class GRABSYSTEM_EXPORT CMemBlockMngP {
protected:
    virtual void* _AllocMem(size_t size) GRABSYS_REQUIRES(m_mutex);
    virtual size_t _ReleaseMem(void* p) GRABSYS_REQUIRES(m_mutex);
    virtual bool _IsRemainMemEnough(size_t size, CMemBlockP& out) GRABSYS_REQUIRES(m_mutex);

public:
    CMemBlockMngP();
    virtual ~CMemBlockMngP();
    CMemBlockMngP(const CMemBlockMngP&) = delete;
    CMemBlockMngP& operator=(const CMemBlockMngP&) = delete;

    // Manages [p, p + size). False, keeping the first region, when one is
    // already assigned. Enables allocation.
    bool AssignMemBlock(void* p, size_t size);
    // Forgets the region and every piece; false when none is assigned.
    // Chunks that still hold pieces are not told: their releases then fail.
    bool DischargeMemBlock();

    // Size of the assigned region; 0 when none is assigned.
    uint64_t GetAssignedMem();
    // Bytes not handed out.
    uint64_t GetRemainMem();
    // Whether a piece of `size` bytes could be placed now.
    bool IsRemainMemEnough(size_t size);

    // A piece of `size` bytes, or null for no region, size 0, or no room.
    void* AllocMem(size_t size);
    // Takes back the piece that starts at p. False for null, no region or an
    // address that is not the start of a piece in use.
    bool ReleaseMem(void* p);
    // ReleaseMem(p), then AllocMem(size); contents are not copied. With size
    // 0 it returns null and p stays allocated.
    void* ReallocMem(void* p, size_t size);

    int GetAllocedBlockCnt();
    // Pieces whose size lies in [min, max].
    int GetAllocedBlockCnt(size_t min, size_t max);

    // Iteration over the pieces in allocation order. When there is no (more)
    // piece, the result is the manager's shared empty record (zeroed at
    // construction; what a caller writes into it stays). The references stay
    // valid until the next allocation or release. Discharging forgets the
    // pieces but not the iteration position.
    CMemBlockP& GetFirstMemBlock();
    CMemBlockP& GetNextMemBlock();

    // `enable` allows allocation while `wait` is clear; `wait` sends every
    // allocation through the gate. Clearing `wait` while `enable` is set makes
    // AllocMem raise std::system_error (operation not permitted): keep `wait`
    // set unless allocation is to be refused.
    void EnableMemAlloc(bool enable, bool wait);

protected:
    bool _CollectAllocedMemBlock() GRABSYS_REQUIRES(m_mutex);

    // Re-entrant, so that a placement policy, which runs with it held, may
    // call the getters.
    platform::CriticalSection m_mutex;

private:

    bool m_enable GRABSYS_GUARDED_BY(m_mutex) = false;
    bool m_wait GRABSYS_GUARDED_BY(m_mutex) = true;
    std::mutex m_gateMutex;
    std::unique_lock<std::mutex> m_gateLock{m_gateMutex, std::defer_lock};
    std::unique_ptr<CMemBlockP> m_assigned GRABSYS_GUARDED_BY(m_mutex);
    std::vector<CMemBlockP> m_blocks GRABSYS_GUARDED_BY(m_mutex);
    uint32_t m_iterIdx GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_remain GRABSYS_GUARDED_BY(m_mutex) = 0;
    std::unique_ptr<CMemBlockP> m_tail GRABSYS_GUARDED_BY(m_mutex);
    CMemBlockP m_empty GRABSYS_GUARDED_BY(m_mutex);
};

}  // namespace GrabSystem
