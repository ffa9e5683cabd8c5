#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/image/img_kinds.h"
#include "test_support.h"

using namespace GrabSystem;
using namespace VormexDataStructure;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::WriteAll;

namespace {

std::vector<unsigned char> RenderFloats(const std::vector<float>& values, const char* path) {
    CImgFloatP img;
    img.SetSize(static_cast<uint32_t>(values.size()), 1, 1, false);
    std::memcpy(img.GetImg(), values.data(), values.size() * 4);
    img.SaveBmp(path);
    return grabsys_test::BmpPixels(path);
}

}  // namespace

TEST(ImgKinds, FloatRendersStretchedWithItsQuirks) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    const float no = CImgFloatP::kNoData;
    EXPECT_EQ(RenderFloats({0.0f, 1.0f, no}, "D:\\a.bmp"), (std::vector<unsigned char>{0, 255, 0}));
    // Negative values stretch up to the smallest positive double, not to
    // their own maximum: -1.0 lands in the middle.
    EXPECT_EQ(RenderFloats({-2.0f, -1.0f}, "D:\\b.bmp"), (std::vector<unsigned char>{0, 127}));
    // All "no data": every pixel black.
    EXPECT_EQ(RenderFloats({no, no, no}, "D:\\c.bmp"), (std::vector<unsigned char>{0, 0, 0}));
    // A huge spread: the integer part leaves 32 bits and becomes 0.
    EXPECT_EQ(RenderFloats({0.0f, 0.5f, 1.0f}, "D:\\d.bmp")[1], 127);

    CImgFloatP rgb;
    rgb.SetSize(2, 2, 3, false);
    EXPECT_TRUE(rgb.SaveBmp("D:\\rgb.bmp"));  // the save reports true...
    EXPECT_TRUE(grabsys_test::BmpPixels("D:\\rgb.bmp").empty());  // ...but no pixels were written
}

TEST(ImgKinds, MaskSavesAs0And255AndLoadsAtThreshold128) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    CImgMaskP mask;
    mask.SetSize(3, 1, 1, false);
    const unsigned char bits[3] = {0, 1, 7};
    std::memcpy(mask.GetImg(), bits, 3);
    ASSERT_TRUE(mask.SaveBmp("D:\\mask.bmp"));
    EXPECT_EQ(grabsys_test::BmpPixels("D:\\mask.bmp"), (std::vector<unsigned char>{0, 255, 255}));

    unsigned char grey[4] = {0, 127, 128, 255};
    ASSERT_TRUE(DrasselSpace::ImageIOToolP::SaveBMP("D:\\grey.bmp", grey, 4, 1, DrasselSpace::ePixelFormatGray8));
    CImgMaskP loaded;
    ASSERT_TRUE(loaded.LoadFile("D:\\grey.bmp"));
    EXPECT_EQ(std::vector<unsigned char>(loaded.GetImg(), loaded.GetImg() + 4), (std::vector<unsigned char>{0, 0, 1, 1}));

    // Kinds without a BMP encoder leave a file holding only the block.
    CImg16P deep;
    deep.SetSize(2, 2, 1, false);
    deep.SaveBmp("D:\\deep.bmp");
    FILE* f = std::fopen(dir.File("D/deep.bmp").c_str(), "rb");
    EXPECT_TRUE(CImgInfo::HasCImgInfo(f));
    std::fclose(f);
    EXPECT_TRUE(grabsys_test::BmpPixels("D:\\deep.bmp").empty());
}

