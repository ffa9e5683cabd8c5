// What became of every frame a camera sent while it streamed into a pool:
// the figures beside the pool's own counters that account for frames the
// pool never saw (damaged or missing on the way).
//
// At any stop the frames sent are accounted for exactly once:
//
//   sent == pushed + refusedNoFreeNode + refusedTooLarge + overwritten
//           + incomplete + missed
//
// A frame is either in the pool intact, or it has a number. `underruns` and
// `timeouts` are not frames and are not part of the sum.
#pragma once

#include <cstdint>

#include "grabsystem/pool/counter_fields.h"

namespace GrabSystem {
namespace camera {

struct CameraCounters {
    // Frames the camera sent between the first and the last frame that
    // arrived in each run (Start to Stop): every frame that arrived, and
    // every frame id skipped between them.
    uint64_t sent = 0;
    // Frames that arrived whole; each went to the pool with one of the four
    // outcomes below (the pool's own counters moved the same way).
    uint64_t completed = 0;
    uint64_t pushed = 0;             // into a free image
    uint64_t refusedNoFreeNode = 0;  // every image that could hold it was in use (the consumer is behind)
    uint64_t refusedTooLarge = 0;    // no image of the pool can hold a frame of this size
    uint64_t overwritten = 0;        // written over the oldest image in use (ring mode)
    // Frames that arrived damaged (packets missing, the rest not in time,
    // a size that does not match): never pushed.
    uint64_t incomplete = 0;
    // Frames that never arrived: ids skipped in the camera's sequence
    // (GigE Vision ids are 16 bit, wrap after 65535 and skip 0). A frame
    // that arrives after a later one takes its place back from here.
    uint64_t missed = 0;
    // Frames the stream had no free buffer for, as the stream counts them.
    // A GigE Vision camera's such frame is lost, so it is also one of
    // `missed` (missed - underruns were lost on the network or the camera);
    // the in-process simulated camera waits for a buffer instead, so there
    // an underrun is a delay, not a loss.
    uint64_t underruns = 0;
    // Waits of the frame timeout in which no frame came (after each, the
    // camera is asked whether it still answers).
    uint64_t timeouts = 0;
    uint64_t bytesPushed = 0;  // frame bytes copied into the pool, pushed or overwritten

    bool Balanced() const {
        return sent == pushed + refusedNoFreeNode + refusedTooLarge + overwritten + incomplete + missed &&
               completed == pushed + refusedNoFreeNode + refusedTooLarge + overwritten;
    }
};

// Every field of CameraCounters, in order.
inline constexpr CounterField<CameraCounters> kCameraCounterFields[] = {
    {"sent", "sent", &CameraCounters::sent},
    {"completed", "completed", &CameraCounters::completed},
    {"pushed", "pushed", &CameraCounters::pushed},
    {"refusedNoFreeNode", "refused_no_free_node", &CameraCounters::refusedNoFreeNode},
    {"refusedTooLarge", "refused_too_large", &CameraCounters::refusedTooLarge},
    {"overwritten", "overwritten", &CameraCounters::overwritten},
    {"incomplete", "incomplete", &CameraCounters::incomplete},
    {"missed", "missed", &CameraCounters::missed},
    {"underruns", "underruns", &CameraCounters::underruns},
    {"timeouts", "timeouts", &CameraCounters::timeouts},
    {"bytesPushed", "bytes_pushed", &CameraCounters::bytesPushed},
};

}  // namespace camera
}  // namespace GrabSystem
