// Flat-field table streams, read one after another: in memory by the
// stream's decoder, and by CFFCTableP from a file.
#include "fuzz_common.h"
#include "grabsystem/capture/ffc_file.h"
#include "grabsystem/format/ffc_stream.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace format = GrabSystem::format;
    // A table is sized by its raw part's geometry, at the depth its block
    // names (or the table's own 16 bits when the block cannot stand). The
    // file reader takes every table that decodes and the one after it.
    format::FfcTableView view;
    for (format::Bytes rest = grabsys_fuzz::Input(data, size);;) {
        if (format::DecodeFfcTable(rest, view) != format::Status::kOk) break;
        const uint32_t w = view.size.GetWidth(), h = view.size.GetHeight(), ch = view.size.GetChannels();
        if (grabsys_fuzz::ImageBytes(w, h, ch, view.info.size.GetBitPerChannel()) > grabsys_fuzz::kMaxBytes ||
            grabsys_fuzz::ImageBytes(w, h, ch, 16) > grabsys_fuzz::kMaxBytes)
            return 0;
        if (view.bytes == 0) break;
        rest = rest.Sub(view.bytes);
    }
    grabsys_fuzz::Files files;
    const std::string path = files.Put("ffc.bin", data, size);
    std::vector<std::unique_ptr<GrabSystem::CFFCTableP>> tables;
    GrabSystem::capture::ReadFfcTables(path, tables, files.Env());
    return 0;
}
