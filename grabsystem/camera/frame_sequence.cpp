#include "grabsystem/camera/frame_sequence.h"

namespace GrabSystem {
namespace camera {

namespace {
constexpr uint64_t kShortIds = 65535;  // 16-bit ids without 0
}

int64_t FrameSequence::Distance(uint64_t from, uint64_t to) const {
    if (m_idBits >= 64) return static_cast<int64_t>(to - from);
    // An id the protocol never uses cannot be placed: taken as the next.
    if (to == 0 || to > kShortIds || from == 0 || from > kShortIds) return 1;
    const uint64_t ahead = (to - 1 + kShortIds - (from - 1)) % kShortIds;
    return ahead <= kShortIds / 2 ? static_cast<int64_t>(ahead) : -static_cast<int64_t>(kShortIds - ahead);
}

FrameSequence::Placed FrameSequence::Place(uint64_t frameId) {
    Placed placed;
    if (!m_started) {
        m_started = true;
        m_lastId = frameId;
        m_lastPosition = placed.position = m_end++;
        return placed;
    }
    const int64_t steps = Distance(m_lastId, frameId);
    if (steps > 0) {
        placed.skipped = static_cast<uint64_t>(steps) - 1;
        m_lastPosition += static_cast<uint64_t>(steps);
        m_lastId = frameId;
        m_end = m_lastPosition + 1;
        placed.position = m_lastPosition;
    } else if (steps == 0) {
        // The same id again: a frame of its own, at the same place.
        placed.position = m_lastPosition;
    } else {
        placed.late = true;
        const uint64_t back = static_cast<uint64_t>(-steps);
        placed.position = back <= m_lastPosition ? m_lastPosition - back : 0;
    }
    return placed;
}

}  // namespace camera
}  // namespace GrabSystem
