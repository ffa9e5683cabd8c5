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
using grabsys_test::FakeClock;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::WriteAll;

namespace {

template <typename Img>
std::unique_ptr<Img> Filled(uint32_t w, uint32_t h, uint8_t ch) {
    auto img = std::make_unique<Img>();
    img->SetSize(w, h, ch, false);
    auto* bytes = static_cast<unsigned char*>(img->GetData());
    for (size_t i = 0; i < img->GetMemSize(); ++i) bytes[i] = static_cast<unsigned char>(i * 13 + 1);
    return img;
}

template <typename Img>
void ExpectRawRoundTrip(uint32_t w, uint32_t h, uint8_t ch, const std::string& path) {
    auto saved = Filled<Img>(w, h, ch);
    ASSERT_TRUE(saved->SaveFile(path.c_str(), eImgFmtRaw));
    Img loaded;
    ASSERT_TRUE(loaded.LoadFile(path.c_str())) << path;
    EXPECT_EQ(loaded.GetWidth(), w);
    EXPECT_EQ(loaded.GetHeight(), h);
    EXPECT_EQ(loaded.GetChCnt(), ch);
    ASSERT_EQ(loaded.GetMemSize(), saved->GetMemSize());
    EXPECT_EQ(std::memcmp(loaded.GetData(), saved->GetData(), saved->GetMemSize()), 0);
}

}  // namespace

TEST(ImgFile, RawRoundTripsEveryKindWithARawForm) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D/raw"));
    ExpectRawRoundTrip<CImg8P>(7, 5, 1, "D:\\raw\\8.raw");
    ExpectRawRoundTrip<CImg8P>(7, 5, 3, "D:\\raw\\8c.raw");
    ExpectRawRoundTrip<CImg16P>(6, 4, 1, "D:\\raw\\16.raw");
    ExpectRawRoundTrip<CImg32P>(3, 9, 2, "D:\\raw\\32.raw");
    ExpectRawRoundTrip<CImgFloatP>(5, 5, 1, "D:\\raw\\f.raw");
    ExpectRawRoundTrip<CImgDoubleP>(2, 3, 1, "D:\\raw\\d.raw");
    ExpectRawRoundTrip<CImgMaskP>(8, 2, 1, "D:\\raw\\m.raw");
    ExpectRawRoundTrip<CFFCTableP>(4, 4, 1, "D:\\raw\\ffc.raw");
}

TEST(ImgFile, RawLayoutIsVersionSizeRecordPixelsThenInfoBlock) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    auto img = Filled<CImg8P>(4, 3, 1);
    img->SaveFile("D:\\layout.raw", eImgFmtRaw);
    const auto bytes = ReadAll(dir.File("D/layout.raw"));
    ASSERT_GT(bytes.size(), 2u + 31 + 12);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 0);
    EXPECT_EQ(bytes[2], 1);  // ImgSize version
    uint32_t width = 0;
    std::memcpy(&width, &bytes[4], 4);
    EXPECT_EQ(width, 4u);
    EXPECT_EQ(std::memcmp(&bytes[2 + 31], img->GetData(), 12), 0);
    EXPECT_EQ(std::string(bytes.end() - 8, bytes.end()), "VXIMINFO");
}

TEST(ImgFile, LoadPicksTheFormatByBlockThenByExtension) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    auto img = Filled<CImg8P>(6, 4, 1);
    // A raw file named .bmp loads as raw because its block says so.
    img->SaveFile("D:\\really_raw.bmp", eImgFmtRaw);
    CImg8P loaded;
    EXPECT_TRUE(loaded.LoadFile("D:\\really_raw.bmp"));
    EXPECT_EQ(loaded.GetFileFormat(), eImgFmtRaw);

    // Without a block the extension decides, in any case.
    ASSERT_TRUE(DrasselSpace::ImageIOToolP::SaveBMP("D:\\IMG.Bmp", img->GetImg(), 6, 4, DrasselSpace::ePixelFormatGray8));
#ifndef _WIN32  // Windows names ignore case: img.bmp already is IMG.Bmp.
    std::filesystem::copy_file(dir.File("D/IMG.Bmp"), dir.File("D/img.bmp"));
