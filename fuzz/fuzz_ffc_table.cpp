// Flat-field table streams, read one after another: in memory by the
// stream's decoder, and by CFFCTableP from a file.
#include "fuzz_common.h"
#include "grabsystem/format/ffc_stream.h"
#include "grabsystem/image/img_kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace format = GrabSystem::format;
    // A table is sized by its raw part's geometry, at the depth its block
    // names (or the table's own 16 bits when the block cannot stand).
    size_t tables = 0;
    format::FfcTableView view;
    for (format::Bytes rest = grabsys_fuzz::Input(data, size); tables < 4; ++tables) {
        if (format::DecodeFfcTable(rest, view) != format::Status::kOk) break;
        const uint32_t w = view.size.GetWidth(), h = view.size.GetHeight(), ch = view.size.GetChannels();
        if (grabsys_fuzz::ImageBytes(w, h, ch, view.info.size.GetBitPerChannel()) > grabsys_fuzz::kMaxBytes ||
            grabsys_fuzz::ImageBytes(w, h, ch, 16) > grabsys_fuzz::kMaxBytes)
            return 0;
        rest = rest.Sub(view.bytes);
    }
    const std::string path = grabsys_fuzz::WriteInput("ffc.bin", data, size);
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return 0;
    for (size_t i = 0; i <= tables && i < 4; ++i) {
        GrabSystem::CFFCTableP table;
        if (!table.Extract(f)) break;
    }
    std::fclose(f);
    return 0;
}
