// The information block, in memory: at the end of a file and as a stream.
#include "fuzz_common.h"
#include "grabsystem/format/info_block.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace format = GrabSystem::format;
    const format::Bytes bytes = grabsys_fuzz::Input(data, size);
    VormexDataStructure::CImgInfo info;
    if (format::DecodeInfoBlockAtEnd(bytes, info) == format::Status::kOk) {
        // What decodes re-encodes to the same bytes.
        std::vector<uint8_t> again(format::InfoBlockBytes(info));
        format::Writer w(again.data(), again.size());
        format::EncodeInfoBlock(w, info, info.fileFormat);
        if (w.Full() || std::memcmp(again.data(), data + size - again.size(), again.size()) != 0) __builtin_trap();
    }
    format::Reader r(bytes);
    format::DecodeInfoStreamAndTail(r, info);
    return 0;
}
