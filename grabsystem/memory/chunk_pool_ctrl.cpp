#include "grabsystem/memory/chunk_pool_ctrl.h"

namespace GrabSystem {

using PelvaneSpace::eLogTagDetail;
using PelvaneSpace::eLogTagOutcome;

namespace {
constexpr double kKB = 1024.0;
constexpr double kMB = 1048576.0;
}  // namespace

CChunkPoolCtrlP::CChunkPoolCtrlP(unsigned char poolId, PelvaneSpace::CMsgLogMngP* logMng, PoolMode mode)
    : CPoolCtrlP(poolId, logMng), m_mng(new CMemBlockMngP), m_mode(mode) {}

CChunkPoolCtrlP::~CChunkPoolCtrlP() {
    // Here, not in the base destructor, so that our _Delete returns each
    // chunk's memory to the manager before the manager goes.
    DeleteAll();
}

bool CChunkPoolCtrlP::AssignMemoryBlock(CMemBlockP& block) {
    bool result;
    {
        platform::MutexLock lock(m_mutex);
        result = m_mng->AssignMemBlock(block.address, static_cast<size_t>(block.size));
    }
    _Log(eLogTagOutcome, result ? "%d>Asn Mem %0.2f MB done" : "%d>Asn Mem %0.2f MB fail",
         static_cast<double>(block.size) / kMB);
    return result;
}

bool CChunkPoolCtrlP::DischargeMemoryBlock() {
    bool result;
    {
        platform::MutexLock lock(m_mutex);
        result = m_mng->DischargeMemBlock();
    }
    _Log(eLogTagOutcome, result ? "%d>Discharge Mem done" : "%d>Discharge Mem fail");
    return result;
}

uint64_t CChunkPoolCtrlP::GetAssignedMemSize() const { return m_mng->GetAssignedMem(); }

uint64_t CChunkPoolCtrlP::GetRemainMemSize() const { return m_mng->GetRemainMem(); }

uint64_t CChunkPoolCtrlP::GetUsingMemSize() const { return GetAssignedMemSize() - GetRemainMemSize(); }

bool CChunkPoolCtrlP::PushData(void* src, size_t rowBytes, size_t rows, size_t rowGap) {
    bool result;
    {
        platform::MutexLock lock(m_mutex);
        result = _PushData(src, rowBytes, rows, rowGap);
    }
    _Log(eLogTagOutcome, result ? "%d>PushData %0.2f KB done" : "%d>PushData %0.2f KB fail",
         static_cast<double>(rowBytes * rows) / kKB);
    return result;
}

IPoolNodeP* CChunkPoolCtrlP::_NewNode() {
    auto* chunk = new IChunkDataP;
    _Log(eLogTagDetail, "%d>Newing %p", static_cast<void*>(chunk));
    _AssignDefaultMem(chunk);
    return chunk;
}

bool CChunkPoolCtrlP::_Delete(IPoolNodeP* node) {
    try {
        _Log(eLogTagDetail, "%d>Deleting %p", static_cast<void*>(node));
        // Every node this pool made is a chunk; anything else handed to
        // Delete is destroyed without touching chunk memory.
        if (auto* chunk = dynamic_cast<IChunkDataP*>(node)) chunk->ReleaseMemory();
        delete node;
        return true;
    } catch (...) {
        return false;
    }
}

bool CChunkPoolCtrlP::_AssignDefaultMem(IChunkDataP* chunk) {
    if (chunk == nullptr || !m_mng || m_defaultMemSize == 0) return false;
    if (!chunk->SetMemSource(eMemSrcMng, m_mng.get(), 0)) return false;
    if (!chunk->AllocMemory(m_defaultMemSize, false)) return false;
    _Log(eLogTagDetail, "%d>Assign %0.2f KB", static_cast<double>(m_defaultMemSize) / kKB);
    return true;
}

IChunkDataP* CChunkPoolCtrlP::_Find(size_t size) {
    for (IPoolNodeP* node = _WaitingBegin()->NextNode(); node != nullptr && node != _WaitingEnd();
         node = node->NextNode()) {
        auto* chunk = static_cast<IChunkDataP*>(node);
        if (chunk->GetMemSize() >= size) {
            _Log(eLogTagDetail, "%d>Find chunk > %0.2f KB", static_cast<double>(size) / kKB);
            return chunk;
        }
    }
    _Log(eLogTagDetail, "%d>Find no chunk > %0.2f KB", static_cast<double>(size) / kKB);
    return nullptr;
}

IChunkDataP* CChunkPoolCtrlP::_FindOldestUsing(size_t size) {
    for (IPoolNodeP* node = _UsingBegin()->NextNode(); node != nullptr && node != _UsingEnd();
         node = node->NextNode()) {
        auto* chunk = static_cast<IChunkDataP*>(node);
        if (chunk->GetMemSize() >= size) return chunk;
    }
    return nullptr;
}

bool CChunkPoolCtrlP::_PushData(void* src, size_t rowBytes, size_t rows, size_t rowGap) {
    const size_t size = rowBytes * rows;  // wraps, as the chunk's own test does
    IChunkDataP* chunk = _Find(size);
    const bool ringing = chunk == nullptr;
    if (ringing) {
        // Refused when nothing can be rung; it is "too large" when not even
        // a chunk in use could have taken it.
        IChunkDataP* oldest = _FindOldestUsing(size);
        if (m_mode != ePoolRing || oldest == nullptr) {
            _CountRefusal(oldest == nullptr);
            return false;
        }
        chunk = oldest;
    }
    _Log(eLogTagDetail, "%d>Pushing -> %p", static_cast<void*>(chunk));
    if (!chunk->PushData(src, rowBytes, rows, rowGap)) {
        _CountRefusal(true);  // a product the chunk cannot copy: no chunk can take it
        return false;
    }
    _CountCopied(size);
    if (!ringing) return _Push(chunk);

    // A rung chunk is not a new arrival for the frame-rate meter, and the
    // last-node field keeps pointing at the last normal push or release.
    _Log(eLogTagDetail, "%d>Ringing %p", static_cast<void*>(chunk));
    chunk->PopAndAppend(_UsingEnd());
    chunk->SetState(eNodeUsing, _PopNextSerialNum());
    _CountOverwrite();
    return true;
}

}  // namespace GrabSystem
