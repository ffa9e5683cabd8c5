#include "grabsystem/pool/fps_meter.h"

namespace GrabSystem {

void CFpsMeterP::AddStamp(uint32_t stamp) {
    platform::MutexLock lock(m_mutex);
    m_stamps[m_write] = stamp;
    m_lastIdx = m_write;
    m_write = (m_write + 1) % kSlots;
    if (m_count < kSlots) ++m_count;
}

double CFpsMeterP::GetFps() {
    platform::MutexLock lock(m_mutex);
    if (m_count <= 2) return 0.0;
    const uint32_t oldest = m_count < kSlots ? m_stamps[0] : m_stamps[m_write];
    const uint32_t newest = m_stamps[m_lastIdx];
    const double numerator = static_cast<double>(m_count * 1000u);
    if (newest > oldest) return numerator / static_cast<double>(newest - oldest);
    // The tick wrapped between the two stamps; the "- 1" is part of the
    // figure's definition for that case.
    if (newest < oldest) {
        const uint32_t span = static_cast<uint32_t>(newest - oldest) - 1u;
        return span == 0 ? 0.0 : numerator / static_cast<double>(span);
    }
    return 0.0;
}

}  // namespace GrabSystem
