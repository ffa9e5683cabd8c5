#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/image_io_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::FrameBytes;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::Tree;
using grabsys_test::WriteAll;
namespace fs = std::filesystem;

namespace {

CDebugImgPackageInfoP ImgRun(uint32_t w, uint32_t h, uint32_t frames, uint32_t cam, uint32_t group) {
    CDebugImgPackageInfoP info;
    info.Width = w;
    info.Height = h;
    info.FrameCount = frames;
    info.CamIdx = cam;
    info.GroupIdx = group;
    return info;
}

// Two runs of 2 frames of 8 x 4, filled and saved to D:\p.dbg.
void BuildAndSave(CDebugImgPackageP& pkg, uint8_t jump = 0) {
    pkg.AddPackageInfo(ImgRun(8, 4, 2, 1, 0));
    pkg.AddPackageInfo(ImgRun(8, 4, 2, 1, 1));
    pkg.SetJumpIdx(jump);
    pkg.CreatePackageBuffer();
    for (unsigned i = 0; i < 2; ++i)
        for (unsigned j = 0; j < 2; ++j) {
            auto f = FrameBytes(8, 4, static_cast<int>(2 * i + j));
            ASSERT_TRUE(pkg.AddData(i, f.data(), j));
        }
    ASSERT_TRUE(pkg.SaveDebugPackage("D:\\p.dbg"));
}

}  // namespace

TEST(DebugImgPackage, FileLayoutIsHeaderRecordsThenEncryptedFrames) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    CDebugImgPackageP pkg;
    BuildAndSave(pkg, 7);
    const auto file = ReadAll(dir.File("D/p.dbg"));
    ASSERT_EQ(file.size(), 12u + 2 * 20 + 4 * 32);
    auto word = [&](size_t i) {
        uint32_t v;
        std::memcpy(&v, &file[4 * i], 4);
        return v;
    };
    EXPECT_EQ(word(0), 2u);  // version
    EXPECT_EQ(word(1), 2u);  // records
    EXPECT_EQ(word(2), 7u);  // jump index
    // Width, Height, FrameCount, then GroupIdx before CamIdx.
    EXPECT_EQ((std::vector<uint32_t>{word(3), word(4), word(5), word(6), word(7)}), (std::vector<uint32_t>{8, 4, 2, 0, 1}));
    EXPECT_EQ(word(11), 1u);  // GroupIdx of the second run
    EXPECT_EQ(word(12), 1u);  // CamIdx

    // The data area alone decrypts with openssl, a tool this project did
    // not write, to the plain frames.
    GRABSYS_SKIP_ON_WINDOWS("the openssl program");
    WriteAll(dir.File("data.bin"), std::vector<unsigned char>(file.begin() + 52, file.end()));
    std::string hexKey;
    char byte[3];
    for (char c : std::string(CDebugImgPackageP::kKey)) {
        std::snprintf(byte, sizeof byte, "%02x", static_cast<unsigned char>(c));
        hexKey += byte;
    }
    const std::string cmd = "openssl enc -d -aes-128-ctr -K " + hexKey + " -iv 00000000000000000000000000000000 -in " +
                            dir.File("data.bin") + " -out " + dir.File("plain.bin");
    ASSERT_EQ(std::system(cmd.c_str()), 0) << "openssl is needed";
    const auto plain = ReadAll(dir.File("plain.bin"));
    ASSERT_EQ(plain.size(), 128u);
    for (int f = 0; f < 4; ++f)
        EXPECT_EQ(std::vector<unsigned char>(plain.begin() + 32 * f, plain.begin() + 32 * (f + 1)), FrameBytes(8, 4, f)) << f;
}

TEST(DebugImgPackage, SaveThenLoadGivesTheSameRecordsAndFrames) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    {
        CDebugImgPackageP pkg;
        BuildAndSave(pkg, 200);
    }
    CDebugImgPackageP loaded;
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\p.dbg"));
    ASSERT_EQ(loaded.PackageInfos.size(), 2u);
    EXPECT_EQ(loaded.PackageInfos[1].GroupIdx, 1u);
    EXPECT_EQ(loaded.PackageInfos[1].CamIdx, 1u);
    EXPECT_EQ(loaded.JumpIdx, 200u);
    ASSERT_EQ(loaded.BufferSize, 128u);
    EXPECT_EQ(std::vector<unsigned char>(loaded.Buffer.get() + 96, loaded.Buffer.get() + 128), FrameBytes(8, 4, 3));

    // A second save of one object decrypts again: the file holds plain data.
    CDebugImgPackageP twice;
    BuildAndSave(twice);
    ASSERT_TRUE(twice.SaveDebugPackage("D:\\p2.dbg"));
    const auto second = ReadAll(dir.File("D/p2.dbg"));
    EXPECT_EQ(std::vector<unsigned char>(second.begin() + 52, second.begin() + 84), FrameBytes(8, 4, 0));
}

TEST(DebugImgPackage, Version1FilesHaveNoJumpWordAndJumpsAbove255Survive) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    CDebugImgPackageP pkg;
    BuildAndSave(pkg, 3);
    auto file = ReadAll(dir.File("D/p.dbg"));
    // Version 1: drop the jump word.
    auto v1 = file;
    v1[0] = 1;
    v1.erase(v1.begin() + 8, v1.begin() + 12);
    WriteAll(dir.File("D/v1.dbg"), v1);
    CDebugImgPackageP loaded;
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\v1.dbg"));
    EXPECT_EQ(loaded.JumpIdx, 0u);
    EXPECT_EQ(loaded.PackageInfos[0].Width, 8u);
    EXPECT_EQ(std::vector<unsigned char>(loaded.Buffer.get(), loaded.Buffer.get() + 32), FrameBytes(8, 4, 0));

    // A jump word of 1000 is kept whole and numbers the export.
    auto big = file;
    const uint32_t jump = 1000;
    std::memcpy(&big[8], &jump, 4);
    WriteAll(dir.File("D/big.dbg"), big);
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\big.dbg"));
    EXPECT_EQ(loaded.JumpIdx, 1000u);
    loaded.ExportDebugImg();
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")),
              (std::set<std::string>{"Cam1/img1000.bmp", "Cam1/img1001.bmp", "Cam1/img1002.bmp", "Cam1/img1003.bmp"}));
}