#endif
    std::filesystem::copy_file(dir.File("D/IMG.Bmp"), dir.File("D/img.bm"));
    std::filesystem::copy_file(dir.File("D/IMG.Bmp"), dir.File("D/img"));
    std::filesystem::copy_file(dir.File("D/IMG.Bmp"), dir.File("D/img.jpeg"));
    for (const char* ok : {"D:\\IMG.Bmp", "D:\\img.bmp"}) {
        CImg8P bmp;
        EXPECT_TRUE(bmp.LoadFile(ok)) << ok;
        EXPECT_EQ(std::memcmp(bmp.GetData(), img->GetData(), 24), 0) << ok;
    }
    for (const char* refused : {"D:\\img.bm", "D:\\img", "D:\\img.jpeg"}) {
        CImg8P other;
        EXPECT_FALSE(other.LoadFile(refused)) << refused;  // .jpeg dispatches to JPEG, which no kind reads
        // The descriptive fields are reset whatever the result.
        EXPECT_EQ(other.GetInfo().status, 65535);
        EXPECT_EQ(other.GetInfo().camIdx, eCamNone);
        ASSERT_EQ(other.GetLogs().Size(), 1u);
        EXPECT_EQ(other.GetLogs().At(0).GetTag(), eProcLoadFile);
    }
    CImg8P none;
    EXPECT_FALSE(none.LoadFile("D:\\missing.raw"));
    EXPECT_FALSE(none.LoadFile(nullptr));

    // A ".bmp" without a block that does not decode: the kinds that read
    // BMPs size themselves to what the decoder gave, 0 x 0 x 0, and load.
    WriteAll(dir.File("D/junk.bmp"), std::vector<unsigned char>(100, 'x'));
    CImg8P junk;
    junk.SetSize(5, 5, 1, false);
    EXPECT_TRUE(junk.LoadFile("D:\\junk.bmp"));
    EXPECT_EQ(junk.GetWidth() + junk.GetHeight() + junk.GetChCnt(), 0u);
    CImgMaskP junkMask;
    EXPECT_TRUE(junkMask.LoadFile("D:\\junk.bmp"));
    EXPECT_EQ(junkMask.GetChCnt(), 0u);
}

TEST(ImgFile, LoadRestoresSavedFieldsOverTheDefaults) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    auto img = Filled<CImg8P>(5, 5, 1);
    img->GetInfo().camIdx = eCam2;
    img->GetInfo().memMode = eMemModeGrow;
    img->GetResolution() = ImgRes(1, 2, 3);
    img->AddProcLog(new ImgProcCmd(eProcGrab, "grabbed"));
    img->SaveBmp("D:\\kept.bmp");
    CImg8P loaded;
    ASSERT_TRUE(loaded.LoadFile("D:\\kept.bmp"));
    EXPECT_EQ(loaded.GetInfo().camIdx, eCam2);
    EXPECT_EQ(loaded.GetMemMode(), eMemModeGrow);
    EXPECT_EQ(loaded.GetResolution().dZ, 3.0);
    ASSERT_EQ(loaded.GetLogs().Size(), 1u);
    EXPECT_STREQ(loaded.GetLogs().At(0).GetMsg(), "grabbed");

    // Without a block: the defaults of a loaded image.
    ASSERT_TRUE(DrasselSpace::ImageIOToolP::SaveBMP("D:\\plain.bmp", img->GetImg(), 5, 5, DrasselSpace::ePixelFormatGray8));
    ASSERT_TRUE(loaded.LoadFile("D:\\plain.bmp"));
    EXPECT_EQ(loaded.GetMemMode(), eMemModeRealloc);
    EXPECT_EQ(loaded.GetResolution().dX, 10.0);
    EXPECT_EQ(loaded.GetImgAlignmemt().nWidth, 5u);
    EXPECT_EQ(loaded.GetCadAlignmemt().nHeight, 5u);
}

TEST(ImgFile, SaveToPathNamesByTickAndFormat) {
    TempDir dir;
    FakeClock clock(123456);
    std::filesystem::create_directories(dir.File("D/out"));
    auto img = Filled<CImg8P>(2, 2, 1);
    EXPECT_TRUE(img->SaveToPath("D:\\out\\", eImgFmtRaw));
    EXPECT_TRUE(std::filesystem::exists(dir.File("D/out/123456.raw")));
    clock.Set(7);
    EXPECT_TRUE(img->SaveToPath("D:\\out\\", eImgFmtFFC));  // format 2: only the block
    FILE* f = std::fopen(dir.File("D/out/7.raw").c_str(), "rb");
    EXPECT_EQ(CImgInfo::ExtractFileType(f), eImgFmtFFC);
    std::fclose(f);
    clock.Set(8);
    img->SaveToPath("D:\\out\\", eImgFmtBmp);
    EXPECT_TRUE(std::filesystem::exists(dir.File("D/out/8.bmp")));
    EXPECT_FALSE(img->SaveToPath(nullptr, eImgFmtRaw));
    // Every save with a path is "true", even into a folder that is not there.
    EXPECT_TRUE(img->SaveFile("D:\\nowhere\\x.raw", eImgFmtRaw));
    EXPECT_FALSE(img->SaveFile(nullptr, eImgFmtRaw));
}

