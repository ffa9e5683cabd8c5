// Per-view arm files, decoded and written out by the extractor.
#include <algorithm>

#include "fuzz_common.h"
#include "grabsystem/arm/arm_image_extractor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Every frame up to the first that fails is sized to the header's
    // width x height and held until the view is written.
    using grabsys_fuzz::Word;
    const uint64_t frames = std::min<uint64_t>(static_cast<uint32_t>(Word(data, size, 4) + Word(data, size, 8)),
                                               (size > 1024 ? (size - 1024) / 64 : 0) + 1);
    if (frames * static_cast<uint32_t>(Word(data, size, 12) * Word(data, size, 16)) > grabsys_fuzz::kMaxBytes) return 0;
    grabsys_fuzz::WriteInput("arm/0.armraw", data, size);
    GrabSystem::ArmImageExtractor extractor;
    GrabSystem::OutputOneViewArmImageParm parm;
    parm.views[0] = {0};
    parm.inputDirs[0] = grabsys_fuzz::Scratch() + "/arm";
    parm.outputDir = grabsys_fuzz::Scratch() + "/armout";
    parm.mode = 1;
    std::vector<int> failed[1];
    extractor.OutputOneViewArmImages(parm, failed, 1);
    grabsys_fuzz::Clean("armout");
    return 0;
}
