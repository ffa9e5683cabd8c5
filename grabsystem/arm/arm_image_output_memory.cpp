#include "grabsystem/arm/arm_image_output_memory.h"

#include <cstdint>
#include <new>

#include "grabsystem/format/arm_view.h"

namespace GrabSystem {

CArmImageOutputMemory::~CArmImageOutputMemory() {
    _DeleteMemory();
    // Wait for a thread still inside the lock before it goes.
    m_lock.Enter();
    m_lock.Leave();
}

void CArmImageOutputMemory::_DeleteMemory() {
    m_address.reset();
    m_size = 0;
    m_capacity = 0;
    SetUsingStatus(false);
}

uint64_t CArmImageOutputMemory::CapacityFor(uint64_t size) {
    // A view's estimate counts 64 + b bytes for a frame of b bytes; its
    // record can take 64 + b + b / 255 + 16 (LZ4's bound). Since every frame
    // counts at least 64, the 16 bytes add at most a quarter of the estimate,
    // and b / 255 at most size / 255. The file header comes on top.
    constexpr uint64_t kMax = uint64_t{1} << 60;  // far beyond any allocation
    if (size > kMax) return UINT64_MAX;
    return size + format::kArmHeaderBytes + size / 4 + size / 255 + 1;
}

void CArmImageOutputMemory::AllocateMemory(uint64_t size) {
    _DeleteMemory();
    const uint64_t capacity = CapacityFor(size);
    if (capacity > SIZE_MAX) throw std::bad_alloc();
    // Not value-initialised: pages the view never writes are never touched.
    m_address.reset(new unsigned char[static_cast<size_t>(capacity)]);
    m_size = size;
    m_capacity = capacity;
}

void CArmImageOutputMemory::SetUsingStatus(bool inUse) {
    platform::CriticalSectionLock lock(m_lock);
    m_using = inUse;
}

bool CArmImageOutputMemory::GetUsingStatus() {
    platform::CriticalSectionLock lock(m_lock);
    return m_using;
}

}  // namespace GrabSystem
