// What the arm output manager and the extractor have done: the figures that
// tell whether a view was lost, refused or held up, with no logger attached.
#pragma once

#include <cstdint>

#include "grabsystem/pool/counter_fields.h"

namespace GrabSystem {

// Since the output manager was made or its counters were last reset.
struct OutputCounters {
    uint64_t written = 0;                // views AddOneViewImages compressed, saved and destroyed (result 0)
    uint64_t refusedNoMemory = 0;        // views refused with result 1: the block could not take them
    uint64_t refusedCompressFailed = 0;  // views refused with result 3: they outgrew their block
    uint64_t saveFailed = 0;             // views whose file did not go into place whole (by either path):
                                         // not created, a write failed or fell short, not finished
    uint64_t waits = 0;                  // AddOneViewImages calls that had to wait for a free block
    uint64_t waitMsTotal = 0;            // milliseconds those calls waited, in all
    uint64_t waitMsLongest = 0;          // the longest of those waits
    uint64_t writtenByWorker = 0;        // queued views the worker saved and destroyed
};

// Every field of OutputCounters, in order.
inline constexpr CounterField<OutputCounters> kOutputCounterFields[] = {
    {"written", "written", &OutputCounters::written},
    {"refusedNoMemory", "refused_no_memory", &OutputCounters::refusedNoMemory},
    {"refusedCompressFailed", "refused_compress_failed", &OutputCounters::refusedCompressFailed},
    {"saveFailed", "save_failed", &OutputCounters::saveFailed},
    {"waits", "waits", &OutputCounters::waits},
    {"waitMsTotal", "wait_ms_total", &OutputCounters::waitMsTotal},
    {"waitMsLongest", "wait_ms_longest", &OutputCounters::waitMsLongest},
    {"writtenByWorker", "written_by_worker", &OutputCounters::writtenByWorker},
};

// Of the extractor's last OutputOneViewArmImages call, per source.
struct ExtractCounters {
    uint64_t extracted[3] = {};     // views the extractor took as written out
    uint64_t failed[3] = {};        // views that failed (failedViews names them)
    uint64_t filesFailed[3] = {};   // of the extracted views, those whose BMP files did not all go into place
                                    // whole (a failed or short write, a refused folder); the system counts
                                    // them as extracted, so failedViews does not name them
};

// Every field of ExtractCounters, in order.
inline constexpr CounterField<ExtractCounters, uint64_t[3]> kExtractCounterFields[] = {
    {"extracted", "extracted", &ExtractCounters::extracted},
    {"failed", "failed", &ExtractCounters::failed},
    {"filesFailed", "files_failed", &ExtractCounters::filesFailed},
};

}  // namespace GrabSystem
