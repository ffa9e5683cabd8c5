// Per-view arm files: the header and records decoded in memory, the strict
// reader, then the file decoded and written out by the extractor.
#include <algorithm>

#include "fuzz_common.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/format/arm_view.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace format = GrabSystem::format;
    const format::Bytes file = grabsys_fuzz::Input(data, size);
    const GrabSystem::OneViewArmImageDataHeader header = format::DecodeArmHeader(file);
    uint64_t records = 0;
    format::ArmRecordView record;
    for (uint64_t at = format::kArmHeaderBytes; format::DecodeArmRecord(file, at, record);
         at += format::kArmRecordHeaderBytes + uint64_t{record.length})
        ++records;
    // Every frame up to the first that fails is sized to the header's
    // width x height and held until the view is written.
    const uint64_t frames =
        std::min<uint64_t>(static_cast<uint32_t>(header.sinFrameCount + header.whiteFrameCount), records + 1);
    format::ArmViewSummary summary;
    if (format::SummarizeArmView(file, summary) == format::Status::kOk && summary.records.size() > records)
        __builtin_trap();  // the summary walked records the decoder does not find
    // The strict reader takes a view only when it accounts for every byte.
    GrabSystem::capture::ArmViewContent view;
    if (GrabSystem::capture::DecodeArmView(file, view).ok() &&
        (!summary.complete || view.sin.count + uint64_t{view.white.count} != summary.records.size()))
        __builtin_trap();
    if (frames * grabsys_fuzz::ImageBytes(header.width, header.height, 1, 8) > grabsys_fuzz::kMaxBytes) return 0;

    grabsys_fuzz::Files files;
    files.Put("arm/0.armraw", data, size);
    GrabSystem::ArmImageExtractor extractor;
    extractor.SetEnv(files.Env());
    GrabSystem::OutputOneViewArmImageParm parm;
    parm.views[0] = {0};
    parm.inputDirs[0] = "arm";
    parm.outputDir = "armout";
    parm.mode = 1;
    std::vector<int> failed[1];
    extractor.OutputOneViewArmImages(parm, failed, 1);
    return 0;
}
