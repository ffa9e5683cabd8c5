// CPoolCtrlP: a fixed population of pool nodes in two intrusive lists.
//
// The waiting list holds free nodes; the using list holds nodes with live
// data, oldest first. Push moves a node from waiting to the tail of using and
// gives it the next 64-bit serial number; release moves it back to the tail
// of waiting with serial 0. The controller finds frames by serial, counts
// nodes, measures the live frame rate from push times, and writes one log
// line per operation to the caller's log manager.
//
// Threads: every public operation may be called from any thread. One pool
// mutex guards both lists, the serial counter and the last node; the frame
// rate meter's mutex is taken inside it. Log lines are written after the
// pool mutex is released, except those of DeleteAll and the step-by-step
// (tag 2) lines, which are written while it is held.
//
// Ownership: the controller owns its nodes and its four sentinels and
// deletes all nodes on destruction. The log manager is not owned and may be
// null, in which case nothing is logged.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/os/mutex.h"
#include "grabsystem/pool/counter.h"
#include "grabsystem/pool/pool_counters.h"
#include "grabsystem/pool/pool_node.h"

namespace GrabSystem {

class CFpsMeterP;

// The virtual operations are declared in their slot order: _NewNode,
// _Delete, then the destructor.
class GRABSYSTEM_EXPORT CPoolCtrlP {
protected:
    // Make and destroy one node. Called with the pool mutex held (Add,
    // Delete, DeleteAll), so an override must not call back into the pool's
    // public operations.
    virtual IPoolNodeP* _NewNode() GRABSYS_REQUIRES(m_mutex);
    virtual bool _Delete(IPoolNodeP* node) GRABSYS_REQUIRES(m_mutex);

public:
    CPoolCtrlP(unsigned char poolId, PelvaneSpace::CMsgLogMngP* logMng);
    virtual ~CPoolCtrlP();
    CPoolCtrlP(const CPoolCtrlP&) = delete;
    CPoolCtrlP& operator=(const CPoolCtrlP&) = delete;

    // Makes `count` nodes with _NewNode() and appends them to the waiting
    // list. False if any could not be made; the others are kept.
    bool Add(unsigned int count);

    // Deletes one node of this pool (or one that belongs to no pool),
    // releasing it first if it is in use. False for null, for a node of
    // another pool, or when _Delete fails.
    bool Delete(IPoolNodeP* node);

    // Releases every node, then deletes every node. If releasing fails the
    // failure is logged only: nothing is deleted and the result is true.
    bool DeleteAll();

    // Moves a waiting node of this pool to the tail of the using list with
    // the next serial. False for null, a node that is not waiting, or a node
    // of another pool.
    bool Push(IPoolNodeP* node);
    // Pushes the oldest waiting node; false when none is waiting.
    bool Push();

    // Moves a node in use back to the tail of the waiting list, serial 0.
    // False for null, a node that is not in use, or a node of another pool.
    bool Release(IPoolNodeP* node);
    // Releases the node in use with that serial; false when there is none.
    bool Release(uint64_t serial);
    // Moves every node in use to the tail of the waiting list, in order.
    bool ReleaseAll();

    uint32_t GetCount();
    uint32_t GetUsingCount();
    uint32_t GetWaitingCount();

    // Frames per second over the last 100 pushes (see CFpsMeterP).
    double GetLiveFps();

    // The serial the next push hands out. Neither call takes the pool
    // mutex; a push racing with SetNextSerialNum gets either value.
    uint64_t GetNextSerialNum();
    void SetNextSerialNum(uint64_t serial);

    // The node in use with that serial, or null. The node is returned
    // without the pool lock: the caller must own it (it was pushed and not
    // yet released) for as long as it uses it.
    IPoolNodeP* GetNodeWithSerial(uint64_t serial);

    // What the pool has done since it was made or last reset (see
    // PoolCounters). Read without the pool mutex, at any time: each figure
    // is exact, figures taken together may be a push apart. The reset
    // zeroes them; the most in use restarts at the number in use now.
    PoolCounters GetCounters() const;
    void ResetCounters();

protected:
    bool _Push(IPoolNodeP* node) GRABSYS_REQUIRES(m_mutex);
    bool _Release(IPoolNodeP* node) GRABSYS_REQUIRES(m_mutex);
    bool _ReleaseAll() GRABSYS_REQUIRES(m_mutex);
    uint32_t _GetUsingCount() GRABSYS_REQUIRES(m_mutex);
    uint32_t _GetWaitingCount() GRABSYS_REQUIRES(m_mutex);
    uint64_t _PopNextSerialNum() GRABSYS_REQUIRES(m_mutex);
    IPoolNodeP* _GetNodeWithSerial(uint64_t serial) GRABSYS_REQUIRES(m_mutex);
    bool _AddLog(PelvaneSpace::CMsgLogP& log);

    // For derived pools: a frame refused (`tooLarge`: no node could take
    // it, else every node that could was in use), a ring overwrite, and the
    // bytes of a frame copied into a node.
    void _CountRefusal(bool tooLarge) GRABSYS_REQUIRES(m_mutex);
    void _CountOverwrite() GRABSYS_REQUIRES(m_mutex) { m_overwritten.Add(); }
    void _CountCopied(uint64_t bytes) GRABSYS_REQUIRES(m_mutex) { m_bytesCopied.Add(bytes); }

    // Builds and hands over a log line prefixed by "%d>" with the pool id,
    // and only when a log manager is attached: an unattached pool neither
    // formats nor allocates.
    template <typename... Args>
    void _Log(int tag, const char* format, Args... args) {
        if (m_logMng == nullptr) return;
        PelvaneSpace::CMsgLogP line(tag, format, static_cast<int>(m_poolId), args...);
        _AddLog(line);
    }

    bool _Owns(const IPoolNodeP* node) const { return node->GetPoolCtrl() == this; }

    IPoolNodeP* _LastPushedOrReleased() GRABSYS_REQUIRES(m_mutex) { return m_lastNode; }
    CPnEnd* _UsingEnd() const { return m_usingEnd.get(); }
    CPnBegin* _UsingBegin() const { return m_usingBegin.get(); }
    CPnBegin* _WaitingBegin() const { return m_waitingBegin.get(); }
    CPnEnd* _WaitingEnd() const { return m_waitingEnd.get(); }
    unsigned char _PoolId() const { return m_poolId; }

    platform::Mutex m_mutex;

private:
    static uint32_t _CountBetween(IPoolNodeP* begin, IPoolNodeP* end);

    std::unique_ptr<CPnBegin> m_waitingBegin;
    std::unique_ptr<CPnBegin> m_usingBegin;
    std::unique_ptr<CPnEnd> m_waitingEnd;
    std::unique_ptr<CPnEnd> m_usingEnd;
    PelvaneSpace::CMsgLogMngP* m_logMng;
    // Atomic because Get/SetNextSerialNum work without the pool mutex.
    std::atomic<uint64_t> m_nextSerial{0};
    unsigned char m_poolId;
    IPoolNodeP* m_lastNode GRABSYS_GUARDED_BY(m_mutex) = nullptr;
    std::unique_ptr<CFpsMeterP> m_fps;
    // Written under the pool mutex, read without it.
    Count m_pushed, m_refusedNoFreeNode, m_refusedTooLarge, m_overwritten, m_released, m_maxInUse, m_bytesCopied;
    Count m_inUse;
};

}  // namespace GrabSystem
