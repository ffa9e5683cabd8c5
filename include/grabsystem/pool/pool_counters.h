// What a pool controller has done since it was made or its counters were
// last reset: the figures that tell what became of a frame (refused,
// overwritten, released late) with no log manager attached.
#pragma once

#include <cstdint>

#include "grabsystem/pool/counter_fields.h"

namespace GrabSystem {

struct PoolCounters {
    uint64_t pushed = 0;             // frames pushed into free (waiting) nodes
    uint64_t refusedNoFreeNode = 0;  // pushes refused: the nodes that could take the frame were all in use
    uint64_t refusedTooLarge = 0;    // pushes refused: no node of the pool could take the frame
    uint64_t overwritten = 0;        // frames written over the oldest node in use (ring mode)
    uint64_t released = 0;           // nodes released back to the waiting list
    uint64_t maxInUse = 0;           // the most nodes in use at once
    uint64_t bytesCopied = 0;        // frame bytes copied into nodes, pushed or overwritten
};

// Every field of PoolCounters, in order.
inline constexpr CounterField<PoolCounters> kPoolCounterFields[] = {
    {"pushed", "pushed", &PoolCounters::pushed},
    {"refusedNoFreeNode", "refused_no_free_node", &PoolCounters::refusedNoFreeNode},
    {"refusedTooLarge", "refused_too_large", &PoolCounters::refusedTooLarge},
    {"overwritten", "overwritten", &PoolCounters::overwritten},
    {"released", "released", &PoolCounters::released},
    {"maxInUse", "max_in_use", &PoolCounters::maxInUse},
    {"bytesCopied", "bytes_copied", &PoolCounters::bytesCopied},
};

}  // namespace GrabSystem
