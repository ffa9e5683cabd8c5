#include "grabsystem/arm/arm_tree.h"

#include <algorithm>
#include <cstring>

namespace GrabSystem {

namespace {

constexpr int kMaxCameras = format::kArmIdentityCameras;

// a x b, saturating: the folder list is never longer than this, and no view
// has that many frames.
int64_t ListProduct(int64_t a, int64_t b) {
    constexpr int64_t kCap = int64_t{1} << 62;
    return b != 0 && a > kCap / b ? kCap : a * b;
}

}  // namespace

bool IsPFolder(const std::string& folder) {
    for (int n = 0; n < kMaxCameras; ++n)
        if (folder.find("Cam" + std::to_string(n) + "P") != std::string::npos) return true;
    return false;
}

int PFrameNumber(int64_t k) { return k >= 0 && k < 12 ? static_cast<int>((k + 4) % 12) : 0; }

ArmTree LayOutArmTree(const OneViewArmImageDataHeader& header, int viewIdx, const std::string& root) {
    ArmTree tree;
    const uint32_t sinCount = header.sinFrameCount;
    const uint32_t total = sinCount + header.whiteFrameCount;  // 32-bit, wraps
    const int64_t cams = header.camCount, dimA = header.sinDimA, dimB = header.sinDimB, dimC = header.sinDimC;
    // The list names a camera by the table's byte: more than 8 cameras
    // would read past the table while the list is built.
    if (cams > kMaxCameras) {
        tree.error = std::to_string(cams) + " cameras, the extractor takes at most " + std::to_string(kMaxCameras);
        return tree;
    }
    if (sinCount != 0 && dimC == 0) {
        tree.error = "Sin frames with a third dimension of 0";
        return tree;
    }
    uint8_t camTable[kMaxCameras] = {0, 1, 2, 3, 4, 5, 6, 7};
    if (header.version >= format::kArmVersion) std::memcpy(camTable, header.camTable, kMaxCameras);

    // Folder d of the list, computed rather than built, as the counts come
    // from the file.
    const int64_t groups = ListProduct(std::max<int64_t>(dimA, 0), std::max<int64_t>(dimB, 0));
    const int64_t sinFolders = ListProduct(std::max<int64_t>(cams, 0), groups);
    const std::string view = std::to_string(viewIdx);
    auto place = [&](uint32_t frame, int64_t d, ArmTreeFrame& out) {
        int64_t camera = d - sinFolders;
        bool p = true;
        if (d < sinFolders) {
            camera = d / groups;
            p = d % dimB == 0;
        }
        if (camera >= cams) {
            tree.error = "frame " + std::to_string(frame) + " lies past the cameras' folders";
            return false;
        }
        out.frame = frame;
        out.camera = camTable[camera];
        out.p = p;
        out.folder = root + "Cam" + std::to_string(out.camera) + (p ? "P" : "Q") + "\\" + view + "\\";
        return true;
    };

    const uint32_t sinFrames = std::min(sinCount, total);
    int64_t d = 0, k = 0;
    for (uint32_t i = 0; i < total; ++i) {
        ArmTreeFrame f;
        if (!place(i, d, f)) return tree;
        f.white = i >= sinFrames;
        if (f.white) {
            f.file = f.folder + "imgW.bmp";
            ++d;
        } else {
            f.number = IsPFolder(f.folder) ? PFrameNumber(k) : k;
            f.file = f.folder + "img" + std::to_string(f.number) + ".bmp";
            k = (k + 1) % dimC;  // a negative sinDimC counts as its magnitude, as % does
            if (k == 0) ++d;
        }
        tree.frames.push_back(std::move(f));
    }
    tree.complete = true;
    return tree;
}

}  // namespace GrabSystem
