#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "grabsystem/debug_package/debug_package.h"
#include "grabsystem/debug_package/debug_package_exporter.h"
#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::FrameBytes;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::Tree;
using grabsys_test::WriteAll;
namespace fs = std::filesystem;

namespace {

std::vector<unsigned char> Lz4(const std::vector<unsigned char>& data) {
    std::vector<unsigned char> out(static_cast<size_t>(DrasselSpace::CLZ4CompressorP::GetCompressBound(static_cast<int>(data.size()))));
    out.resize(static_cast<size_t>(DrasselSpace::CLZ4CompressorP::CompressRaw(
        data.data(), static_cast<int>(data.size()), out.data(), static_cast<int>(out.size()), 3)));
    return out;
}

CDebugPackageInfoP GenRun(uint32_t jump, uint32_t w, uint32_t h, uint32_t frames, uint32_t cam, uint32_t group) {
    CDebugPackageInfoP info;
    info.JumpIdx = jump;
    info.Width = w;
    info.Height = h;
    info.FrameCount = frames;
    info.CamIdx = cam;
    info.GroupIdx = group;
    return info;
}

// One run of `frames` 6 x 4 frames, optionally led by a project file.
void Save(const std::string& path, const std::vector<CDebugPackageInfoP>& runs, const std::string& project) {
    CDebugPackageP pkg;
    pkg.InitialPackageBuffer();
    for (const auto& r : runs) pkg.AddPackageInfo(r);
    if (!project.empty())
        pkg.AddData(0, reinterpret_cast<unsigned char*>(const_cast<char*>(project.data())), 0, static_cast<int>(project.size()));
    int seed = 0;
    for (const auto& r : runs)
        for (uint32_t j = 0; j < r.FrameCount; ++j) {
            auto block = Lz4(FrameBytes(r.Width, r.Height, seed++));
            ASSERT_TRUE(pkg.AddData(0, block.data(), 0, static_cast<int>(block.size())));
        }
    pkg.AllocateDebugImgBuffer();
    ASSERT_TRUE(pkg.SaveDebugPackage(path, !project.empty()));
}

long ResidentPages() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident;
}

}  // namespace

TEST(DebugPackage, LayoutProjectFileAndFramesRoundTrip) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    const std::string project = "<project name='scan'/>";
    Save("D:\\g.dbg", {GenRun(5, 6, 4, 4, 0, 1)}, project);
    const auto file = ReadAll(dir.File("D/g.dbg"));
    auto word = [&](size_t i) {
        uint32_t v;
        std::memcpy(&v, &file[4 * i], 4);
        return v;
    };
    EXPECT_EQ(word(0), 3u);
    EXPECT_EQ(word(1), 1u);  // project-file flag
    EXPECT_EQ(word(2), 1u);  // records
    EXPECT_EQ((std::vector<uint32_t>{word(3), word(4), word(5), word(6), word(7), word(8)}),
              (std::vector<uint32_t>{5, 6, 4, 4, 1, 0}));  // jump, w, h, frames, group, camera

    // The project file goes into D:\vormex, which must exist: without it
    // the load is still the decryption's result, and no file is written.
    CDebugPackageP loaded;
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\g.dbg"));
    EXPECT_FALSE(fs::exists(dir.File("D/vormex")));
    fs::create_directories(dir.File("D/vormex"));
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\g.dbg"));
    EXPECT_EQ(loaded.GetProjectFileSize(), project.size());
    EXPECT_EQ(loaded.GetProjectFileBuffer(), nullptr);
    EXPECT_EQ(loaded.GetDataSize(), file.size() - 12 - 24);  // the data area, project block included
    const auto written = ReadAll(dir.File("D/vormex/importTmp.fpz"));
    EXPECT_EQ(std::string(written.begin(), written.end()), project);

    // Jump 5, FrameCount 4, group 1: img9 .. img12 in Cam0.
    ASSERT_TRUE(loaded.ImportDebugImg());
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")),
              (std::set<std::string>{"Cam0/img9.bmp", "Cam0/img10.bmp", "Cam0/img11.bmp", "Cam0/img12.bmp"}));
    for (int j = 0; j < 4; ++j)
        EXPECT_EQ(grabsys_test::BmpPixels(dir.File("D/ImgTest/CamImgInput/Cam0/img" + std::to_string(9 + j) + ".bmp")), FrameBytes(6, 4, j));

    // The indexed entry point takes the first block's length and decodes
    // that many bytes from the second block's length word on, for every
    // frame, as it always has: here that is no LZ4 block, so it fails
    // before writing a file.
    EXPECT_FALSE(loaded.ImportDebugImg(2));
    EXPECT_TRUE(Tree(dir.File("D/ImgTest/CamImgInput/Cam0_2")).empty());
}

