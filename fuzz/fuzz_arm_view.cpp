// Per-view arm files, decoded and written out by the extractor.
#include "fuzz_common.h"
#include "grabsystem/arm/arm_image_extractor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
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
