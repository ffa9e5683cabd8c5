// What a decoder found. Decoders never read outside the bytes they are
// given; a status other than kOk says why what they returned is incomplete
// or not to be believed.
#pragma once

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace format {

enum class Status {
    kOk,
    kTruncated,   // the bytes end before what the layout (or a length in it) needs
    kBadVersion,  // a version word the format does not know
    kBadValue,    // a field contradicts the others, or exceeds what the format allows
    kNotFound,    // the part looked for is not there (no information block at the end)
};

// A few words for messages: "truncated", "unknown version", ...
GRABSYSTEM_EXPORT const char* Describe(Status status);

}  // namespace format
}  // namespace GrabSystem
