#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "grabsystem/format/data_structure.h"
#include "grabsystem/platform/os/os.h"
#include "test_support.h"

using namespace VormexDataStructure;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::WriteAll;

namespace {

CImgInfo SampleInfo() {
    CImgInfo info;
    info.size = ImgSize(640, 480, 3, 16);
    info.memMode = eMemModeGrow;
    info.imgAlignment = ImgAlignment(10, 20, -3, 4);
    info.cadAlignment = ImgAlignment(30, 40, 5, -6);
    info.resolution = ImgRes(0.5, 0.25, 0.125);
    info.procLog.Add(new ImgProcCmd(eProcGrab, "exposure 12ms"));
    info.procLog.Add(new ImgProcCmd(eProcLoadFile));
    info.status = 65535;
    info.camIdx = GrabSystem::eCam3;
    info.frameAttr = 0xA5A5F00Du;
    return info;
}

void ExpectSame(const CImgInfo& a, const CImgInfo& b) {
    EXPECT_EQ(a.size.GetWidth(), b.size.GetWidth());
    EXPECT_EQ(a.size.GetHeight(), b.size.GetHeight());
    EXPECT_EQ(a.size.GetChannels(), b.size.GetChannels());
    EXPECT_EQ(a.size.GetBitPerChannel(), b.size.GetBitPerChannel());
    EXPECT_EQ(a.size.GetByteSize(), b.size.GetByteSize());
    EXPECT_EQ(a.memMode, b.memMode);
    EXPECT_EQ(a.imgAlignment.nOffsetX, b.imgAlignment.nOffsetX);
    EXPECT_EQ(a.cadAlignment.nHeight, b.cadAlignment.nHeight);
    EXPECT_EQ(a.resolution.dZ, b.resolution.dZ);
    ASSERT_EQ(a.procLog.Size(), b.procLog.Size());
    for (size_t i = 0; i < a.procLog.Size(); ++i) {
        EXPECT_EQ(a.procLog.At(i).GetTag(), b.procLog.At(i).GetTag());
        EXPECT_STREQ(a.procLog.At(i).GetMsg(), b.procLog.At(i).GetMsg());
    }
    EXPECT_EQ(a.status, b.status);
    EXPECT_EQ(a.camIdx, b.camIdx);
    EXPECT_EQ(a.frameAttr, b.frameAttr);
}

}  // namespace

TEST(ImgSize, DerivesBytesByTheBufferRule) {
    ImgSize size(10, 10, 3, 16);
    EXPECT_EQ(size.GetArea(), 100u);
    EXPECT_EQ(size.GetBitPerPixel(), 48);
    EXPECT_EQ(size.GetBytePerPixel(), 6);
    EXPECT_EQ(size.GetBytePerChannel(), 2);
    EXPECT_EQ(size.GetByteSize(), 600u);
    size.SetBitPerChannel(12);  // 36 bits: rule "bits / 8" gives 4 bytes
    EXPECT_EQ(size.GetByteSize(), 400u);
    size.Set(10, 10, 1);  // 12 bits: two bytes
    EXPECT_EQ(size.GetByteSize(), 200u);
    size.SetBitPerChannel(1);
    EXPECT_EQ(size.GetByteSize(), 100u);  // a mask takes a byte per pixel
    size.SetBitPerChannel(64);
    size.Set(4, 4, 4);  // 256 bits wrap to 0
    EXPECT_EQ(size.GetBitPerPixel(), 0);
    EXPECT_EQ(size.GetByteSize(), 0u);
}

