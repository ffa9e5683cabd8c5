// Export of an image package's frames as a BMP tree.
#include <cstring>
#include <string>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

namespace {
const char kExportRoot[] = "D://ImgTest//CamImgInput//Cam";
}  // namespace

void CDebugImgPackageP::ExportDebugImg() { _Export(""); }

void CDebugImgPackageP::ExportDebugImg(unsigned int packageIdx) { _Export("_" + std::to_string(packageIdx)); }

void CDebugImgPackageP::_Export(const std::string& cameraSuffix) {
    if (!Buffer || PackageInfos.empty()) return;
    CImg8P img;
    img.GetInfo().size.SetBitPerChannel(8);
    for (size_t i = 0; i < PackageInfos.size(); ++i) {
        const CDebugImgPackageInfoP& info = PackageInfos[i];
        const uint32_t frameBytes = info.Width * info.Height;
        if (frameBytes == 0) continue;  // no pixels: nothing to write, however many frames
        const std::string directory = kExportRoot + std::to_string(info.CamIdx) + cameraSuffix + "//";
        for (uint32_t j = 0; j < info.FrameCount; ++j) {
            const uint32_t number = info.FrameCount * info.GroupIdx + JumpIdx + j;
            const std::string file = directory + "img" + std::to_string(number) + ".bmp";
            if (!DrasselSpace::CWinHelper::IsDirectoryExists(directory))
                DrasselSpace::CWinHelper::CreateDirectoryRecursively(directory);
            // The uniform-run rule; a frame it would read from outside the
            // data area is skipped.
            const uint32_t offset = (info.FrameCount * static_cast<uint32_t>(i) + j) * frameBytes;
            if (uint64_t{offset} + frameBytes > BufferSize) continue;
            // The image borrows the frame where it lies in the data area
            // (a caller's buffer, never freed by the image): no copy.
            img.SetMemSource(eMemSrcAssign, Buffer.get() + offset, frameBytes);
            img.SetSize(info.Width, info.Height, 1, false);
            img.SaveBmp(file.c_str());
        }
    }
}

}  // namespace GrabSystem
