// Export of an image package's frames as a BMP tree.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/format/package.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/thread_pool.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

void CDebugImgPackageP::ExportDebugImg() { _Export(""); }

void CDebugImgPackageP::ExportDebugImg(unsigned int packageIdx) { _Export("_" + std::to_string(packageIdx)); }

void CDebugImgPackageP::SetExportThreads(int n) {
    m_exportPool.reset();
    if (n > 1) m_exportPool = std::make_unique<platform::ThreadPool>(n);
}

int CDebugImgPackageP::GetExportThreads() const { return m_exportPool ? m_exportPool->Threads() : 1; }

void CDebugImgPackageP::_Export(const std::string& cameraSuffix) {
    if (!Buffer || PackageInfos.empty()) return;
    // Frames are numbered across the runs; before[i] is the first of run i.
    std::vector<uint64_t> before(PackageInfos.size() + 1, 0);
    for (size_t i = 0; i < PackageInfos.size(); ++i) before[i + 1] = before[i] + PackageInfos[i].FrameCount;
    const int threads = m_exportPool ? m_exportPool->Threads() : 1;
    std::vector<CImg8P> images(static_cast<size_t>(threads));
    for (CImg8P& img : images) {
        img.GetInfo().size.SetBitPerChannel(8);
        img.SetEnv(m_env);
    }
    auto exportFrame = [&](uint64_t k, int slot) {
        const size_t run = static_cast<size_t>(std::upper_bound(before.begin(), before.end(), k) - before.begin()) - 1;
        _ExportFrame(images[static_cast<size_t>(slot)], run, static_cast<uint32_t>(k - before[run]), cameraSuffix);
    };
    if (m_exportPool)
        m_exportPool->Run(static_cast<size_t>(before.back()), exportFrame);
    else
        for (uint64_t k = 0; k < before.back(); ++k) exportFrame(k, 0);
}

void CDebugImgPackageP::_ExportFrame(CImg8P& img, size_t run, uint32_t j, const std::string& cameraSuffix) {
    const CDebugImgPackageInfoP& info = PackageInfos[run];
    const uint32_t frameBytes = info.Width * info.Height;
    const std::string directory = format::ExportFolder(info.CamIdx, cameraSuffix);
    const uint32_t number = info.FrameCount * info.GroupIdx + JumpIdx + j;
    const std::string file = format::ExportFramePath(directory, number);
    if (!DrasselSpace::CWinHelper::IsDirectoryExists(directory, m_env))
        DrasselSpace::CWinHelper::CreateDirectoryRecursively(directory, m_env);
    // The uniform-run rule, in 32 bits.
    const uint32_t offset = (info.FrameCount * static_cast<uint32_t>(run) + j) * frameBytes;
    if (frameBytes != 0 && uint64_t{offset} + frameBytes <= BufferSize) {
        // The image borrows the frame where it lies in the data area (a
        // caller's buffer, never freed by the image): no copy.
        img.SetMemSource(eMemSrcAssign, Buffer.get() + offset, frameBytes);
        img.SetSize(info.Width, info.Height, 1, false);
    } else {
        // No pixels, or a frame that runs past the data area (runs of
        // unequal sizes): a frame of its own, holding the part that lies
        // inside and zeros for the rest.
        img.SetMemSource(eMemSrcNew, nullptr, 0);
        img.SetSize(info.Width, info.Height, 1, false);
        const uint64_t inside = offset < BufferSize ? std::min<uint64_t>(frameBytes, BufferSize - offset) : 0;
        const uint64_t held = std::min<uint64_t>(inside, img.GetMemSize());
        if (held != 0) std::memcpy(img.GetImg(), Buffer.get() + offset, static_cast<size_t>(held));
        if (img.GetMemSize() > held) std::memset(img.GetImg() + held, 0, img.GetMemSize() - held);
    }
    img.SaveBmp(file.c_str());
}

}  // namespace GrabSystem
