#include "grabsystem/format/arm_view.h"

#include <cstring>

namespace GrabSystem {
namespace format {

OneViewArmImageDataHeader DecodeArmHeader(Bytes file, bool* complete) {
    Reader r(file);
    OneViewArmImageDataHeader h;
    h.version = r.U32();
    h.sinFrameCount = r.U32();
    h.whiteFrameCount = r.U32();
    h.width = r.U32();
    h.height = r.U32();
    h.camCount = r.I32();
    h.sinDimA = r.I32();
    h.sinDimB = r.I32();
    h.sinDimC = r.I32();
    r.Copy(h.camTable, sizeof h.camTable);
    if (complete != nullptr) *complete = !r.Short();
    return h;
}

void EncodeArmHeader(Writer& w, const OneViewArmImageDataHeader& h) {
    w.U32(h.version);
    w.U32(h.sinFrameCount);
    w.U32(h.whiteFrameCount);
    w.U32(h.width);
    w.U32(h.height);
    w.I32(h.camCount);
    w.I32(h.sinDimA);
    w.I32(h.sinDimB);
    w.I32(h.sinDimC);
    w.Raw(h.camTable, sizeof h.camTable);
}

bool DecodeArmRecord(Bytes file, uint64_t offset, ArmRecordView& record) {
    if (offset > file.size || file.size - offset < kArmRecordHeaderBytes) return false;
    Reader r(file.Sub(offset));
    record.kind = r.U32();
    record.length = r.U32();
    record.data = file.Sub(offset + kArmRecordHeaderBytes, record.length);
    return true;
}

void EncodeArmRecordHeader(Writer& w, uint32_t length) {
    w.U32(kArmRecordKind);
    w.U32(length);
    w.Zeros(kArmRecordHeaderBytes - 8);
}

}  // namespace format
}  // namespace GrabSystem
