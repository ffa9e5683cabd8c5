// Live frame-rate meter of a pool controller (internal, not installed).
//
// Keeps the push times of the last 100 frames in a ring. It has its own
// mutex, always taken inside the pool mutex (pool first, meter second).
#pragma once

#include <cstdint>

#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {

class CFpsMeterP {
public:
    static constexpr uint32_t kSlots = 100;

    void AddStamp(uint32_t stamp);

    // count x 1000 / (newest - oldest): 0.0 with fewer than three stamps or
    // when the span is 0. The numerator counts stamps, not intervals between
    // them; that is how the figure is defined, and callers compare against it.
    double GetFps();

private:
    platform::Mutex m_mutex;
    uint32_t m_write GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint32_t m_lastIdx GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint32_t m_count GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint32_t m_stamps[kSlots] GRABSYS_GUARDED_BY(m_mutex) = {};
};

}  // namespace GrabSystem
