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

Status SummarizeArmView(Bytes file, ArmViewSummary& summary) {
    bool whole = false;
    ArmViewSummary read;
    read.header = DecodeArmHeader(file, &whole);
    if (!whole) return Status::kTruncated;
    if (read.header.version == 0 || read.header.version > kArmVersion) return Status::kBadVersion;
    const uint64_t frames = uint64_t{read.header.sinFrameCount} + read.header.whiteFrameCount;
    uint64_t at = kArmHeaderBytes;
    ArmRecordView record;
    while (read.records.size() < frames && DecodeArmRecord(file, at, record)) {
        read.records.push_back(record);
        read.compressedBytes += record.length;
        at += kArmRecordHeaderBytes + uint64_t{record.length};
    }
    read.complete = at == file.size;
    summary = read;
    return Status::kOk;
}

}  // namespace format
}  // namespace GrabSystem
