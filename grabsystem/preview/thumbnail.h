// A frame made small for its cell: the thumbnail by area averaging
// (Downscale, contact_sheet.h) and the stats of the frame it came from.
#pragma once

#include <cstdint>
#include <vector>

#include "grabsystem/preview/layout.h"

namespace GrabSystem {
namespace preview {

// The thumbnail of `f` for cells `cellWidth` wide (tw x th x channels bytes
// into `thumb`; none for an empty frame) and the frame's stats; false when
// memory runs out.
bool MakeThumb(const FrameRef& f, uint32_t cellWidth, std::vector<uint8_t>& thumb, uint32_t& tw, uint32_t& th,
               FrameStats& stats);

}  // namespace preview
}  // namespace GrabSystem
