// The fields of a counters struct as a table (PoolCounters, OutputCounters,
// ExtractCounters, camera::CameraCounters each have one beside them), so
// that whatever lists the counters (the tool's JSON, Python's dicts, the
// README's tables, checked by a test) walks the struct's own list instead
// of writing it out again.
#pragma once

#include <cstdint>

namespace GrabSystem {

template <typename Counters, typename Value = uint64_t>
struct CounterField {
    const char* name;  // the member's name in C++
    const char* key;   // the name in Python's dicts and the tool's JSON
    Value Counters::*member;
};

}  // namespace GrabSystem
