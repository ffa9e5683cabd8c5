#include "grabsystem/pool/pool_node.h"

#include "grabsystem/platform/os/os.h"
#include "grabsystem/pool/pool_ctrl.h"

namespace GrabSystem {

IPoolNodeP::~IPoolNodeP() {
    // Wait for any holder of the node's data lock to let go.
    m_mutex.Lock();
    m_mutex.Unlock();
}

IPoolNodeP* IPoolNodeP::LastNode() { return m_last; }
IPoolNodeP* IPoolNodeP::NextNode() { return m_next; }
void IPoolNodeP::__SetLast(IPoolNodeP* node) { m_last = node; }
void IPoolNodeP::__SetNext(IPoolNodeP* node) { m_next = node; }

void IPoolNodeP::SetState(NodeState state, uint64_t serial) {
    m_state = state;
    m_serial = state == eNodeUsing ? serial : 0;
}

void IPoolNodeP::_Stamp() { m_timeStamp = platform::GetTickMs(); }

void IPoolNodeP::_Unlink() {
    if (m_last != nullptr) m_last->m_next = m_next;
    if (m_next != nullptr) m_next->m_last = m_last;
}

void IPoolNodeP::_LinkBefore(IPoolNodeP* at) {
    m_next = at;
    m_last = at->m_last;
    at->m_last = this;
    if (m_last != nullptr) m_last->m_next = this;
}

void IPoolNodeP::InsertBefore(IPoolNodeP* at) {
    if (at == nullptr) return;
    _LinkBefore(at);
    _Stamp();
}

void IPoolNodeP::_InsertAfter(IPoolNodeP* at) {
    if (at == nullptr) return;
    m_next = at->m_next;
    m_last = at;
    if (m_next != nullptr) m_next->m_last = this;
    at->m_next = this;
    _Stamp();
}

void IPoolNodeP::_Pop() {
    _Unlink();
    m_last = nullptr;
    m_next = nullptr;
    _Stamp();
}

void IPoolNodeP::PopAndAppend(CPnEnd* end) {
    if (end == nullptr) return;
    _Unlink();
    _LinkBefore(end);
    _Stamp();
}

bool IPoolNodeP::Push() { return m_pool != nullptr && m_pool->Push(this); }

bool IPoolNodeP::Release() { return m_pool != nullptr && m_pool->Release(this); }

}  // namespace GrabSystem
