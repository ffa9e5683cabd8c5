// Values wider than a byte shown as 8-bit grey: the rendering of a float
// image's BMP (CImgFloatP::SaveBmp), shared with the preview sheets so that
// a float image looks the same in both.
//
// The values are stretched over their own range: grey = the low 8 bits of
// (v - min) x (255 / (max - min)), truncated toward zero, with the scale
// rounded to a float and the maximum starting at the smallest positive
// normal double (an image of negative values only stretches as if its
// maximum were 0). -99999 (CImgFloatP::kNoData) marks "no data": it takes
// no part in the range and renders black. A product outside the 32-bit
// range, infinite or NaN, renders 0, as the x86 conversion gives it.
#pragma once

#include <cstdint>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

// `grey` receives n bytes.
GRABSYSTEM_EXPORT void StretchToGrey(const float* values, uint64_t n, uint8_t* grey);
// The same rule over doubles and 16- or 32-bit integers, which the sheets
// show although their images have no BMP form of their own.
GRABSYSTEM_EXPORT void StretchToGrey(const double* values, uint64_t n, uint8_t* grey);
GRABSYSTEM_EXPORT void StretchToGrey(const uint16_t* values, uint64_t n, uint8_t* grey);
GRABSYSTEM_EXPORT void StretchToGrey(const uint32_t* values, uint64_t n, uint8_t* grey);

}  // namespace GrabSystem