TEST(DebugPackage, FlagOtherThanOneMeansNoProjectFile) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    Save("D:\\np.dbg", {GenRun(0, 6, 4, 2, 3, 0), GenRun(0, 6, 4, 0, 3, 1)}, "");
    auto file = ReadAll(dir.File("D/np.dbg"));
    file[4] = 2;
    WriteAll(dir.File("D/np.dbg"), file);
    CDebugPackageP loaded;
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\np.dbg"));
    EXPECT_EQ(loaded.GetProjectFileSize(), 0u);
    EXPECT_FALSE(fs::exists(dir.File("D/vormex/importTmp.fpz")));
    ASSERT_TRUE(loaded.ImportDebugImg());  // a run of 0 frames takes no block
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")), (std::set<std::string>{"Cam3/img0.bmp", "Cam3/img1.bmp"}));
}

TEST(DebugPackage, DamagedFilesLoadWhatTheyHold) {
    TempDir dir;
    fs::create_directories(dir.File("D/vormex"));
    Save("D:\\g.dbg", {GenRun(0, 6, 4, 3, 0, 0)}, "proj");
    const auto good = ReadAll(dir.File("D/g.dbg"));
    CDebugPackageP pkg;
    auto load = [&](const std::vector<unsigned char>& bytes) {
        WriteAll(dir.File("D/bad.dbg"), bytes);
        return pkg.LoadDebugPackage("D:\\bad.dbg");
    };
    for (size_t cut = 0; cut < 12; ++cut)
        EXPECT_FALSE(load(std::vector<unsigned char>(good.begin(), good.begin() + static_cast<long>(cut)))) << cut;
    // Cut inside the record, the missing words read as zeros; there is no
    // data, so the project file is empty and no frame is left to import.
    ASSERT_TRUE(load(std::vector<unsigned char>(good.begin(), good.begin() + 20)));
    ASSERT_EQ(pkg.PackageInfos.size(), 1u);
    EXPECT_EQ(pkg.PackageInfos[0].Width, 6u);
    EXPECT_EQ(pkg.PackageInfos[0].FrameCount, 0u);
    EXPECT_EQ(pkg.GetDataSize(), 0u);
    EXPECT_EQ(pkg.GetProjectFileSize(), 0u);
    EXPECT_TRUE(ReadAll(dir.File("D/vormex/importTmp.fpz")).empty());
    EXPECT_TRUE(pkg.ImportDebugImg());
    // Cut inside the project block: it keeps its length, holding the bytes
    // that are there and zeros for the rest.
    ASSERT_TRUE(load(std::vector<unsigned char>(good.begin(), good.begin() + 12 + 24 + 6)));
    EXPECT_EQ(pkg.GetProjectFileSize(), 4u);
    const auto project = ReadAll(dir.File("D/vormex/importTmp.fpz"));
    EXPECT_EQ(std::string(project.begin(), project.end()), std::string("pr\0\0", 4));

    auto zero = good;
    std::memset(&zero[8], 0, 4);
    EXPECT_FALSE(load(zero));
    auto many = good;
    many[10] = 0x10;  // a million records, all but one missing: 24 MB of zeros
    ASSERT_TRUE(load(many));
    EXPECT_EQ(pkg.PackageInfos.size(), 0x100001u);
    many[11] = 0x10;  // some 300 million: more than 4 GiB of missing records
    EXPECT_FALSE(load(many));
    EXPECT_FALSE(pkg.LoadDebugPackage("D:\\missing.dbg"));
    EXPECT_FALSE(pkg.ImportDebugImg());

    // The data is encrypted, so damage goes through the decryption: the
    // project length or a block length then reads as a wild value, which
    // must be caught against the data that is there.
    for (size_t at : {size_t{36}, size_t{37}, good.size() - 30, good.size() - 3}) {
        auto bad = good;
        bad[at] ^= 0x55;
        if (load(bad)) {
            pkg.ImportDebugImg();
            pkg.ImportDebugImg(1);
        }
    }
    // A package cut inside its last block: the frames before it are
    // written, then false.
    fs::remove_all(dir.File("D/ImgTest"));
    ASSERT_TRUE(load(std::vector<unsigned char>(good.begin(), good.end() - 4)));
    EXPECT_FALSE(pkg.ImportDebugImg());
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")).size(), 2u);

    // Nothing checks a record against its blocks: a larger frame takes the
    // decoded bytes as far as they go, and a record that claims more frames
    // than there are blocks writes those it finds, then stops with false.
    const uint32_t width = 300, frames = 0x7FFFFFFF;
    auto larger = good;  // the record's Width is byte 16, its FrameCount byte 24
    std::memcpy(&larger[16], &width, 4);
    fs::remove_all(dir.File("D/ImgTest"));
    ASSERT_TRUE(load(larger));
    EXPECT_TRUE(pkg.ImportDebugImg());
    EXPECT_EQ(grabsys_test::BmpPixels("D://ImgTest//CamImgInput//Cam0//img2.bmp").size(), 300u * 4u);
    auto endless = good;
    std::memcpy(&endless[24], &frames, 4);
    fs::remove_all(dir.File("D/ImgTest"));
    ASSERT_TRUE(load(endless));
    EXPECT_FALSE(pkg.ImportDebugImg());
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")).size(), 3u);

    CDebugPackageP writer;
    EXPECT_FALSE(writer.AddData(0, nullptr, 0, 0));  // no staging buffer
    EXPECT_FALSE(writer.SaveDebugPackage("D:\\x.dbg", false));
}

