#include "grabsystem/format/raw_image.h"

namespace GrabSystem {
namespace format {

void EncodeRawVersion(Writer& w) { w.U16(kRawVersion); }

Status DecodeRawVersion(Reader& r) {
    const uint16_t version = r.U16();
    if (r.Short()) return Status::kTruncated;
    return version == kRawVersion ? Status::kOk : Status::kBadVersion;
}

Status DecodeRawImage(Bytes file, RawImageView& view) {
    Reader r(file);
    RawImageView read;
    Status s = DecodeRawVersion(r);
    if (s == Status::kOk) s = Decode(r, read.size);
    if (s != Status::kOk) return s;
    size_t infoStart = file.size;
    read.hasInfo = DecodeInfoBlockAtEnd(file, read.info, &infoStart) == Status::kOk;
    // The pixels end where the block begins, if the file has one.
    const uint64_t wanted = read.size.GetByteSize();
    const size_t available = infoStart > r.Position() ? infoStart - r.Position() : 0;
    read.pixels = file.Sub(r.Position(), wanted < available ? wanted : available);
    read.complete = read.pixels.size == wanted;
    view = read;
    return Status::kOk;
}

}  // namespace format
}  // namespace GrabSystem
