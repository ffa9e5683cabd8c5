#include "grabsystem/format/ffc_stream.h"

#include "grabsystem/format/raw_image.h"

namespace GrabSystem {
namespace format {

Status DecodeFfcTable(Bytes stream, FfcTableView& view) {
    Reader r(stream);
    FfcTableView read;
    Status s = DecodeInfoStreamAndTail(r, read.info);
    if (s == Status::kOk) s = DecodeRawVersion(r);
    if (s == Status::kOk) s = Decode(r, read.size);
    if (s != Status::kOk) return s;
    read.pixels = r.Take(read.size.GetByteSize());
    read.complete = !r.Short();
    read.bytes = r.Position();
    view = read;
    return Status::kOk;
}

}  // namespace format
}  // namespace GrabSystem
