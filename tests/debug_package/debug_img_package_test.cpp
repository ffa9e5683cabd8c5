#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/toolkit/file_tool.h"
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

    // Frames without pixels still get their folder and one save each,
    // which leaves the information block alone.
    CDebugImgPackageP flat;
    flat.AddPackageInfo(ImgRun(0, 3, 2, 6, 0));
    flat.CreatePackageBuffer();
    flat.ExportDebugImg();
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput/Cam6")), (std::set<std::string>{"img0.bmp", "img1.bmp"}));
    CImg8P info;
    EXPECT_TRUE(info.LoadFile("D://ImgTest//CamImgInput//Cam6//img1.bmp"));
    EXPECT_EQ(info.GetHeight(), 3u);
}

TEST(DebugImgPackage, DamagedInputFollowsTheRecords) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    std::vector<std::string> logged;
    PelvaneSpace::Logger::GetInstance()->SetSink([&](int, const std::string& text) { logged.push_back(text); });
    CDebugImgPackageP pkg;
    unsigned char frame[32] = {};
    EXPECT_FALSE(pkg.SaveDebugPackage("D:\\none.dbg"));  // no records, no buffer
    EXPECT_FALSE(pkg.AddData(0, frame, 0));
    pkg.AddPackageInfo(ImgRun(8, 4, 2, 0, 0));
    pkg.CreatePackageBuffer();
    EXPECT_FALSE(pkg.AddData(0, frame, 2));  // frame out of range
    EXPECT_FALSE(pkg.AddData(1, frame, 0));  // record out of range
    EXPECT_TRUE(logged.empty()) << "a refused frame logs nothing";
    EXPECT_FALSE(pkg.SaveDebugPackage("D:\\no\\such\\dir.dbg"));

    // Runs of different sizes overlap by the uniform-run rule; a frame that
    // lands partly past the data area is copied as far as the area reaches.
    CDebugImgPackageP mixed;
    mixed.AddPackageInfo(ImgRun(2, 2, 1, 0, 0));
    mixed.AddPackageInfo(ImgRun(4, 4, 1, 0, 1));
    mixed.CreatePackageBuffer();
    EXPECT_EQ(mixed.BufferSize, 20u);
    std::vector<unsigned char> big(16, 5);
    EXPECT_TRUE(mixed.AddData(1, big.data(), 0));  // placed at 1 x 16: 4 of its bytes fit
    EXPECT_EQ(std::vector<unsigned char>(mixed.Buffer.get() + 16, mixed.Buffer.get() + 20), std::vector<unsigned char>(4, 5));
    PelvaneSpace::Logger::GetInstance()->SetSink(nullptr);
    // Exported, that frame holds those 4 bytes and zeros for the rest.
    mixed.ExportDebugImg();
    auto exported = grabsys_test::BmpPixels("D://ImgTest//CamImgInput//Cam0//img1.bmp");
    ASSERT_EQ(exported.size(), 16u);
    EXPECT_EQ(exported[3], 5);
    EXPECT_EQ(exported[4], 0);

    CDebugImgPackageP good;
    BuildAndSave(good);
    const auto file = ReadAll(dir.File("D/p.dbg"));
    auto load = [&](CDebugImgPackageP& into, const std::vector<unsigned char>& bytes) {
        WriteAll(dir.File("D/bad.dbg"), bytes);
        return into.LoadDebugPackage("D:\\bad.dbg");
    };

    // Cut anywhere from the data area on, the file loads what it holds: the
    // zero-filled area of the records' size, all of it decrypted, so the
    // missing tail reads as the cipher's stream over zeros.
    std::vector<unsigned char> plain;
    for (int seed = 0; seed < 4; ++seed) {
        const auto f = FrameBytes(8, 4, seed);
        plain.insert(plain.end(), f.begin(), f.end());
    }
    CDebugImgPackageP cut;
    ASSERT_TRUE(load(cut, std::vector<unsigned char>(file.begin(), file.end() - 40)));
    ASSERT_EQ(cut.BufferSize, 128u);
    EXPECT_EQ(std::vector<unsigned char>(cut.Buffer.get(), cut.Buffer.get() + 88),
              std::vector<unsigned char>(plain.begin(), plain.begin() + 88));
    std::vector<unsigned char> stream(128, 0);
    DrasselSpace::FileToolP::EncryptData(stream.data(), stream.size(),
                                         reinterpret_cast<const unsigned char*>(CDebugImgPackageP::kKey), 16);
    EXPECT_EQ(std::vector<unsigned char>(cut.Buffer.get() + 88, cut.Buffer.get() + 128),
              std::vector<unsigned char>(stream.begin() + 88, stream.end()));
    // Cut inside the records, the missing words read as zeros.
    ASSERT_TRUE(load(cut, std::vector<unsigned char>(file.begin(), file.begin() + 20)));
    ASSERT_EQ(cut.PackageInfos.size(), 2u);
    EXPECT_EQ(cut.PackageInfos[0].Height, 4u);
    EXPECT_EQ(cut.PackageInfos[0].FrameCount, 0u);
    EXPECT_EQ(cut.BufferSize, 0u);
    // Sizes sum in 32 bits and wrap: 65536 x 65536 x 1 frames take no bytes.
    auto wrapping = file;
    const uint32_t side = 0x10000, one = 1;
    std::memcpy(&wrapping[12], &side, 4);
    std::memcpy(&wrapping[16], &side, 4);
    std::memcpy(&wrapping[20], &one, 4);
    ASSERT_TRUE(load(cut, wrapping));
    EXPECT_EQ(cut.BufferSize, 64u);  // the second run alone

    // Refused, with only the version taken: no records, or a file too short
    // to count them, or billions of records that the file lacks.
    for (size_t n = 0; n < 8; ++n) EXPECT_FALSE(load(cut, std::vector<unsigned char>(file.begin(), file.begin() + n)));
    auto zero = file;
    std::memset(&zero[4], 0, 4);
    zero[0] = 9;
    ASSERT_TRUE(load(cut, file));
    EXPECT_FALSE(load(cut, zero));
    EXPECT_EQ(cut.Version, 9u);
    EXPECT_EQ(cut.PackageInfos.size(), 2u);
    EXPECT_EQ(cut.BufferSize, 128u);
    auto billions = file;
    const uint32_t count = 0x40000000;
    std::memcpy(&billions[4], &count, 4);
    EXPECT_FALSE(load(cut, billions));
    EXPECT_FALSE(cut.LoadDebugPackage("D:\\missing.dbg"));
}
