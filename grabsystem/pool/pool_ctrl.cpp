#include "grabsystem/pool/pool_ctrl.h"

#include "grabsystem/pool/fps_meter.h"

namespace GrabSystem {

using PelvaneSpace::eLogTagDetail;
using PelvaneSpace::eLogTagOutcome;

namespace {
void* Addr(const void* p) { return const_cast<void*>(p); }
long long AsLL(uint64_t serial) { return static_cast<long long>(serial); }
}  // namespace

CPoolCtrlP::CPoolCtrlP(unsigned char poolId, PelvaneSpace::CMsgLogMngP* logMng)
    : m_waitingBegin(new CPnBegin),
      m_usingBegin(new CPnBegin),
      m_waitingEnd(new CPnEnd),
      m_usingEnd(new CPnEnd),
      m_logMng(logMng),
      m_poolId(poolId),
      m_fps(new CFpsMeterP) {
    m_waitingBegin->SetState(eNodeWaiting, 0);
    m_waitingEnd->SetState(eNodeWaiting, 0);
    m_usingBegin->SetState(eNodeUsing, 0);
    m_usingEnd->SetState(eNodeUsing, 0);
    m_waitingBegin->InsertBefore(m_waitingEnd.get());
    m_usingBegin->InsertBefore(m_usingEnd.get());
}

CPoolCtrlP::~CPoolCtrlP() {
    m_fps.reset();
    {
        platform::MutexLock lock(m_mutex);
        m_lastNode = nullptr;
    }
    DeleteAll();
    m_mutex.Lock();
    m_mutex.Unlock();
    m_logMng = nullptr;
}

IPoolNodeP* CPoolCtrlP::_NewNode() {
    auto* node = new IPoolNodeP;
    _Log(eLogTagDetail, "%d>Newing %p", Addr(node));
    return node;
}

bool CPoolCtrlP::_Delete(IPoolNodeP* node) {
    try {
        _Log(eLogTagDetail, "%d>Deleting %p", Addr(node));
        node->_Pop();
        delete node;
        return true;
    } catch (...) {
        return false;
    }
}

bool CPoolCtrlP::Add(unsigned int count) {
    bool result = true;
    unsigned int made = 0;
    {
        platform::MutexLock lock(m_mutex);
        for (unsigned int i = 0; i < count; ++i) {
            IPoolNodeP* node = _NewNode();
            if (node == nullptr) {
                result = false;
                continue;
            }
            node->InsertBefore(m_waitingEnd.get());
            node->SetState(eNodeWaiting, 0);
            node->SetPoolCtrl(this);
            ++made;
        }
    }
    _Log(eLogTagOutcome, "%d>Add %5d/%5d Node", static_cast<int>(made), static_cast<int>(count));
    return result;
}

bool CPoolCtrlP::Delete(IPoolNodeP* node) {
    if (node == nullptr) {
        _Log(eLogTagOutcome, "%d>Del Get NULL node");
        return false;
    }
    bool result = false;
    {
        platform::MutexLock lock(m_mutex);
        if (_Owns(node) || node->GetPoolCtrl() == nullptr) {
            if (node->GetState() == eNodeUsing) _Release(node);
            node->_Pop();
            if (m_lastNode == node) m_lastNode = nullptr;
            result = _Delete(node);
        }
    }
    _Log(eLogTagOutcome, result ? "%d>Del %p done" : "%d>Del %p fail", Addr(node));
    return result;
}

bool CPoolCtrlP::DeleteAll() {
    platform::MutexLock lock(m_mutex);
    if (!_ReleaseAll()) {
        // Reported in the log only: deleting nodes that may still be in use
        // would be worse than keeping them.
        _Log(eLogTagOutcome, "%d>Del All: Release all fail");
        return true;
    }
    const uint32_t total = _GetWaitingCount();
    uint32_t deleted = 0;
    bool result = true;
    IPoolNodeP* node = m_waitingBegin->NextNode();
    while (node != nullptr && node != m_waitingEnd.get()) {
        IPoolNodeP* next = node->NextNode();
        node->_Pop();
        if (_Delete(node)) {
            _Log(eLogTagOutcome, "%d>Del %p done", Addr(node));
            ++deleted;
        } else {
            result = false;
        }
        node = next;
    }
    m_lastNode = nullptr;
    _Log(eLogTagOutcome, "%d>Del All %5d/%5d Node", static_cast<int>(deleted), static_cast<int>(total));
    return result;
}

bool CPoolCtrlP::Push(IPoolNodeP* node) {
    if (node == nullptr) {
        _Log(eLogTagOutcome, "%d>Del Get NULL node");
        return false;
    }
    bool result;
    uint64_t serial = 0;
    {
        platform::MutexLock lock(m_mutex);
        result = _Owns(node) && _Push(node);
        serial = node->GetSerialNum();
    }
    if (result) {
        _Log(eLogTagOutcome, "%d>Push #%lld done", AsLL(serial));
    } else {
        _Log(eLogTagOutcome, "%d>Push %p fail", Addr(node));
    }
    return result;
}

bool CPoolCtrlP::Push() {
    IPoolNodeP* first;
    {
        // The oldest waiting node is read under the lock so that a
        // concurrent push or release cannot hand us a half-linked node.
        platform::MutexLock lock(m_mutex);
        first = m_waitingBegin->NextNode();
        if (first == nullptr || first == m_waitingEnd.get()) {
            _CountRefusal(false);
            return false;
        }
    }
    return Push(first);
}

bool CPoolCtrlP::Release(IPoolNodeP* node) {
    if (node == nullptr) {
        _Log(eLogTagOutcome, "%d>Del Get NULL node");
        return false;
    }
    bool result;
    uint64_t serial;
    {
        platform::MutexLock lock(m_mutex);
        serial = node->GetSerialNum();
        result = _Owns(node) && _Release(node);
    }
    _Log(eLogTagOutcome, result ? "%d>Rls #%lld done" : "%d>Rls #%lld fail", AsLL(serial));
    return result;
}

bool CPoolCtrlP::Release(uint64_t serial) {
    bool result = false;
    {
        platform::MutexLock lock(m_mutex);
        IPoolNodeP* node = _GetNodeWithSerial(serial);
        result = node != nullptr && _Release(node);
    }
    _Log(eLogTagOutcome, result ? "%d>Rls #%lld done" : "%d>Rls #%lld fail", AsLL(serial));
    return result;
}

bool CPoolCtrlP::ReleaseAll() {
    bool result;
    {
        platform::MutexLock lock(m_mutex);
        result = _ReleaseAll();
    }
    _Log(eLogTagOutcome, result ? "%d>Rls All done" : "%d>Rls All fail");
    return result;
}

uint32_t CPoolCtrlP::GetCount() {
    platform::MutexLock lock(m_mutex);
    return _GetUsingCount() + _GetWaitingCount();
}

uint32_t CPoolCtrlP::GetUsingCount() {
    platform::MutexLock lock(m_mutex);
    return _GetUsingCount();
}

uint32_t CPoolCtrlP::GetWaitingCount() {
    platform::MutexLock lock(m_mutex);
    return _GetWaitingCount();
}

double CPoolCtrlP::GetLiveFps() {
    platform::MutexLock lock(m_mutex);
    return m_fps ? m_fps->GetFps() : 0.0;
}

uint64_t CPoolCtrlP::GetNextSerialNum() { return m_nextSerial.load(std::memory_order_relaxed); }

void CPoolCtrlP::SetNextSerialNum(uint64_t serial) { m_nextSerial.store(serial, std::memory_order_relaxed); }

IPoolNodeP* CPoolCtrlP::GetNodeWithSerial(uint64_t serial) {
    platform::MutexLock lock(m_mutex);
    return _GetNodeWithSerial(serial);
}

bool CPoolCtrlP::_Push(IPoolNodeP* node) {
    if (node->GetState() != eNodeWaiting) return false;
    _Log(eLogTagDetail, "%d>Pushing %p", Addr(node));
    node->PopAndAppend(m_usingEnd.get());
    node->SetState(eNodeUsing, _PopNextSerialNum());
    if (m_fps) m_fps->AddStamp(node->GetTimeStamp());
    m_lastNode = node;
    m_pushed.Add();
    m_inUse.Add();
    m_maxInUse.Max(m_inUse.Get());
    return true;
}

bool CPoolCtrlP::_Release(IPoolNodeP* node) {
    if (node->GetState() != eNodeUsing) return false;
    _Log(eLogTagDetail, "%d>Releasing #%lld", AsLL(node->GetSerialNum()));
    node->PopAndAppend(m_waitingEnd.get());
    node->SetState(eNodeWaiting, 0);
    m_lastNode = node;
    m_released.Add();
    m_inUse.Subtract();
    return true;
}

void CPoolCtrlP::_CountRefusal(bool tooLarge) { (tooLarge ? m_refusedTooLarge : m_refusedNoFreeNode).Add(); }

PoolCounters CPoolCtrlP::GetCounters() const {
    PoolCounters c;
    c.pushed = m_pushed.Get();
    c.refusedNoFreeNode = m_refusedNoFreeNode.Get();
    c.refusedTooLarge = m_refusedTooLarge.Get();
    c.overwritten = m_overwritten.Get();
    c.released = m_released.Get();
    c.maxInUse = m_maxInUse.Get();
    c.bytesCopied = m_bytesCopied.Get();
    return c;
}

void CPoolCtrlP::ResetCounters() {
    platform::MutexLock lock(m_mutex);
    for (Count* count : {&m_pushed, &m_refusedNoFreeNode, &m_refusedTooLarge, &m_overwritten, &m_released, &m_bytesCopied})
        count->Set(0);
    m_maxInUse.Set(m_inUse.Get());
}

bool CPoolCtrlP::_ReleaseAll() {
    _Log(eLogTagDetail, "%d>Releasing All...");
    IPoolNodeP* first = m_usingBegin->NextNode();
    if (first == m_usingEnd.get()) return true;

    IPoolNodeP* lastUsing = nullptr;
    uint64_t released = 0;
    for (IPoolNodeP* node = first; node != m_usingEnd.get(); node = node->NextNode()) {
        if (node == nullptr) {
            _Log(eLogTagDetail, "%d>Rls All: link break");
            return false;
        }
        node->SetState(eNodeWaiting, 0);
        m_lastNode = node;
        lastUsing = node;
        ++released;
    }
    m_released.Add(released);
    m_inUse.Subtract(released);

    // Splice the whole chain onto the waiting tail through the virtual
    // setters: no node in between is touched and no time stamp changes.
    IPoolNodeP* lastWaiting = m_waitingEnd->LastNode();
    lastWaiting->__SetNext(first);
    first->__SetLast(lastWaiting);
    m_waitingEnd->__SetLast(lastUsing);
    lastUsing->__SetNext(m_waitingEnd.get());
    m_usingBegin->__SetNext(m_usingEnd.get());
    m_usingEnd->__SetLast(m_usingBegin.get());
    return true;
}

uint32_t CPoolCtrlP::_CountBetween(IPoolNodeP* begin, IPoolNodeP* end) {
    uint32_t count = 0;
    for (IPoolNodeP* node = begin->NextNode(); node != nullptr && node != end; node = node->NextNode()) ++count;
    return count;
}

uint32_t CPoolCtrlP::_GetUsingCount() { return _CountBetween(m_usingBegin.get(), m_usingEnd.get()); }

uint32_t CPoolCtrlP::_GetWaitingCount() { return _CountBetween(m_waitingBegin.get(), m_waitingEnd.get()); }

uint64_t CPoolCtrlP::_PopNextSerialNum() { return m_nextSerial.fetch_add(1, std::memory_order_relaxed); }

IPoolNodeP* CPoolCtrlP::_GetNodeWithSerial(uint64_t serial) {
    for (IPoolNodeP* node = m_usingBegin->NextNode(); node != nullptr && node != m_usingEnd.get();
         node = node->NextNode()) {
        if (node->GetSerialNum() == serial) return node;
    }
    return nullptr;
}

bool CPoolCtrlP::_AddLog(PelvaneSpace::CMsgLogP& log) { return m_logMng != nullptr && m_logMng->AddLog(log); }

}  // namespace GrabSystem
