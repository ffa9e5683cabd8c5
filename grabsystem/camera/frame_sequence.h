// FrameSequence: places the frame ids a camera delivers in the sequence of
// frames it sent, so that skipped ids become counted losses and a counter
// can number frames with the gaps kept.
//
// GigE Vision block ids (and the simulated camera's) are 16 bit: 1 to
// 65535, then 1 again; 0 is never used. Other transports count in 64 bits.
// A step back of up to half the range is a frame that arrived late, not a
// wrap. Not thread-safe: the acquisition thread owns it.
//
// Internal to the library: not installed.
#pragma once

#include <cstdint>

namespace GrabSystem {
namespace camera {

class FrameSequence {
public:
    struct Placed {
        uint64_t position = 0;  // 0 for the first frame ever placed; gaps keep their numbers
        uint64_t skipped = 0;   // ids passed over since the frame before
        bool late = false;      // it came after a later frame: it was one of the skipped
    };

    explicit FrameSequence(int idBits) : m_idBits(idBits) {}

    Placed Place(uint64_t frameId);
    // The next frame starts a new run (cameras may renumber at a start):
    // no gap is counted across, and positions go on from the last one.
    void Restart() { m_started = false; }

private:
    // Steps from `from` to `to`: positive ahead, negative behind.
    int64_t Distance(uint64_t from, uint64_t to) const;

    int m_idBits;
    bool m_started = false;
    uint64_t m_lastId = 0;
    uint64_t m_lastPosition = 0;
    uint64_t m_end = 0;  // one past the furthest position placed
};

}  // namespace camera
}  // namespace GrabSystem
