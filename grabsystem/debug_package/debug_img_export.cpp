// Export of an image package's frames as a BMP tree.
#include <algorithm>
#include <cstring>
#include <string>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/format/package.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

void CDebugImgPackageP::ExportDebugImg() { _Export(""); }

void CDebugImgPackageP::ExportDebugImg(unsigned int packageIdx) { _Export("_" + std::to_string(packageIdx)); }

void CDebugImgPackageP::_Export(const std::string& cameraSuffix) {
    if (!Buffer || PackageInfos.empty()) return;
    CImg8P img;
    img.GetInfo().size.SetBitPerChannel(8);
    for (size_t i = 0; i < PackageInfos.size(); ++i) {
        const CDebugImgPackageInfoP& info = PackageInfos[i];
        const uint32_t frameBytes = info.Width * info.Height;
        const std::string directory = format::ExportFolder(info.CamIdx, cameraSuffix);
        for (uint32_t j = 0; j < info.FrameCount; ++j) {
            const uint32_t number = info.FrameCount * info.GroupIdx + JumpIdx + j;
            const std::string file = format::ExportFramePath(directory, number);
            if (!DrasselSpace::CWinHelper::IsDirectoryExists(directory))
                DrasselSpace::CWinHelper::CreateDirectoryRecursively(directory);
            // The uniform-run rule, in 32 bits.
            const uint32_t offset = (info.FrameCount * static_cast<uint32_t>(i) + j) * frameBytes;
            if (frameBytes != 0 && uint64_t{offset} + frameBytes <= BufferSize) {
                // The image borrows the frame where it lies in the data area
                // (a caller's buffer, never freed by the image): no copy.
                img.SetMemSource(eMemSrcAssign, Buffer.get() + offset, frameBytes);
                img.SetSize(info.Width, info.Height, 1, false);
            } else {
                // No pixels, or a frame that runs past the data area (runs
                // of unequal sizes): a frame of its own, holding the part
                // that lies inside and zeros for the rest.
                img.SetMemSource(eMemSrcNew, nullptr, 0);
                img.SetSize(info.Width, info.Height, 1, false);
                const uint64_t inside = offset < BufferSize ? std::min<uint64_t>(frameBytes, BufferSize - offset) : 0;
                const uint64_t held = std::min<uint64_t>(inside, img.GetMemSize());
                if (held != 0) std::memcpy(img.GetImg(), Buffer.get() + offset, static_cast<size_t>(held));
                if (img.GetMemSize() > held) std::memset(img.GetImg() + held, 0, img.GetMemSize() - held);
            }
            img.SaveBmp(file.c_str());
        }
    }
}

}  // namespace GrabSystem
