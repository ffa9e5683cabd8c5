#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "grabsystem/image/img_kinds.h"
#include "grabsystem/image/img_pool_ctrl.h"

using namespace GrabSystem;
using VormexDataStructure::eMemModeFixed;
using VormexDataStructure::eMemModeGrow;
using VormexDataStructure::eMemModeRealloc;

TEST(Img, SetSizeFollowsTheMemoryMode) {
    CImg8P img;
    ASSERT_TRUE(img.SetSize(100, 50, 1, false));
    EXPECT_EQ(img.GetMemSize(), 5000u);
    void* buffer = img.GetData();

    img.SetMemMode(eMemModeGrow);
    ASSERT_TRUE(img.SetSize(10, 10, 1, false));  // smaller: buffer kept
    EXPECT_EQ(img.GetData(), buffer);
    EXPECT_EQ(img.GetMemSize(), 5000u);
    EXPECT_EQ(img.GetWidth(), 10u);
    ASSERT_TRUE(img.SetSize(100, 60, 1, false));  // larger: grows
    EXPECT_EQ(img.GetMemSize(), 6000u);

    img.SetMemMode(eMemModeRealloc);
    ASSERT_TRUE(img.SetSize(10, 10, 1, false));
    EXPECT_EQ(img.GetMemSize(), 100u);

    img.SetMemMode(eMemModeFixed);
    ASSERT_TRUE(img.SetSize(1000, 1000, 1, false));  // never reallocates
    EXPECT_EQ(img.GetMemSize(), 100u);
    EXPECT_EQ(img.GetArea(), 1000000u);

    // A caller's buffer is released (size 0) and then cannot be allocated
    // again: the geometry may not stand over the memory that is gone.
    std::vector<unsigned char> buffer100(100);
    CImg8P assigned;
    assigned.SetMemSource(eMemSrcAssign, buffer100.data(), buffer100.size());
    ASSERT_TRUE(assigned.SetSize(10, 10, 1, false));  // fits exactly: nothing replaced
    EXPECT_FALSE(assigned.SetSize(5, 5, 1, false));
    EXPECT_EQ(assigned.GetMemSize(), 0u);
    EXPECT_EQ(assigned.GetWidth(), 0u);
    // Duplicating into it copies nothing, is true, and leaves no geometry
    // that the buffer lacks.
    CImg8P source;
    source.SetSize(4, 4, 1, false);
    source.GetInfo().frameAttr = 5;
    EXPECT_TRUE(assigned.DuplicateFromImg(source));
    EXPECT_EQ(assigned.GetWidth(), 0u);
    EXPECT_EQ(assigned.GetInfo().frameAttr, 5u);
}

TEST(Img, RequiredBytesDependOnKindAndChannels) {
    CImg8P rgb;
    rgb.SetSize(10, 10, 3, false);
    EXPECT_EQ(rgb.GetMemSize(), 300u);
    CImg16P grey16, rgb16;
    grey16.SetSize(10, 10, 1, false);
    EXPECT_EQ(grey16.GetMemSize(), 200u);
    rgb16.SetSize(10, 10, 3, false);
    EXPECT_EQ(rgb16.GetMemSize(), 600u);
    EXPECT_EQ(rgb16.GetBufferSize(), 300u);  // channel values, not bytes
    CImgMaskP mask;
    mask.SetSize(10, 10, 1, false);
    EXPECT_EQ(mask.GetMemSize(), 100u);
    CImgDoubleP dbl;
    dbl.SetSize(4, 2, 1, false);
    EXPECT_EQ(dbl.GetMemSize(), 64u);
    dbl.SetSize(4, 2, 4, false);  // 4 x 64 bits wrap to 0 bits per pixel
    EXPECT_EQ(dbl.GetMemSize(), 0u);
    EXPECT_EQ(dbl.GetBitPerPixel(), 0);
}

TEST(Img, UsingStatusReturnsPooledImagesToTheirPool) {
    CImg8P loose;
    EXPECT_TRUE(loose.CheckImgChar());
    EXPECT_FALSE(loose.IsUsing());
    loose.SetToUsing();
    EXPECT_TRUE(loose.IsUsing());
    loose.ReleaseUsingStatus();  // no pool: only the flag
    EXPECT_FALSE(loose.IsUsing());

    std::vector<unsigned char> region(64);
    CImgPoolCtrlP pool(1, nullptr, ePoolNormal, 8);
    CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(16);
    pool.Add(2);
    std::vector<unsigned char> frame(16, 5);
    ASSERT_TRUE(pool.PushImg(frame.data(), 4, 4, 0, 1));
    IImgP* img = pool.GetImg(0);
    ASSERT_NE(img, nullptr);
    img->SetToUsing();
    img->ReleaseUsingStatus();
    EXPECT_FALSE(img->IsUsing());
    EXPECT_EQ(pool.GetUsingCount(), 0u);
    EXPECT_EQ(pool.GetImg(0), nullptr);
    pool.DeleteAll();
}

TEST(Img, DuplicateCopiesInfoAndPixels) {
    CImg16P src, dst;
    src.SetSize(3, 2, 1, false);
    for (int i = 0; i < 6; ++i) src.GetImg()[i] = static_cast<uint16_t>(1000 + i);
    src.GetInfo().frameAttr = 99;
    src.GetResolution().dX = 0.5;
    ASSERT_TRUE(dst.DuplicateFromImg(src));
    EXPECT_EQ(dst.GetWidth(), 3u);
    EXPECT_EQ(dst.GetInfo().frameAttr, 99u);
    EXPECT_EQ(dst.GetResolution().dX, 0.5);
    EXPECT_EQ(dst.GetImg()[5], 1005);

    CImgMaskP mask;
    mask.SetSize(16, 1, 1, false);
    std::memset(mask.GetData(), 1, 16);
    mask.ResetMemory();  // clears one eighth of the bytes
    EXPECT_EQ(mask.GetImg()[1], 0);
    EXPECT_EQ(mask.GetImg()[2], 1);
    src.ResetMemory();
    EXPECT_EQ(src.GetImg()[5], 0);
}
