#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "arm_test_support.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::View;

TEST(ArmOutputMemory, AllocationResetsTheBlock) {
    CArmImageOutputMemory block;
    EXPECT_EQ(block.GetAddress(), nullptr);
    EXPECT_EQ(block.GetAllocatedSize(), 0u);
    EXPECT_FALSE(block.GetUsingStatus());
    block.AllocateMemory(100);
    block.SetUsingStatus(true);
    block.AllocateMemory(50);
    EXPECT_NE(block.GetAddress(), nullptr);
    EXPECT_EQ(block.GetAllocatedSize(), 50u);
    EXPECT_FALSE(block.GetUsingStatus());
}

TEST(OneViewArmImageData, CountsAndMemoryEstimate) {
    View v(8, 4, 2, 3, 2, 4, 2);
    CArmImageOutputMemory small, big;  // outlive the views that borrow them
    COneViewArmImageData data(5);
    EXPECT_TRUE(data.SetSinImages(v.sin, {eCam0, eCam1}, 3, 2, 4));
    EXPECT_EQ(data.GetSinFrameCount(), 48);
    std::vector<IImgP*> short47(v.sin.begin(), v.sin.end() - 1);
    EXPECT_FALSE(data.SetSinImages(short47, {eCam0, eCam1}, 3, 2, 4));
    EXPECT_EQ(data.GetSinFrameCount(), 48);  // the counts are stored all the same
    data.SetWhitePatternImage(v.white);
    EXPECT_EQ(data.GetWhitePtnFrameCount(), 2);
    EXPECT_EQ(data.GetMemoryRequired(), 48u * (32 + 64) + 2u * (32 + 64));

    COneViewArmImageData whiteOnly(6);
    whiteOnly.SetWhitePatternImage(v.white);
    EXPECT_EQ(whiteOnly.GetMemoryRequired(), 2u * 96);
    EXPECT_EQ(whiteOnly.GetSinFrameCount(), 0);

    small.AllocateMemory(100);
    big.AllocateMemory(10000);
    EXPECT_FALSE(data.SetAvaliableMemory(nullptr));
    EXPECT_FALSE(data.SetAvaliableMemory(&small));
    EXPECT_FALSE(small.GetUsingStatus());
    EXPECT_TRUE(data.SetAvaliableMemory(&big));
    EXPECT_TRUE(big.GetUsingStatus());
    EXPECT_TRUE(data.ResetAvaliableMemory());
    EXPECT_FALSE(big.GetUsingStatus());
    EXPECT_FALSE(whiteOnly.ResetAvaliableMemory());
    {
        COneViewArmImageData holder(7);
        holder.SetAvaliableMemory(&small);
        EXPECT_TRUE(small.GetUsingStatus());
    }
    EXPECT_FALSE(small.GetUsingStatus());  // destruction hands it back
}

// The file is the header plus packed records, and each record's data is a
// standard LZ4 block: python3-lz4 decodes it to the original pixels.
TEST(OneViewArmImageData, FileLayoutDecodesWithAnIndependentLz4) {
    GRABSYS_SKIP_ON_WINDOWS("python3 with lz4");
    if (std::system("/usr/bin/python3 -c 'import lz4.block' 2>/dev/null") != 0) GTEST_FAIL() << "python3-lz4 missing";
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\arm");
    const uint32_t w = 96, h = 40;
    View v(w, h, 2, 1, 2, 3, 2);
    CArmImageOutputMemory block;
    ASSERT_TRUE(grabsys_test::WriteViewFile(v, 12, {static_cast<eCamIdx>(300), eCam5}, 1, 2, 3, "D:\\arm\\12.armraw", block));
    const auto file = ReadAll(dir.File("D/arm/12.armraw"));
    ASSERT_GE(file.size(), 1024u);

    OneViewArmImageDataHeader header;
    std::memcpy(&header, file.data(), sizeof header);
    EXPECT_EQ(header.version, 2u);
    EXPECT_EQ(header.sinFrameCount, 12u);
    EXPECT_EQ(header.whiteFrameCount, 2u);
    EXPECT_EQ(header.width, w);
    EXPECT_EQ(header.height, h);
    EXPECT_EQ(header.camCount, 2);
    EXPECT_EQ(header.sinDimA, 1);
    EXPECT_EQ(header.sinDimB, 2);
    EXPECT_EQ(header.sinDimC, 3);
    EXPECT_EQ(header.camTable[0], 44);  // 300 keeps its low 8 bits
    EXPECT_EQ(header.camTable[1], 5);
    for (size_t i = 2; i < sizeof header.camTable; ++i) ASSERT_EQ(header.camTable[i], 0) << i;

    // Walk the records; write each one's data and the original pixels for
    // the independent decoder.
    std::ofstream manifest(dir.File("manifest.txt"));
    size_t at = 1024, frame = 0;
    while (at < file.size()) {
        uint32_t kind = 0, n = 0;
        std::memcpy(&kind, &file[at], 4);
        std::memcpy(&n, &file[at + 4], 4);
        EXPECT_EQ(kind, 1u);
        for (size_t r = 8; r < 64; ++r) ASSERT_EQ(file[at + r], 0);
        ASSERT_LE(at + 64 + n, file.size());
        grabsys_test::WriteAll(dir.File("rec" + std::to_string(frame)),
                               std::vector<unsigned char>(file.begin() + static_cast<long>(at + 64),
                                                          file.begin() + static_cast<long>(at + 64 + n)));
        const unsigned char* px = v.frames[frame]->GetImg();
        grabsys_test::WriteAll(dir.File("px" + std::to_string(frame)), std::vector<unsigned char>(px, px + w * h));
        manifest << "rec" << frame << " px" << frame << ' ' << w * h << '\n';
        at += 64 + n;
        ++frame;
    }
    manifest.close();
    EXPECT_EQ(at, file.size());  // exactly 1024 + sum of (64 + n)
    EXPECT_EQ(frame, 14u);
    const std::string cmd = "/usr/bin/python3 " GRABSYS_TEST_SOURCE_DIR "/arm/check_lz4_records.py " + dir.Path();
    EXPECT_EQ(std::system(cmd.c_str()), 0);
}

TEST(OneViewArmImageData, SaveLogsAndRefusesWhatItCannotWrite) {
    std::vector<std::string> lines;
    PelvaneSpace::Logger::GetInstance()->SetSink([&](int, const std::string& text) { lines.push_back(text); });
    COneViewArmImageData data(3);
    EXPECT_FALSE(data.SaveToFile());  // empty path
    EXPECT_EQ(lines, std::vector<std::string>{"ArmCost--COneViewArmImageData::SaveToFile - 1(3)"});
    PelvaneSpace::Logger::GetInstance()->SetSink(nullptr);

    // Frames LZ4 cannot shrink outgrow the estimate: no write past the block.
    View noisy(64, 64, 1, 1, 1, 2, 1, true);
    CArmImageOutputMemory exact;
    COneViewArmImageData big(4);
    big.SetSinImages(noisy.sin, {eCam0}, 1, 1, 2);
    big.SetWhitePatternImage(noisy.white);
    exact.AllocateMemory(big.GetMemoryRequired());
    ASSERT_TRUE(big.SetAvaliableMemory(&exact));
    EXPECT_FALSE(big.CompressMemoryData());
    COneViewArmImageData none(5);
    EXPECT_FALSE(none.CompressMemoryData());
}