TEST(ImgKinds, FloatAndDoubleRawFilesKeepTheirLayout) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    CImgFloatP f;
    f.SetSize(4, 2, 1, false);
    for (int i = 0; i < 8; ++i) f.GetImg()[i] = 0.25f * static_cast<float>(i);
    f.GetResolution() = ImgRes(1.5, 2.5, 3.5);
    ASSERT_TRUE(f.SaveToRaw("D:\\f.fraw"));
    auto bytes = ReadAll(dir.File("D/f.fraw"));
    ASSERT_EQ(bytes.size(), 32u + 32u);
    uint32_t head[4];
    std::memcpy(head, bytes.data(), 16);
    EXPECT_EQ(head[0], 1u);
    EXPECT_EQ(head[1], 4u);
    EXPECT_EQ(head[2], 2u);
    EXPECT_EQ(head[3], 1u);
    double y = 0;
    std::memcpy(&y, &bytes[16], 8);
    EXPECT_EQ(y, 2.5);  // the first resolution value is not stored

    CImgFloatP back;
    ASSERT_TRUE(back.LoadFromRaw("D:\\f.fraw"));
    EXPECT_EQ(back.GetImg()[7], 1.75f);
    EXPECT_EQ(back.GetResolution().dZ, 3.5);
    EXPECT_EQ(back.GetResolution().dX, 10.0);

    CImgDoubleP d;
    d.SetSize(4, 2, 1, false);
    ASSERT_TRUE(d.SaveToRaw("D:\\d.draw"));
    EXPECT_EQ(ReadAll(dir.File("D/d.draw")).size(), 32u + 64u);

    // Neither version nor size is checked: a short file is sized by its
    // header and copies the values it holds.
    WriteAll(dir.File("D/short.fraw"), std::vector<unsigned char>(bytes.begin(), bytes.begin() + 40));
    CImgFloatP s;
    ASSERT_TRUE(s.LoadFromRaw("D:\\short.fraw"));
    EXPECT_EQ(s.GetMemSize(), 32u);
    EXPECT_EQ(s.GetImg()[1], 0.25f);
    EXPECT_EQ(s.GetResolution().dY, 2.5);
    // Cut inside the header, the missing bytes read as zeros: the channel
    // count survives in its low bytes, the resolutions are gone.
    WriteAll(dir.File("D/head.fraw"), std::vector<unsigned char>(bytes.begin(), bytes.begin() + 14));
    CImgFloatP h;
    ASSERT_TRUE(h.LoadFromRaw("D:\\head.fraw"));
    EXPECT_EQ(h.GetMemSize(), 32u);
    EXPECT_EQ(h.GetResolution().dY, 0.0);
    EXPECT_EQ(h.GetResolution().dZ, 0.0);
    // 65536 x 32768 values: the signed 32-bit count is negative, so nothing
    // is copied, and 4 bytes each wrap the buffer to 0 bytes.
    auto negative = bytes;
    const uint32_t wide[2] = {65536, 32768};
    std::memcpy(&negative[4], wide, sizeof wide);
    WriteAll(dir.File("D/negative.fraw"), negative);
    EXPECT_TRUE(s.LoadFromRaw("D:\\negative.fraw"));
    EXPECT_EQ(s.GetWidth(), 65536u);
    EXPECT_EQ(s.GetMemSize(), 0u);
    // Ten bytes: the missing header bytes read as zeros (no channels).
    WriteAll(dir.File("D/tiny.fraw"), std::vector<unsigned char>(10, 1));
    EXPECT_TRUE(s.LoadFromRaw("D:\\tiny.fraw"));
    EXPECT_EQ(s.GetHeight(), 257u);
    EXPECT_EQ(s.GetChCnt(), 0u);
    EXPECT_FALSE(s.LoadFromRaw("D:\\missing.fraw"));

    // A geometry larger than the buffer (memory mode 2) saves its values
    // padded with zeros rather than read past the buffer.
    CImgDoubleP fixed;
    fixed.SetSize(2, 1, 1, false);
    fixed.GetImg()[0] = fixed.GetImg()[1] = 9.0;
    fixed.SetMemMode(eMemModeFixed);
    fixed.SetSize(3, 1, 1, false);
    ASSERT_TRUE(fixed.SaveToRaw("D:\\padded.draw"));
    const auto padded = ReadAll(dir.File("D/padded.draw"));
    ASSERT_EQ(padded.size(), 32u + 24u);
    double last = -1;
    std::memcpy(&last, &padded[48], 8);
    EXPECT_EQ(last, 0.0);
}

TEST(ImgKinds, FlatFieldTableStreamsInfoFirst) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    CFFCTableP table;
    table.SetSize(3, 2, 1, false);
    for (int i = 0; i < 6; ++i) table.GetImg()[i] = static_cast<uint16_t>(4000 + i);
    table.GetInfo().camIdx = eCam5;
    FILE* f = std::fopen(dir.File("D/ffc.bin").c_str(), "wb");
    ASSERT_TRUE(table.Append(f));
    ASSERT_TRUE(table.Append(f));  // two tables back to back
    std::fclose(f);

    f = std::fopen(dir.File("D/ffc.bin").c_str(), "rb");
    for (int i = 0; i < 2; ++i) {
        CFFCTableP back;
        ASSERT_TRUE(back.Extract(f));
        EXPECT_EQ(back.GetWidth(), 3u);
        EXPECT_EQ(back.GetImg()[5], 4005);
        EXPECT_EQ(back.GetInfo().camIdx, eCam5);
        EXPECT_EQ(back.GetInfo().fileFormat, eImgFmtFFC);
    }
    CFFCTableP end;
    EXPECT_FALSE(end.Extract(f));
    std::fclose(f);
    EXPECT_FALSE(end.Extract(nullptr));
    EXPECT_FALSE(end.Append(nullptr));

    // Cut behind the block, inside the raw part (version word, 31-byte
    // size record, 12 pixel bytes): the block's 3 x 2 geometry may not stand
    // over the empty buffer.
    const auto stream = ReadAll(dir.File("D/ffc.bin"));
    const size_t one = stream.size() / 2;
    WriteAll(dir.File("D/cut.bin"), std::vector<unsigned char>(stream.begin(), stream.begin() + (one - 45 + 2)));
    f = std::fopen(dir.File("D/cut.bin").c_str(), "rb");
    CFFCTableP cut;
    EXPECT_FALSE(cut.Extract(f));
    std::fclose(f);
    EXPECT_EQ(cut.GetWidth(), 0u);
    EXPECT_EQ(cut.GetInfo().camIdx, eCam5);  // the rest of the block stands
}