TEST(CImgInfo, TrailerIsFoundAtTheEndOfAnyFileAndRestoresEveryField) {
    TempDir dir;
    const std::string path = dir.File("pixels.bin");
    WriteAll(path, std::vector<unsigned char>(1000, 0x42));
    const CImgInfo saved = SampleInfo();
    FILE* f = std::fopen(path.c_str(), "ab");
    ASSERT_TRUE(saved.Append(f, eImgFmtBmp));
    std::fclose(f);

    f = std::fopen(path.c_str(), "rb");
    std::fseek(f, 17, SEEK_SET);
    EXPECT_TRUE(CImgInfo::HasCImgInfo(f));
    EXPECT_EQ(CImgInfo::ExtractFileType(f), eImgFmtBmp);
    EXPECT_EQ(std::ftell(f), 17);  // the probes keep the position
    CImgInfo loaded;
    ASSERT_TRUE(loaded.Extract(f, false));
    std::fclose(f);
    ExpectSame(saved, loaded);
    EXPECT_EQ(loaded.fileFormat, eImgFmtBmp);

    // A file without a block: nothing found, nothing changed.
    WriteAll(path, std::vector<unsigned char>(64, 0));
    f = std::fopen(path.c_str(), "rb");
    EXPECT_FALSE(CImgInfo::HasCImgInfo(f));
    EXPECT_EQ(CImgInfo::ExtractFileType(f), eImgFmtUnknown);
    EXPECT_FALSE(loaded.Extract(f, false));
    std::fclose(f);
    ExpectSame(saved, loaded);
    EXPECT_FALSE(CImgInfo::HasCImgInfo(nullptr));
}

TEST(CImgInfo, StreamFormReadsAtThePositionAndLeavesItAfterTheBlock) {
    TempDir dir;
    const std::string path = dir.File("stream.bin");
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_TRUE(SampleInfo().Append(f, eImgFmtFFC));
    std::fputc(0x77, f);
    std::fclose(f);
    f = std::fopen(path.c_str(), "rb");
    CImgInfo loaded;
    ASSERT_TRUE(loaded.Extract(f, true));
    EXPECT_EQ(std::fgetc(f), 0x77);
    std::fclose(f);
    ExpectSame(SampleInfo(), loaded);
    EXPECT_EQ(loaded.fileFormat, eImgFmtFFC);
}

TEST(CImgInfo, DamagedBlocksAreRefusedWithoutChangingAnything) {
    TempDir dir;
    const std::string path = dir.File("info.bin");
    FILE* f = std::fopen(path.c_str(), "wb");
    SampleInfo().Append(f, eImgFmtRaw);
    std::fclose(f);
    const std::vector<unsigned char> good = ReadAll(path);

    CImgInfo untouched;
    untouched.frameAttr = 77;
    // Cut at every length, and flip every byte in turn.
    for (size_t cut = 0; cut < good.size(); ++cut) {
        WriteAll(path, std::vector<unsigned char>(good.begin(), good.begin() + static_cast<long>(cut)));
        f = std::fopen(path.c_str(), "rb");
        EXPECT_FALSE(untouched.Extract(f, false)) << "cut at " << cut;
        std::fseek(f, 0, SEEK_SET);
        EXPECT_FALSE(untouched.Extract(f, true)) << "cut at " << cut;
        std::fclose(f);
    }
    // Damage to the structure: version words, the ImgSize geometry (its
    // derived copies no longer agree), the command count, the length word,
    // the magic.
    const size_t n = good.size();
    const size_t commandCount = 2 + 4 + 4 + 31 + 18 + 18 + 26 + 2;
    for (size_t at : {size_t{0}, size_t{10}, size_t{12}, size_t{17}, commandCount, n - 12, n - 9, n - 1}) {
        auto bad = good;
        bad[at] ^= 0x40;
        WriteAll(path, bad);
        f = std::fopen(path.c_str(), "rb");
        EXPECT_FALSE(CImgInfo::HasCImgInfo(f)) << "byte " << at;
        EXPECT_FALSE(untouched.Extract(f, false)) << "byte " << at;
        std::fclose(f);
    }
    // A count of commands beyond what the file holds allocates nothing.
    auto huge = good;
    huge[commandCount + 3] = 0x7F;
    WriteAll(path, huge);
    f = std::fopen(path.c_str(), "rb");
    EXPECT_FALSE(untouched.Extract(f, false));
    std::fclose(f);
    EXPECT_EQ(untouched.frameAttr, 77u);
}
