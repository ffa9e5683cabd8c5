// Whether a stream is an interactive terminal, for programs that draw
// progress only where a person watches (the grabsys tool).
#pragma once

#include <cstdio>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace platform {

GRABSYSTEM_EXPORT bool IsTerminal(FILE* stream);

}  // namespace platform
}  // namespace GrabSystem
