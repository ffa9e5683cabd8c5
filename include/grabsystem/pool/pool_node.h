// Pool nodes: links of the intrusive doubly linked lists of a pool.
//
// Every chunk and every image is an IPoolNodeP. A node records which of its
// pool's two lists it sits in (state), the serial number the pool gave it on
// push, and the tick of its last link operation. CPnBegin and CPnEnd are the
// sentinels that bound each list; a pool owns one pair per list.
//
// Nodes are not thread-safe: their pool moves them only under the pool
// mutex, and only the pool sets their state and serial on those moves.
// The node's own mutex is there for derived classes that lock a node's data
// (NodeMutex()); the destructor waits for its holder to let go.
#pragma once

#include <cstdint>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {

class CPoolCtrlP;
class CPnEnd;

enum NodeState : int32_t {
    eNodeNew = 0,      // constructed, not yet in a pool's list
    eNodeUsing = 1,    // in the using list: holds live data and a serial
    eNodeWaiting = 2,  // in the waiting list: free for reuse; serial 0
};

// The virtual operations are declared in their slot order (the link
// setters, the destructor, the link getters): callers built against this
// layout call through those slots.
class GRABSYSTEM_EXPORT IPoolNodeP {
protected:
    // Link setters that splice whole chains without touching time stamps;
    // the sentinels override them so that nothing links past a list's ends.
    virtual void __SetLast(IPoolNodeP* node);
    virtual void __SetNext(IPoolNodeP* node);

public:
    IPoolNodeP() = default;
    virtual ~IPoolNodeP();
    IPoolNodeP(const IPoolNodeP&) = delete;
    IPoolNodeP& operator=(const IPoolNodeP&) = delete;

    virtual IPoolNodeP* LastNode();
    virtual IPoolNodeP* NextNode();

    void SetPoolCtrl(CPoolCtrlP* pool) { m_pool = pool; }
    CPoolCtrlP* GetPoolCtrl() const { return m_pool; }
    const uint32_t& GetTimeStamp() const { return m_timeStamp; }
    uint64_t GetSerialNum() const { return m_serial; }
    NodeState GetState() const { return m_state; }

    // Stores the state; the serial is kept only for eNodeUsing, otherwise 0.
    void SetState(NodeState state, uint64_t serial);

    // Links this (unlinked) node right before `at`; ignored for null.
    void InsertBefore(IPoolNodeP* at);
    // Unlinks this node and links it right before `end`, at the tail of the
    // list that `end` closes; ignored for null.
    void PopAndAppend(CPnEnd* end);

    // Ask the owning pool to push / release this node; false without a pool.
    bool Push();
    bool Release();

protected:
    // Links this (unlinked) node right after `at`; ignored for null.
    void _InsertAfter(IPoolNodeP* at);
    // Unlinks this node, joining its neighbours, and clears its links.
    void _Pop();

    // The node's own lock, for a derived node's data; the pool never takes it.
    platform::Mutex& NodeMutex() GRABSYS_RETURN_CAPABILITY(m_mutex) { return m_mutex; }

private:
    friend class CPoolCtrlP;

    void _Unlink();
    void _LinkBefore(IPoolNodeP* at);
    void _Stamp();

    IPoolNodeP* m_last = nullptr;
    IPoolNodeP* m_next = nullptr;
    uint32_t m_timeStamp = 0;
    CPoolCtrlP* m_pool = nullptr;
    uint64_t m_serial = 0;
    NodeState m_state = eNodeNew;
    platform::Mutex m_mutex;
};

// Head sentinel: has no predecessor.
class GRABSYSTEM_EXPORT CPnBegin : public IPoolNodeP {
public:
    IPoolNodeP* LastNode() override { return nullptr; }

protected:
    void __SetLast(IPoolNodeP*) override {}
};

// Tail sentinel: has no successor.
class GRABSYSTEM_EXPORT CPnEnd : public IPoolNodeP {
public:
    IPoolNodeP* NextNode() override { return nullptr; }

protected:
    void __SetNext(IPoolNodeP*) override {}
};

}  // namespace GrabSystem
