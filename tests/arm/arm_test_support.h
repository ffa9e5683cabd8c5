// Builders for arm views and per-view files used by the arm tests.
#pragma once

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "grabsystem/arm/arm_image_output_memory.h"
#include "grabsystem/arm/one_view_arm_image_data.h"
#include "grabsystem/image/img_kinds.h"

namespace grabsys_test {

// A fringe-like 8-bit frame: a sinusoid over a dark background, shifted by
// `phase`; with `noise`, random bytes that LZ4 cannot compress.
inline std::unique_ptr<GrabSystem::CImg8P> Frame(uint32_t w, uint32_t h, int phase, bool noise = false) {
    auto img = std::make_unique<GrabSystem::CImg8P>();
    img->SetSize(w, h, 1, false);
    std::mt19937 random(static_cast<unsigned>(phase) + 1);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const bool lit = x > w / 8 && x < w - w / 8 && y > h / 8 && y < h - h / 8;
            const double v = lit ? 128 + 100 * std::sin((x + 3.0 * phase) * 0.2) : 6;
            img->GetImg()[size_t{y} * w + x] = noise ? static_cast<unsigned char>(random()) : static_cast<unsigned char>(v);
        }
    return img;
}

// The frames of a view, owned, in file order (Sin, then white).
struct View {
    std::vector<std::unique_ptr<GrabSystem::CImg8P>> frames;
    std::vector<GrabSystem::IImgP*> sin, white;

    // cams x dimA x dimB x dimC Sin frames and `whites` white frames.
    View(uint32_t w, uint32_t h, int cams, int dimA, int dimB, int dimC, int whites, bool noise = false) {
        const int sinCount = cams * dimA * dimB * dimC;
        for (int i = 0; i < sinCount + whites; ++i) {
            frames.push_back(Frame(w, h, i, noise));
            (i < sinCount ? sin : white).push_back(frames.back().get());
        }
    }
};

// Two white frames, the second larger than the first and incompressible:
// the view's estimate counts the first frame's size twice, so the second
// outgrows the block that the estimate sizes.
inline View Outgrowing(uint32_t first, uint32_t second) {
    View v(1, 1, 0, 0, 0, 0, 0);
    v.frames.push_back(Frame(first, 1, 0));
    v.frames.push_back(Frame(second, 1, 1, true));
    for (auto& f : v.frames) v.white.push_back(f.get());
    return v;
}

// Compresses the view into its own block and writes `path`; returns the
// data object (still holding the block) for inspection.
inline bool WriteViewFile(View& v, int viewIdx, std::vector<GrabSystem::eCamIdx> cams, int dimA, int dimB, int dimC,
                          const std::string& path, GrabSystem::CArmImageOutputMemory& block) {
    GrabSystem::COneViewArmImageData data(viewIdx);
    data.SetSinImages(v.sin, std::move(cams), dimA, dimB, dimC);
    data.SetWhitePatternImage(v.white);
    data.SetOutputFileFullPath(path);
    block.AllocateMemory(data.GetMemoryRequired() + 4096);
    return data.SetAvaliableMemory(&block) && data.CompressMemoryData() && data.SaveToFile();
}

// Views whose trees tell the extractor's folder test by path from a test
// by camera index: cameras not numbered 0..n-1, an output root that names a
// P folder, more cameras than the tree takes, a white frame past the
// folders. `table` is padded with 0, 1, ... to `cams` entries.
struct OddTree {
    std::string root;
    int cams, a, b, c, whites;
    std::vector<GrabSystem::eCamIdx> table;
    bool whole;  // the extractor writes the whole view
};
inline std::vector<OddTree> OddTrees() {
    using GrabSystem::eCamIdx;
    return {
        {"D:\\named\\", 3, 2, 1, 2, 3, {eCamIdx(12), GrabSystem::eCam3, eCamIdx(200)}, true},
        {"D:\\Cam0Pscan\\", 2, 1, 2, 3, 2, {GrabSystem::eCam0, GrabSystem::eCam1}, true},
        {"D:\\nine\\", 9, 1, 1, 1, 9, {}, false},
        {"D:\\short\\", 1, 1, 1, 2, 2, {GrabSystem::eCam5}, false},
    };
}

// Writes the odd tree's view, frames 12 x 6, as view `viewIdx` into `file`.
inline bool WriteOddView(const OddTree& t, View& v, int viewIdx, const std::string& file) {
    std::vector<GrabSystem::eCamIdx> table = t.table;
    for (int i = static_cast<int>(table.size()); i < t.cams; ++i) table.push_back(static_cast<GrabSystem::eCamIdx>(i));
    GrabSystem::CArmImageOutputMemory block;
    return WriteViewFile(v, viewIdx, table, t.a, t.b, t.c, file, block);
}

}  // namespace grabsys_test
