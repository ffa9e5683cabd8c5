#include "grabsystem/arm/arm_image_output_memory.h"

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
    SetUsingStatus(false);
}

void CArmImageOutputMemory::AllocateMemory(uint64_t size) {
    _DeleteMemory();
    m_address.reset(new unsigned char[static_cast<size_t>(size)]);
    m_size = size;
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
