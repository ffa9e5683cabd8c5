// Fringe frames as a projector-and-camera pair sees them: a sinusoid of a
// given period and phase across an elliptic object in the middle, a dark
// background around it, two bits of sensor noise. The demo, the benchmarks
// and the tests all capture these, so their figures speak of one picture
// (LZ4 packs it about 1.4:1).
#pragma once

#include <cstdint>

namespace grabsys_test {

// Writes w x h 8-bit pixels, rows of w bytes, into `pixels`. The same
// arguments give the same bytes on every machine.
void FillFringe(uint8_t* pixels, uint32_t w, uint32_t h, double period, double phase, uint32_t seed);

// A period so long that the object is lit evenly: a white-pattern frame.
constexpr double kWhitePeriod = 1e9;

}  // namespace grabsys_test
