#include "grabsystem/format/value_raw.h"

namespace GrabSystem {
namespace format {

ValueRawView DecodeValueRaw(Bytes file) {
    Reader r(file);
    ValueRawView view;
    view.version = r.U32();
    view.width = r.U32();
    view.height = r.U32();
    view.channels = r.U32();
    view.resolutionY = r.F64();
    view.resolutionZ = r.F64();
    view.values = file.Sub(kValueRawHeaderBytes);
    return view;
}

void EncodeValueRawHeader(Writer& w, uint32_t width, uint32_t height, uint32_t channels, double resolutionY,
                          double resolutionZ) {
    w.U32(kValueRawVersion);
    w.U32(width);
    w.U32(height);
    w.U32(channels);
    w.F64(resolutionY);
    w.F64(resolutionZ);
}

}  // namespace format
}  // namespace GrabSystem
