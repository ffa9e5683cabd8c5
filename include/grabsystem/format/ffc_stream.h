// The flat-field table stream of CFFCTableP (Append / Extract), at a
// stream's position: the information block's stream form closed by its
// length word and magic (tagged with file format 2), then the raw format of
// raw_image.h (version word, size record, pixels). Tables may follow one
// another.
#pragma once

#include <cstddef>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/info_block.h"
#include "grabsystem/format/status.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace format {

struct FfcTableView {
    CImgInfo info;
    ImgSize size;           // the raw part's geometry
    Bytes pixels;           // what the stream holds of it
    bool complete = false;  // all of the pixels
    size_t bytes = 0;       // the table's length in the stream (up to what it holds)
};

// One table at the start of `stream`.
GRABSYSTEM_EXPORT Status DecodeFfcTable(Bytes stream, FfcTableView& view);

}  // namespace format
}  // namespace GrabSystem
