#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "grabsystem/image/img_kinds.h"
#include "grabsystem/image/img_pool_ctrl.h"
#include "test_support.h"

using namespace GrabSystem;
using namespace VormexDataStructure;

namespace {

struct Pool {
    Pool(unsigned char bits, PoolMode mode, size_t chunk, unsigned count, PelvaneSpace::CMsgLogMngP* log = nullptr)
        : region(chunk * count + 64), pool(5, log, mode, bits) {
        CMemBlockP block(region.data(), region.size());
        pool.AssignMemoryBlock(block);
        pool.SetDefaultMemSize(chunk);
    }
    std::vector<unsigned char> region;
    CImgPoolCtrlP pool;
};

}  // namespace

TEST(ImgPool, DepthSelectsTheImageKind) {
    struct Case {
        unsigned char bits, stored;
        bool is8, is16, is32;
    };
    for (Case c : {Case{1, 8, true, false, false}, Case{12, 16, false, true, false}, Case{24, 32, false, false, true},
                   Case{64, 64, true, false, false}, Case{0, 8, true, false, false}}) {
        Pool p(c.bits, ePoolNormal, 16, 1);
        EXPECT_EQ(p.pool.GetBits(), c.stored);
        p.pool.Add(1);
        ASSERT_TRUE(p.pool.Push());
        IImgP* img = p.pool.GetImg(0);
        ASSERT_NE(img, nullptr);
        EXPECT_EQ(dynamic_cast<CImg8P*>(img) != nullptr, c.is8) << int(c.bits);
        EXPECT_EQ(dynamic_cast<CImg16P*>(img) != nullptr, c.is16) << int(c.bits);
        EXPECT_EQ(dynamic_cast<CImg32P*>(img) != nullptr, c.is32) << int(c.bits);
        EXPECT_EQ(img->GetBitPerCh(), c.stored);
    }
}

TEST(ImgPool, PushImgStoresTheFrameAttributeAndLogs) {
    grabsys_test::LogCapture log;
    Pool p(8, ePoolNormal, 640 * 480, 2, log.Manager());
    p.pool.SetImgDefaultConfig(eCam2, eMemModeFixed, ImgSize(640, 480, 1, 8), ImgRes(1, 2, 3));
    p.pool.Add(2);
    std::vector<unsigned char> frame(640 * 481, 3);
    log.Clear();
    ASSERT_TRUE(p.pool.PushImg(frame.data(), 640, 480, 0, 7));
    auto texts = log.Texts();
    EXPECT_EQ(texts.front(), "5>Start Push");
    EXPECT_EQ(texts.back(), "Pool Id: 5 PushImg #0 done");
    IImgP* img = p.pool.GetImg(0);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(img->GetInfo().frameAttr, 7u);
    EXPECT_EQ(img->GetInfo().camIdx, eCam2);
    EXPECT_EQ(img->GetMemMode(), eMemModeFixed);
    EXPECT_EQ(img->GetWidth(), 640u);
    EXPECT_EQ(img->GetResolution().dZ, 3.0);
    EXPECT_EQ(img->GetImg()[640 * 480 - 1], 3);

    log.Clear();
    EXPECT_FALSE(p.pool.PushImg(frame.data(), 640, 481, 0, 7));
    EXPECT_EQ(log.Texts().back(), "5>PushImg fail");
    EXPECT_EQ(p.pool.GetImg(99), nullptr);

    // Pushing another image copies width x height bytes with its attribute.
    CImg8P other;
    other.SetSize(640, 480, 1, false);
    other.GetInfo().frameAttr = 11;
    ASSERT_TRUE(p.pool.PushImg(other));
    EXPECT_EQ(p.pool.GetImg(1)->GetInfo().frameAttr, 11u);
    // An image whose geometry claims more than its memory is refused
    // before it could be read past its end, with a failed push's two lines.
    CImg8P liar;
    liar.SetMemMode(eMemModeFixed);
    liar.SetSize(640, 480, 1, false);
    log.Clear();
    EXPECT_FALSE(p.pool.PushImg(liar));
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"5>Start Push", "5>PushImg fail"}));
}

TEST(ImgPool, AnImageThatGotNoMemoryCannotBeResized) {
    // Room for two images (and 64 bytes): the third gets no piece.
    Pool p(8, ePoolNormal, 64, 1);
    p.pool.Add(3);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(p.pool.Push());
    IImgP* starved = p.pool.GetImg(2);
    ASSERT_EQ(starved->GetMemSize(), 0u);
    // Room comes back to the manager, but resizing releases first, and the
    // manager refuses a piece it never gave.
    ASSERT_TRUE(p.pool.Delete(p.pool.GetImg(0)));
    EXPECT_FALSE(starved->SetSize(4, 4, 1, false));
    EXPECT_EQ(starved->GetWidth(), 0u);
    EXPECT_TRUE(starved->SetSize(0, 7, 1, false));  // needs nothing: no release
    EXPECT_TRUE(p.pool.GetImg(1)->SetSize(8, 8, 1, false));
}

TEST(ImgPool, ImagesMadeBeforeConfigKeepLibraryDefaults) {
    Pool p(8, ePoolNormal, 64, 1);
    p.pool.Add(1);
    p.pool.Push();
    IImgP* img = p.pool.GetImg(0);
    EXPECT_EQ(img->GetInfo().camIdx, eCamNone);
    EXPECT_EQ(img->GetWidth(), 0u);
    EXPECT_EQ(img->GetMemSize(), 64u);
}

TEST(ImgPool, RingPushesGiveTheAttributeToTheLastNormalNode) {
    Pool p(8, ePoolRing, 16, 2);
    p.pool.Add(2);
    std::vector<unsigned char> frame(16, 1);
    ASSERT_TRUE(p.pool.PushImg(frame.data(), 16, 1, 0, 1));
    ASSERT_TRUE(p.pool.PushImg(frame.data(), 16, 1, 0, 2));
    ASSERT_TRUE(p.pool.PushImg(frame.data(), 16, 1, 0, 3));  // rings serial 0
    EXPECT_EQ(p.pool.GetImg(0), nullptr);
    // The rung image keeps its old attribute; serial 1 (the last node of
    // the normal path) received 3.
    EXPECT_EQ(p.pool.GetImg(2)->GetInfo().frameAttr, 1u);
    EXPECT_EQ(p.pool.GetImg(1)->GetInfo().frameAttr, 3u);
}