TEST(ImgFile, DamagedRawFilesLoadAsFarAsTheyGo) {
    TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    auto img = Filled<CImg8P>(16, 8, 1);
    img->SaveFile("D:\\good.raw", eImgFmtRaw);
    const auto good = ReadAll(dir.File("D/good.raw"));
    // The buffer always holds what the size record describes (memory mode 0).
    auto consistent = [](IImgP& i) { return i.GetInfo().size.GetByteSize() <= i.GetMemSize(); };

    // Cut inside the pixels: sized to the file's geometry, the pixels that
    // are there read, false.
    WriteAll(dir.File("D/cut.raw"), std::vector<unsigned char>(good.begin(), good.begin() + 2 + 31 + 50));
    CImg8P cut;
    EXPECT_FALSE(cut.LoadFile("D:\\cut.raw"));
    EXPECT_EQ(cut.GetWidth(), 16u);
    EXPECT_EQ(cut.GetHeight(), 8u);
    EXPECT_EQ(cut.GetMemSize(), 128u);
    EXPECT_EQ(std::memcmp(cut.GetData(), img->GetData(), 50), 0);

    // A version word other than 1 is refused before anything else.
    auto v2 = good;
    v2[0] = 2;
    WriteAll(dir.File("D/v2.raw"), v2);
    CImg8P other;
    EXPECT_FALSE(other.LoadFile("D:\\v2.raw"));
    EXPECT_EQ(other.GetWidth(), 0u);

    // A 16-bit file in an 8-bit image: sized by the kind, filled as far as
    // the buffer goes, false.
    auto deep = Filled<CImg16P>(16, 8, 1);
    deep->SaveFile("D:\\deep.raw", eImgFmtRaw);
    CImg8P shallow;
    EXPECT_FALSE(shallow.LoadFile("D:\\deep.raw"));
    EXPECT_EQ(shallow.GetMemSize(), 128u);
    EXPECT_EQ(std::memcmp(shallow.GetData(), deep->GetData(), 128), 0);
    EXPECT_TRUE(consistent(shallow));

    // Four 64-bit or eight 32-bit channels wrap to 0 bits per pixel: no
    // pixel bytes, whatever the geometry, and the load is true.
    CImgDoubleP wide;
    ASSERT_TRUE(wide.SetSize(100000, 100000, 4, false));
    wide.SaveFile("D:\\wide.raw", eImgFmtRaw);
    CImg32P many;
    ASSERT_TRUE(many.SetSize(70000, 3, 8, false));
    many.SaveFile("D:\\many.raw", eImgFmtRaw);
    // Different geometries, the same length: neither file holds a pixel.
    EXPECT_EQ(ReadAll(dir.File("D/wide.raw")).size(), ReadAll(dir.File("D/many.raw")).size());
    CImgDoubleP wideBack;
    EXPECT_TRUE(wideBack.LoadFile("D:\\wide.raw"));
    EXPECT_EQ(wideBack.GetWidth(), 100000u);
    EXPECT_EQ(wideBack.GetMemSize(), 0u);
    CImg32P manyBack;
    EXPECT_TRUE(manyBack.LoadFile("D:\\many.raw"));
    EXPECT_EQ(manyBack.GetChCnt(), 8u);

    // A geometry beyond 4 GiB sizes the buffer and the record alike, in 32
    // bits: they never disagree.
    CImg8P huge;
    EXPECT_TRUE(huge.SetSize(65536, 65537, 1, false));
    EXPECT_EQ(huge.GetMemSize(), 65536u);
    EXPECT_TRUE(consistent(huge));

    // Every truncation of the whole file, block included, is answered.
    for (size_t n = 0; n < good.size(); n += 3) {
        WriteAll(dir.File("D/t.raw"), std::vector<unsigned char>(good.begin(), good.begin() + static_cast<long>(n)));
        CImg8P t;
        const bool ok = t.LoadFile("D:\\t.raw");
        if (n < 2 + 31 + 128) {
            EXPECT_FALSE(ok) << n;
        }
        EXPECT_TRUE(consistent(t)) << n;
    }
}