TEST(DebugImgPackage, ExportNamesFollowGroupJumpAndPackageIndex) {
    TempDir dir;
    CDebugImgPackageP pkg;
    pkg.AddPackageInfo(ImgRun(4, 2, 3, 1, 2));
    pkg.CreatePackageBuffer();
    for (unsigned j = 0; j < 3; ++j) {
        auto f = FrameBytes(4, 2, static_cast<int>(j));
        pkg.AddData(0, f.data(), j);
    }
    pkg.ExportDebugImg();
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")),
              (std::set<std::string>{"Cam1/img6.bmp", "Cam1/img7.bmp", "Cam1/img8.bmp"}));
    pkg.SetJumpIdx(10);
    pkg.ExportDebugImg(4);
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput/Cam1_4")),
              (std::set<std::string>{"img16.bmp", "img17.bmp", "img18.bmp"}));
    // The frames are the pixels, with the information block behind them.
    unsigned char* px = nullptr;
    unsigned w = 0, h = 0;
    DrasselSpace::ePixelFormatP fmt{};
    ASSERT_TRUE(DrasselSpace::ImageIOToolP::LoadBMP("D://ImgTest//CamImgInput//Cam1//img7.bmp", px, w, h, fmt));
    EXPECT_EQ(std::vector<unsigned char>(px, px + 8), FrameBytes(4, 2, 1));
    delete[] px;

    // Two runs of one camera, groups 0 and 1, 5 frames each: img0..img9.
    CDebugImgPackageP two;
    two.AddPackageInfo(ImgRun(2, 2, 5, 0, 0));
    two.AddPackageInfo(ImgRun(2, 2, 5, 0, 1));
    two.CreatePackageBuffer();
    two.ExportDebugImg(9);
    std::set<std::string> want;
    for (int n = 0; n < 10; ++n) want.insert("img" + std::to_string(n) + ".bmp");
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput/Cam0_9")), want);

    CDebugImgPackageP empty;
    empty.ExportDebugImg();  // no records: nothing
    EXPECT_FALSE(fs::exists(dir.File("D/ImgTest/CamImgInput/Cam0")));
}

TEST(DebugImgPackage, BadInputGivesFalse) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    CDebugImgPackageP pkg;
    unsigned char frame[32] = {};
    EXPECT_FALSE(pkg.SaveDebugPackage("D:\\none.dbg"));  // no records, no buffer
    EXPECT_FALSE(pkg.AddData(0, frame, 0));
    pkg.AddPackageInfo(ImgRun(8, 4, 2, 0, 0));
    pkg.CreatePackageBuffer();
    EXPECT_FALSE(pkg.AddData(0, frame, 2));  // frame out of range
    EXPECT_FALSE(pkg.AddData(1, frame, 0));  // record out of range
    EXPECT_FALSE(pkg.SaveDebugPackage("D:\\no\\such\\dir.dbg"));

    // Runs of different sizes overlap by the uniform-run rule; a frame that
    // would land outside the data area is refused.
    CDebugImgPackageP mixed;
    mixed.AddPackageInfo(ImgRun(2, 2, 1, 0, 0));
    mixed.AddPackageInfo(ImgRun(4, 4, 1, 0, 1));
    mixed.CreatePackageBuffer();
    EXPECT_EQ(mixed.BufferSize, 20u);
    unsigned char big[16] = {};
    EXPECT_TRUE(mixed.AddData(0, big, 0));
    EXPECT_FALSE(mixed.AddData(1, big, 0));  // placed at 1 x 16: runs past byte 20
    CDebugImgPackageP good;
    BuildAndSave(good);
    const auto file = ReadAll(dir.File("D/p.dbg"));

    CDebugImgPackageP loaded;
    auto expectRefused = [&](const std::vector<unsigned char>& bytes, const char* what) {
        WriteAll(dir.File("D/bad.dbg"), bytes);
        EXPECT_FALSE(loaded.LoadDebugPackage("D:\\bad.dbg")) << what;
    };
    for (size_t cut = 0; cut < 52; ++cut)
        expectRefused(std::vector<unsigned char>(file.begin(), file.begin() + static_cast<long>(cut)), "short header");
    expectRefused(std::vector<unsigned char>(file.begin(), file.end() - 1), "one byte of data missing");
    auto zero = file;
    std::memset(&zero[4], 0, 4);
    expectRefused(zero, "no records");
    auto huge = file;
    const uint32_t width = 0x10000;
    std::memcpy(&huge[12], &width, 4);
    expectRefused(huge, "records that promise more than the file holds");
    EXPECT_FALSE(loaded.LoadDebugPackage("D:\\missing.dbg"));

    // A count of 0 keeps the records, buffer and jump of the last load.
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\p.dbg"));
    WriteAll(dir.File("D/zero.dbg"), zero);
    zero[0] = 9;
    WriteAll(dir.File("D/zero.dbg"), zero);
    EXPECT_FALSE(loaded.LoadDebugPackage("D:\\zero.dbg"));
    EXPECT_EQ(loaded.Version, 9u);
    EXPECT_EQ(loaded.PackageInfos.size(), 2u);
    EXPECT_EQ(loaded.BufferSize, 128u);
}