TEST(DebugPackage, CallOrdersOffThePathTouchOnlyTheirOwnBytes) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    const std::vector<unsigned char> block(66, 9);
    // A block staged after the copy was made is not in the copy: the file
    // holds the header, the record and the first block only.
    CDebugPackageP pkg;
    pkg.InitialPackageBuffer();
    pkg.AddPackageInfo(GenRun(0, 2, 2, 1, 0, 0));
    pkg.AddData(0, const_cast<unsigned char*>(block.data()), 0, static_cast<int>(block.size()));
    pkg.AllocateDebugImgBuffer();
    pkg.AddData(0, const_cast<unsigned char*>(block.data()), 0, static_cast<int>(block.size()));
    ASSERT_TRUE(pkg.SaveDebugPackage("D:\\order.dbg", false));
    EXPECT_EQ(ReadAll(dir.File("D/order.dbg")).size(), 12u + 24u + 4u + 66u);
    // A load's frames live in the buffer that AllocateDebugImgBuffer
    // replaces: after it, nothing is left to import.
    CDebugPackageP loaded;
    Save("D:\\g.dbg", {GenRun(0, 6, 4, 1, 0, 0)}, "");
    ASSERT_TRUE(loaded.LoadDebugPackage("D:\\g.dbg"));
    loaded.AllocateDebugImgBuffer();
    EXPECT_FALSE(loaded.ImportDebugImg());
    EXPECT_FALSE(fs::exists(dir.File("D/ImgTest")));
}

