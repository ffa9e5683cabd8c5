// CChunkPoolCtrlP: a pool controller whose nodes are chunks carved out of
// one region that the caller assigns.
//
// A producer hands a raw frame to PushData; the pool copies it into the
// first free chunk that is large enough and pushes that chunk (next serial,
// tail of the using list). In ring mode, when no free chunk fits, the oldest
// chunk in use that is large enough is overwritten and moved to the newest
// end ("ringing"), so that a camera never stalls on a slow consumer; a
// consumer that still reads that chunk then sees it change.
//
// Threads: as CPoolCtrlP. PushData holds the pool mutex for the whole copy;
// memory work also takes the manager's mutex (pool first, manager second).
//
// Ownership: the pool owns its chunks and its memory block manager; the
// region itself stays the caller's, who discharges and frees it after the
// pool is gone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/memory/chunk_data.h"
#include "grabsystem/memory/mem_block.h"
#include "grabsystem/memory/mem_block_mng.h"
#include "grabsystem/pool/pool_ctrl.h"

namespace GrabSystem {

// Only ePoolRing changes behaviour; any other value acts as ePoolNormal.
enum PoolMode : int32_t {
    ePoolNormal = 0,
    ePoolRing = 1,
};

class GRABSYSTEM_EXPORT CChunkPoolCtrlP : public CPoolCtrlP {
public:
    CChunkPoolCtrlP(unsigned char poolId, PelvaneSpace::CMsgLogMngP* logMng, PoolMode mode);
    ~CChunkPoolCtrlP() override;

    // Hands the region [block.address, block.address + block.size) to the
    // pool's manager. False when a region is already assigned.
    bool AssignMemoryBlock(CMemBlockP& block);
    // Forgets the region; chunks that still hold pieces keep dangling
    // addresses, so discharge only after deleting the chunks.
    bool DischargeMemoryBlock();

    // Bytes given to each chunk made afterwards by Add (0: no memory).
    void SetDefaultMemSize(size_t size) { m_defaultMemSize = size; }

    uint64_t GetAssignedMemSize() const;
    uint64_t GetRemainMemSize() const;
    uint64_t GetUsingMemSize() const;

    // Copies a frame of `rows` rows of `rowBytes` bytes, with `rowGap`
    // padding bytes after each source row, into a chunk and pushes it.
    // False, overwriting nothing, when no chunk can take it.
    bool PushData(void* src, size_t rowBytes, size_t rows, size_t rowGap);

protected:
    IPoolNodeP* _NewNode() override GRABSYS_REQUIRES(m_mutex);
    bool _Delete(IPoolNodeP* node) override GRABSYS_REQUIRES(m_mutex);
    virtual bool _PushData(void* src, size_t rowBytes, size_t rows, size_t rowGap) GRABSYS_REQUIRES(m_mutex);

    bool _AssignDefaultMem(IChunkDataP* chunk);
    // The oldest waiting chunk of at least `size` bytes, or null.
    IChunkDataP* _Find(size_t size) GRABSYS_REQUIRES(m_mutex);

private:
    IChunkDataP* _FindOldestUsing(size_t size) GRABSYS_REQUIRES(m_mutex);

    std::unique_ptr<CMemBlockMngP> m_mng;
    PoolMode m_mode;
    size_t m_defaultMemSize = 0;
};

}  // namespace GrabSystem
