#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "arm_test_support.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"
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

TEST(OneViewArmImageData, AnyContentFitsTheEstimatedBlock) {
    std::vector<std::string> lines;
    PelvaneSpace::Logger::GetInstance()->SetSink([&](int, const std::string& text) { lines.push_back(text); });
    COneViewArmImageData data(3);
    EXPECT_FALSE(data.SaveToFile());  // empty path
    EXPECT_EQ(lines, std::vector<std::string>{"ArmCost--COneViewArmImageData::SaveToFile - 1(3)"});
    PelvaneSpace::Logger::GetInstance()->SetSink(nullptr);

    // Whatever LZ4 makes of the frames, a view whose frames all have the
    // size of the first fits a block of exactly the estimated size, and the
    // file is exact: header, then 64 + n bytes a frame.
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\v");
    struct Case {
        uint32_t w, h;
        bool noise;
    };
    for (const Case c : {Case{64, 64, true}, Case{1, 1, false}, Case{1, 1, true}, Case{32, 32, false}}) {
        View v(c.w, c.h, 1, 1, 2, 3, 1, c.noise);
        if (!c.noise && c.w == 32)
            for (auto& f : v.frames) std::memset(f->GetImg(), 0, f->GetMemSize());
        CArmImageOutputMemory exact;
        COneViewArmImageData view(4);
        view.SetSinImages(v.sin, {eCam0}, 1, 2, 3);
        view.SetWhitePatternImage(v.white);
        view.SetOutputFileFullPath("D:\\v\\4.armraw");
        exact.AllocateMemory(view.GetMemoryRequired());
        EXPECT_EQ(exact.GetAllocatedSize(), view.GetMemoryRequired());
        ASSERT_TRUE(view.SetAvaliableMemory(&exact));
        ASSERT_TRUE(view.CompressMemoryData()) << c.w << " x " << c.h;
        ASSERT_TRUE(view.SaveToFile());
        const auto file = ReadAll(dir.File("D/v/4.armraw"));
        ASSERT_EQ(file.size(), 1024u + static_cast<uint64_t>(view.GetCompressedSize()));
        size_t at = 1024;
        for (const auto& frame : v.frames) {
            uint32_t n = 0;
            std::memcpy(&n, &file[at + 4], 4);
            std::vector<unsigned char> back(frame->GetMemSize());
            EXPECT_EQ(DrasselSpace::CLZ4DecompressorP::DecompressRaw(&file[at + 64], static_cast<int>(n), back.data(),
                                                                     static_cast<int>(back.size())),
                      static_cast<int>(back.size()));
            EXPECT_EQ(std::memcmp(back.data(), frame->GetImg(), back.size()), 0);
            at += 64 + n;
        }
        EXPECT_EQ(at, file.size());
    }

    // Only frames that outgrow the first of their kind can overrun the
    // block: refused, and then no file is written.
    View outgrowing = grabsys_test::Outgrowing(16, 4096);
    CArmImageOutputMemory small;
    COneViewArmImageData over(5);
    over.SetWhitePatternImage(outgrowing.white);
    over.SetOutputFileFullPath("D:\\v\\5.armraw");
    small.AllocateMemory(over.GetMemoryRequired());
    ASSERT_TRUE(over.SetAvaliableMemory(&small));
    EXPECT_FALSE(over.CompressMemoryData());
    EXPECT_FALSE(over.SaveToFile());
    EXPECT_FALSE(std::filesystem::exists(dir.File("D/v/5.armraw")));

    // Without a block there is nothing to compress, and the file is empty.
    COneViewArmImageData none(6);
    EXPECT_FALSE(none.CompressMemoryData());
    none.SetOutputFileFullPath("D:\\v\\6.armraw");
    EXPECT_TRUE(none.SaveToFile());
    EXPECT_TRUE(ReadAll(dir.File("D/v/6.armraw")).empty());
}