TEST(DebugPackage, StagingBufferCostsOnlyTheBytesStaged) {
    const long before = ResidentPages();
    if (before == 0) GTEST_SKIP() << "no /proc/self/statm on this system";
    const long page = 4096;
    std::vector<std::unique_ptr<CDebugPackageP>> packages;
    for (int i = 0; i < 4; ++i) {
        packages.emplace_back(new CDebugPackageP);
        packages.back()->InitialPackageBuffer();  // 4 GiB of address space
    }
    std::vector<unsigned char> block(8 * 1048576, 1);
    ASSERT_TRUE(packages[0]->AddData(0, block.data(), 0, static_cast<int>(block.size())));
    // 4 GiB were reserved and 8 MB staged. The bound leaves room for the
    // shadow memory that sanitizer builds keep for the staged bytes.
    const long grown = (ResidentPages() - before) * page;
    EXPECT_LT(grown, 256L * 1048576) << "resident memory grew by " << grown << " bytes";
    EXPECT_EQ(packages[0]->GetDataSize(), block.size() + 4);
}

TEST(PackageExporter, ChoosesTheFormByTheFirstFileAndNumbersFolders) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    CDebugPackageExporterP exporter;
    EXPECT_FALSE(exporter.ExprotPackage({}));
    EXPECT_FALSE(exporter.ExprotPackage({""}));
    EXPECT_FALSE(fs::exists(dir.File("D/ImgTest")));

    // Two image packages: Cam<c>_0 and Cam<c>_1.
    for (int i = 0; i < 2; ++i) {
        CDebugImgPackageP img;
        CDebugImgPackageInfoP info;
        info.Width = 4;
        info.Height = 2;
        info.FrameCount = 1;
        info.CamIdx = 2;
        img.AddPackageInfo(info);
        img.CreatePackageBuffer();
        img.SaveDebugPackage("D:\\img" + std::to_string(i) + ".dbg");
    }
    ASSERT_TRUE(exporter.ExprotPackage({"D:\\img0.dbg", "D:\\img1.dbg"}));
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")), (std::set<std::string>{"Cam2_0/img0.bmp", "Cam2_1/img0.bmp"}));

    // A general package after an image package is parsed with the image
    // layout: its flag is taken for the record count, its record count for
    // the jump, and its records shift by one word.
    Save("D:\\gen.dbg", {GenRun(0, 6, 4, 1, 0, 0)}, "project bytes");
    EXPECT_TRUE(exporter.ExprotPackage({"D:\\img0.dbg", "D:\\gen.dbg"}));
    EXPECT_EQ(exporter.DebugImgPackage->Version, 3u);
    EXPECT_EQ(exporter.DebugImgPackage->JumpIdx, 1u);
    ASSERT_EQ(exporter.DebugImgPackage->PackageInfos.size(), 1u);
    EXPECT_EQ(exporter.DebugImgPackage->PackageInfos[0].Height, 6u);

    // One general package: Cam<c> folders and the project file's size.
    ASSERT_TRUE(exporter.ExprotPackage({"D:\\gen.dbg"}));
    EXPECT_EQ(exporter.GetProjectFileSize(), 13u);
    EXPECT_TRUE(fs::exists(dir.File("D/ImgTest/CamImgInput/Cam0/img0.bmp")));

    // An unreadable first file picks the general form, whose load fails.
    CDebugPackageExporterP fresh;
    EXPECT_FALSE(fresh.ExprotPackage({"D:\\missing.dbg"}));
    EXPECT_FALSE(fresh.ExprotPackage({"D:\\missing.dbg", "D:\\img0.dbg"}));

    // A copy shares the package objects. An image package cut inside its
    // data loads what it holds, so the reused exporter exports that
    // package, never the frames of the one before it.
    CDebugPackageExporterP copy = exporter;
    EXPECT_EQ(copy.DebugImgPackage.get(), exporter.DebugImgPackage.get());
    fs::remove_all(dir.File("D/ImgTest"));
    ASSERT_TRUE(copy.ExprotPackage({"D:\\img1.dbg"}));
    auto cut = ReadAll(dir.File("D/img1.dbg"));
    cut[28] = 5;  // camera 5 instead of 2
    cut.resize(cut.size() - 3);
    WriteAll(dir.File("D/cut.dbg"), cut);
    EXPECT_TRUE(copy.ExprotPackage({"D:\\cut.dbg"}));
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput")), (std::set<std::string>{"Cam2/img0.bmp", "Cam5/img0.bmp"}));
}
