#include "grabsystem/memory/chunk_data.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "grabsystem/memory/mem_block_mng.h"
#include "grabsystem/platform/copy_rows.h"
#include "grabsystem/platform/device/device_manager.h"
#include "grabsystem/platform/os/os.h"

namespace GrabSystem {

namespace {
constexpr int kDeviceMemoryFlags = 15;
}  // namespace

IChunkDataP::IChunkDataP() : m_block(new CMemBlockP) { m_block->chunk = this; }

IChunkDataP::~IChunkDataP() { ReleaseMemory(); }

bool IChunkDataP::SetMemSource(eMemBlockSource src, void* p, size_t size) {
    switch (src) {
        case eMemSrcNew:
            break;
        case eMemSrcAssign:
            if (p == nullptr || size == 0) return false;
            break;
        case eMemSrcMng:
            if (p == nullptr) return false;
            break;
        default:
            return false;
    }
    const bool sourceChanges = src != m_block->source;
    const bool managerChanges = src != eMemSrcNew && p != m_block->manager;
    // The release's result does not stop the move. A piece the manager
    // refuses (a discharged manager, or no piece at all) is left to it.
    if (sourceChanges || managerChanges) ReleaseMemory();
    if (src == eMemSrcNew && sourceChanges) {
        // The heap source frees its address: whatever another source left
        // there (a caller's buffer, a refused piece) must not reach the
        // heap. A chunk already on the heap keeps its own memory.
        m_block->address = nullptr;
        m_block->size = 0;
    }
    switch (src) {
        case eMemSrcNew:
            m_block->manager = nullptr;
            break;
        case eMemSrcAssign:
            m_block->manager = nullptr;
            m_block->address = p;
            m_block->size = size;
            m_block->timeStamp = platform::GetTickMs();
            break;
        default:
            m_block->manager = static_cast<CMemBlockMngP*>(p);
            break;
    }
    m_block->source = src;
    return true;
}

bool IChunkDataP::AllocMemory(size_t size, bool device) {
    if (m_block->size != 0) ReleaseMemory();
    bool result = false;
    switch (m_block->source) {
        case eMemSrcAssign:
            result = _AllocMemAssign(size);
            break;
        case eMemSrcMng:
            result = _AllocMemMng(size);
            break;
        default:
            result = _AllocMemNew(size);
            break;
    }
    if (device) {
        _ReleaseDevice();
        Zentrik::CDeviceManager::AllocateMemory(m_device, size > INT_MAX ? -1 : static_cast<int>(size),
                                                kDeviceMemoryFlags);
    }
    return result;
}

bool IChunkDataP::ReleaseMemory() {
    bool result = true;
    switch (m_block->source) {
        case eMemSrcAssign:
            result = _ReleaseMemAssign();
            break;
        case eMemSrcMng:
            result = _ReleaseMemMng();
            break;
        default:
            result = _ReleaseMemNew();
            break;
    }
    _ReleaseDevice();
    return result;
}

void* IChunkDataP::GetDevicePointer() {
    return m_device == nullptr ? nullptr : Zentrik::CDeviceManager::GetDevicePointer(m_device);
}

void IChunkDataP::_ReleaseDevice() {
    if (m_device == nullptr) return;
    Zentrik::CDeviceManager::ReleaseMemory(m_device);
    m_device = nullptr;
}

bool IChunkDataP::PushData(void* src, size_t rowBytes, size_t rows, size_t rowGap) {
    // rowBytes x rows in size_t, which wraps; copied in one piece that is
    // what gets copied. Row by row the true product would be copied, so
    // there it must not wrap.
    const size_t total = rowBytes * rows;
    if (m_block->size < total) return false;
    size_t exact = 0;
    if (rowGap != 0 && __builtin_mul_overflow(rowBytes, rows, &exact)) return false;
    if (total == 0) return true;
    if (src == nullptr) return false;
    auto* dst = static_cast<unsigned char*>(m_block->address);
    const auto* from = static_cast<const unsigned char*>(src);
    if (rowGap == 0) {
        std::memcpy(dst, from, total);
        return true;
    }
    platform::CopyRows(dst, from, rowBytes, rows, rowBytes + rowGap);
    return true;
}

bool IChunkDataP::DuplicateFromChunk(IChunkDataP& other) {
    if (&other == this) return true;
    const size_t size = other.GetMemSize();
    if (GetMemSize() != size) AllocMemory(size, false);
    // A reallocation that failed (a caller's buffer cannot be re-allocated)
    // leaves less room than the other chunk has: the copy stops there.
    const size_t copy = std::min(size, GetMemSize());
    if (copy != 0) std::memcpy(GetData(), other.GetData(), copy);
    return true;
}

bool IChunkDataP::_AllocMemNew(size_t size) {
    if (size == 0) return true;
    auto* memory = new (std::nothrow) unsigned char[size];
    if (memory == nullptr) return false;
    m_block->address = memory;
    m_block->size = size;
    return true;
}

bool IChunkDataP::_ReleaseMemNew() {
    delete[] static_cast<unsigned char*>(m_block->address);
    m_block->address = nullptr;
    m_block->size = 0;
    return true;
}

bool IChunkDataP::_AllocMemAssign(size_t size) {
    if (size >= m_block->size) return false;
    m_block->size = size;
    return true;
}

bool IChunkDataP::_ReleaseMemAssign() {
    m_block->size = 0;
    return true;
}

bool IChunkDataP::_AllocMemMng(size_t size) {
    if (m_block->manager == nullptr) return false;
    void* p = m_block->manager->AllocMem(size);
    if (p == nullptr) return false;
    m_block->Set(p, size, this);
    return true;
}

bool IChunkDataP::_ReleaseMemMng() {
    if (m_block->manager == nullptr || !m_block->manager->ReleaseMem(m_block->address)) return false;
    m_block->address = nullptr;
    m_block->size = 0;
    return true;
}

}  // namespace GrabSystem
