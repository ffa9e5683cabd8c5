// The float and double raw files of CImgFloatP and CImgDoubleP (SaveToRaw,
// LoadFromRaw), little-endian:
//
//   u32 version (1) | u32 width | u32 height | u32 channels |
//   f64 resolution y | f64 resolution z | height x width x channels values
//
// of E bytes each (4 for floats, 8 for doubles). The first resolution value
// is not stored. Readers check neither the version nor the length: header
// bytes a short file lacks read as zeros, and the values are what follows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "grabsystem/format/coding.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace format {

constexpr uint32_t kValueRawVersion = 1;
constexpr size_t kValueRawHeaderBytes = 32;

struct ValueRawView {
    uint32_t version = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0;
    double resolutionY = 0;
    double resolutionZ = 0;
    Bytes values;  // everything after the header
};

GRABSYSTEM_EXPORT ValueRawView DecodeValueRaw(Bytes file);
void EncodeValueRawHeader(Writer& w, uint32_t width, uint32_t height, uint32_t channels, double resolutionY,
                          double resolutionZ);

}  // namespace format
}  // namespace GrabSystem
