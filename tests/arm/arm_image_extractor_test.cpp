#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "arm_test_support.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "test_support.h"

namespace GrabSystem {
class ArmImageExtractorPeer {
public:
    static void AsyncExtract(ArmImageExtractor& e, void*& thread, ExtractArmImageThreadParam& param) {
        e._AsyncExtract(thread, param);
    }
};
}  // namespace GrabSystem

using namespace GrabSystem;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::Tree;
using grabsys_test::View;
using grabsys_test::WriteAll;

namespace {

namespace fs = std::filesystem;

class ArmExtractor : public ::testing::Test {
protected:
    void SetUp() override { DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\in"); }

    // Writes view `idx` into D:\in and returns its file bytes.
    std::vector<unsigned char> Write(View& v, int idx, std::vector<eCamIdx> cams, int a, int b, int c) {
        EXPECT_TRUE(grabsys_test::WriteViewFile(v, idx, std::move(cams), a, b, c,
                                                "D:\\in\\" + std::to_string(idx) + ".armraw", block));
        return ReadAll(dir.File("D/in/" + std::to_string(idx) + ".armraw"));
    }
    void Rewrite(int idx, const std::vector<unsigned char>& bytes) {
        WriteAll(dir.File("D/in/" + std::to_string(idx) + ".armraw"), bytes);
    }
    // Extracts one source; returns its failed views.
    std::vector<int> Extract(std::vector<int> views, const std::string& in, const std::string& out, int mode) {
        OutputOneViewArmImageParm parm;
        parm.views[0] = std::move(views);
        parm.inputDirs[0] = in;
        parm.outputDir = out;
        parm.mode = mode;
        std::vector<int> failed[1];
        EXPECT_TRUE(extractor.OutputOneViewArmImages(parm, failed, 1));
        return failed[0];
    }

    TempDir dir;
    CArmImageOutputMemory block;
    ArmImageExtractor extractor;
};

}  // namespace

TEST_F(ArmExtractor, ParsesViewNumbersFromArmrawNames) {
    unsigned char byte = 0;
    for (const char* name : {"3.armraw", "7.armraw", "notes.txt", "8.ARMRAW"})
        DrasselSpace::FileToolP::SaveDataToFile(std::string("D:\\in\\") + name, &byte, 1);
    std::vector<int> views;
    EXPECT_TRUE(extractor.ParseArmRawFile("D:\\in\\", views));
    std::sort(views.begin(), views.end());
    EXPECT_EQ(views, (std::vector<int>{3, 7}));

    DrasselSpace::FileToolP::SaveDataToFile("D:\\in\\x.armraw", &byte, 1);
    EXPECT_FALSE(extractor.ParseArmRawFile("D:\\in", views));
    EXPECT_EQ(views.size(), 2u);  // the views found so far stay

    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\empty");
    EXPECT_FALSE(extractor.ParseArmRawFile("D:\\empty", views));
    EXPECT_TRUE(views.empty());
    EXPECT_FALSE(extractor.ParseArmRawFile("D:\\nowhere", views));
}

TEST_F(ArmExtractor, TwentyFourSinFramesMakeTheNumberedPAndQTree) {
    View v(40, 20, 1, 1, 2, 12, 1);
    Write(v, 7, {eCam0}, 1, 2, 12);
    EXPECT_TRUE(Extract({7}, "D:\\in", "D:\\out", 1).empty());
    std::set<std::string> want;
    for (int k = 0; k < 12; ++k) want.insert("Cam0P/7/img" + std::to_string(k) + ".bmp");
    for (int k = 0; k < 12; ++k) want.insert("Cam0Q/7/img" + std::to_string(k) + ".bmp");
    want.insert("Cam0P/7/imgW.bmp");
    EXPECT_EQ(Tree(dir.File("D/out")), want);
    // P frames are renumbered from 4: frame 0 is img4, frame 8 is img0; Q
    // frames keep their number.
    const std::string out = dir.File("D/out/");
    auto pixels = [&](int frame) { return std::vector<unsigned char>(v.frames[frame]->GetImg(), v.frames[frame]->GetImg() + 800); };
    EXPECT_EQ(grabsys_test::BmpPixels(out + "Cam0P/7/img4.bmp"), pixels(0));
    EXPECT_EQ(grabsys_test::BmpPixels(out + "Cam0P/7/img0.bmp"), pixels(8));
    EXPECT_EQ(grabsys_test::BmpPixels(out + "Cam0Q/7/img0.bmp"), pixels(12));
    EXPECT_EQ(grabsys_test::BmpPixels(out + "Cam0Q/7/img11.bmp"), pixels(23));
    EXPECT_EQ(grabsys_test::BmpPixels(out + "Cam0P/7/imgW.bmp"), pixels(24));
    // Each BMP carries its frame's information block.
    FILE* f = std::fopen((out + "Cam0P/7/img4.bmp").c_str(), "rb");
    EXPECT_EQ(CImgInfo::ExtractFileType(f), VormexDataStructure::eImgFmtBmp);
    std::fclose(f);
}

TEST_F(ArmExtractor, CameraTableComesFromVersion2HeadersOnly) {
    View v(16, 8, 2, 1, 2, 2, 2);
    auto bytes = Write(v, 1, {eCam3, eCam5}, 1, 2, 2);
    EXPECT_TRUE(Extract({1}, "D:\\in\\", "D:\\v2\\", 3).empty());
    std::set<std::string> dirs;
    for (const auto& file : Tree(dir.File("D/v2"))) dirs.insert(file.substr(0, file.find('/')));
    EXPECT_EQ(dirs, (std::set<std::string>{"Cam3P", "Cam3Q", "Cam5P", "Cam5Q"}));

    bytes[0] = 1;  // version 1: identity camera table
    Rewrite(1, bytes);
    EXPECT_TRUE(Extract({1}, "D:\\in", "D:\\v1", 3).empty());
    dirs.clear();
    for (const auto& file : Tree(dir.File("D/v1"))) dirs.insert(file.substr(0, file.find('/')));
    EXPECT_EQ(dirs, (std::set<std::string>{"Cam0P", "Cam0Q", "Cam1P", "Cam1Q"}));
}

TEST_F(ArmExtractor, ModesChooseWhatIsWritten) {
    View v(16, 8, 1, 1, 1, 3, 1);
    Write(v, 2, {eCam0}, 1, 1, 3);
    EXPECT_TRUE(Extract({2}, "D:\\in", "D:\\m2", 2).empty());
    EXPECT_EQ(Tree(dir.File("D/m2")), (std::set<std::string>{"Cam0P/2/imgW.bmp"}));
    EXPECT_TRUE(Extract({2}, "D:\\in", "D:\\m3", 3).empty());
    EXPECT_EQ(Tree(dir.File("D/m3")), (std::set<std::string>{"Cam0P/2/img4.bmp", "Cam0P/2/img5.bmp", "Cam0P/2/img6.bmp"}));
    EXPECT_TRUE(Extract({2}, "D:\\in", "D:\\m0", 0).empty());  // succeeds, writes nothing
    EXPECT_TRUE(Tree(dir.File("D/m0")).empty());
    // An output root that itself contains "Cam1P" renumbers every folder.
    EXPECT_TRUE(Extract({2}, "D:\\in", "D:\\Cam1P", 3).empty());
    EXPECT_EQ(Tree(dir.File("D/Cam1P")).count("Cam0P/2/img4.bmp"), 1u);
}

TEST_F(ArmExtractor, FailedViewsAreReportedPerSource) {
    View v(16, 8, 1, 1, 1, 2, 1);
    Write(v, 4, {eCam0}, 1, 1, 2);
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\in2");
    fs::copy_file(dir.File("D/in/4.armraw"), dir.File("D/in2/4.armraw"));
    OutputOneViewArmImageParm parm;
    parm.views[0] = {4, 5};  // 5 does not exist
    parm.inputDirs[0] = "D:\\in";
    parm.views[1] = {9, 4};
    parm.inputDirs[1] = "D:\\in2\\";
    parm.views[2] = {1};
    parm.inputDirs[2] = "D:\\missing";  // skipped: nothing recorded
    parm.outputDir = "D:\\out";
    parm.mode = 1;
    std::vector<int> failed[3] = {{99}, {99}, {99}};
    ASSERT_TRUE(extractor.OutputOneViewArmImages(parm, failed, 3));
    EXPECT_EQ(failed[0], std::vector<int>{5});
    EXPECT_EQ(failed[1], std::vector<int>{9});
    EXPECT_TRUE(failed[2].empty());
    const ExtractCounters counts = extractor.GetCounters();
    EXPECT_EQ(std::vector<uint64_t>(counts.extracted, counts.extracted + 3), (std::vector<uint64_t>{1, 1, 0}));
    EXPECT_EQ(std::vector<uint64_t>(counts.failed, counts.failed + 3), (std::vector<uint64_t>{1, 1, 0}));
    EXPECT_FALSE(extractor.OutputOneViewArmImages(parm, nullptr, 3));
    EXPECT_TRUE(extractor.OutputOneViewArmImages(parm, failed, 0));
}

TEST_F(ArmExtractor, DamagedViewFilesFailWithoutReadingPastThem) {
    View v(32, 16, 1, 1, 1, 3, 1);
    const auto good = Write(v, 6, {eCam0}, 1, 1, 3);
    auto extractAs = [&](const std::vector<unsigned char>& bytes) {
        Rewrite(6, bytes);
        return Extract({6}, "D:\\in", "D:\\bad", 1).empty();
    };
    auto patch = [&](size_t at, uint32_t value) {
        auto bad = good;
        std::memcpy(&bad[at], &value, 4);
        return bad;
    };
    ASSERT_TRUE(extractAs(good));

    uint32_t firstLength = 0;
    std::memcpy(&firstLength, &good[1024 + 4], 4);
    EXPECT_FALSE(extractAs(std::vector<unsigned char>(good.begin(), good.begin() + 1000))) << "shorter than its header";
    EXPECT_FALSE(extractAs(std::vector<unsigned char>(good.begin(), good.begin() + 1024 + 64 + firstLength / 2)))
        << "truncated in the first frame";
    EXPECT_FALSE(extractAs(patch(1024 + 4, 0x7FFFFFF0u))) << "record length past the end";
    EXPECT_FALSE(extractAs(patch(4, 40))) << "more Sin frames than records";
    EXPECT_FALSE(extractAs(patch(4, 0x7FFFFFFFu))) << "absurd frame count";
    EXPECT_FALSE(extractAs(patch(32, 0))) << "sinDimC of 0";
    EXPECT_FALSE(extractAs(patch(8, 3))) << "more white frames than cameras and records";
    EXPECT_FALSE(extractAs(patch(20, 9))) << "more cameras than the table holds";
    // Two white frames for one camera: the records are there, the folders are not.
    View twoWhite(32, 16, 1, 1, 1, 3, 2);
    Write(twoWhite, 6, {eCam0}, 1, 1, 3);
    EXPECT_FALSE(Extract({6}, "D:\\in", "D:\\bad", 1).empty());

    // The last frame's data cut short still passes: it is written with
    // whatever its buffer holds.
    EXPECT_TRUE(extractAs(std::vector<unsigned char>(good.begin(), good.end() - 5)));

    // Nothing compares the decoded lengths with the header: a wider frame
    // takes what its block decodes to, and the view is written.
    fs::remove_all(dir.File("D/bad"));
    EXPECT_TRUE(extractAs(patch(12, 600)));
    EXPECT_EQ(grabsys_test::BmpPixels("D:\\bad\\Cam0P\\6\\img4.bmp").size(), 600u * 16u);
    // Eight cameras of huge passes and groups make a directory list longer
    // than 64 bits can count, but no overflow: the white frame lands in the
    // second (Q) group of camera 0.
    auto huge = patch(24, 0x7FFFFFFFu);
    std::memcpy(&huge[28], &huge[24], 4);
    huge[20] = 8;
    fs::remove_all(dir.File("D/bad"));
    EXPECT_TRUE(extractAs(huge));
    EXPECT_EQ(Tree(dir.File("D/bad")).count("Cam0Q/6/imgW.bmp"), 1u);
}

TEST_F(ArmExtractor, FramesOf2GiBOrMoreFailTheViewBeforeTheyAreSized) {
    // The decoder takes the frame's memory size as a 32-bit int: 65536 x
    // 32768 bytes is 2^31, a negative capacity, so the first of two frames
    // fails and the view with it. Nothing of 2 GiB is allocated on the way:
    // such a frame is refused before it is sized.
    View v(8, 4, 1, 1, 1, 2, 0);
    auto bytes = Write(v, 4, {eCam0}, 1, 1, 2);
    for (const auto& [width, height] : {std::pair<uint32_t, uint32_t>{65536, 32768}, {60000, 60000}, {0xFFFFFFFFu, 1}}) {
        std::memcpy(&bytes[12], &width, 4);
        std::memcpy(&bytes[16], &height, 4);
        Rewrite(4, bytes);
        EXPECT_EQ(Extract({4}, "D:\\in", "D:\\huge", 1), std::vector<int>{4}) << width << " x " << height;
        EXPECT_TRUE(Tree(dir.File("D/huge")).empty());
    }
}

TEST_F(ArmExtractor, CountsBelowOneRunTheirLoopsZeroTimes) {
    // Counts -1, -1, 3 for one camera multiply to 3: the Sin groups make no
    // directory, so the three frames go to the white frame's Cam0P.
    View v(8, 8, 1, 1, 1, 3, 0);
    COneViewArmImageData probe(7);
    EXPECT_TRUE(probe.SetSinImages(v.sin, {eCam0}, -1, -1, 3));
    Write(v, 7, {eCam0}, -1, -1, 3);
    EXPECT_TRUE(Extract({7}, "D:\\in", "D:\\neg", 1).empty());
    EXPECT_EQ(Tree(dir.File("D/neg")), (std::set<std::string>{"Cam0P/7/img4.bmp", "Cam0P/7/img5.bmp", "Cam0P/7/img6.bmp"}));
    // A negative sinDimC numbers the frames as its magnitude would.
    View w(8, 8, 1, 1, 1, 2, 1);
    auto minusTwo = Write(w, 8, {eCam0}, 1, 1, 2);
    const int32_t dimC = -2;
    std::memcpy(&minusTwo[32], &dimC, 4);
    Rewrite(8, minusTwo);
    EXPECT_TRUE(Extract({8}, "D:\\in", "D:\\negc", 1).empty());
    EXPECT_EQ(Tree(dir.File("D/negc")), (std::set<std::string>{"Cam0P/8/img4.bmp", "Cam0P/8/img5.bmp", "Cam0P/8/imgW.bmp"}));
    // No camera and no frame: nothing to write, and the view succeeds.
    View none(8, 8, 0, 0, 0, 0, 0);
    auto bytes = Write(none, 9, {}, 0, 0, 0);
    const int32_t cams = -2;
    std::memcpy(&bytes[20], &cams, 4);
    Rewrite(9, bytes);
    EXPECT_TRUE(Extract({9}, "D:\\in", "D:\\negcam", 1).empty());
}

namespace {

// Remembers the thread priorities asked for.
class PriorityEnv : public platform::EnvWrapper {
public:
    using EnvWrapper::EnvWrapper;
    bool SetThreadPriority(platform::ThreadHandle thread, int priority) override {
        platform::MutexLock lock(mutex);
        asked.push_back(priority);
        return EnvWrapper::SetThreadPriority(thread, priority);
    }
    platform::Mutex mutex;
    std::vector<int> asked;
};

}  // namespace

TEST_F(ArmExtractor, AsyncViewsRunOnTheirOwnTimeCriticalThreadsAndEndWithTheirResult) {
    View a(24, 12, 1, 1, 2, 3, 1), b(24, 12, 2, 1, 1, 3, 1), c(24, 12, 1, 1, 1, 3, 1);
    Write(a, 1, {eCam0}, 1, 2, 3);
    Write(b, 2, {eCam1, eCam2}, 1, 1, 3);
    auto cut = Write(c, 3, {eCam0}, 1, 1, 3);
    cut.resize(cut.size() / 2);  // its later records are missing
    Rewrite(3, cut);

    PriorityEnv env(platform::Env::Default());
    platform::ScopedEnv scope(&env);
    // One extractor shared by all three threads, as the scanner does.
    ExtractArmImageThreadParam params[3] = {{1, "D:\\in\\", "D:\\async\\", 1, &extractor},
                                            {2, "D:\\in\\", "D:\\async\\", 1, &extractor},
                                            {3, "D:\\in\\", "D:\\async\\", 1, &extractor}};
    void* threads[3] = {};
    for (int i = 0; i < 3; ++i) ArmImageExtractorPeer::AsyncExtract(extractor, threads[i], params[i]);
    unsigned long codes[3] = {9, 9, 9};
    for (int i = 0; i < 3; ++i) {
        ASSERT_NE(threads[i], nullptr);
        EXPECT_TRUE(env.WaitThread(threads[i], &codes[i]));
        env.CloseThread(threads[i]);
    }
    EXPECT_EQ(std::vector<unsigned long>(codes, codes + 3), (std::vector<unsigned long>{0, 0, 1}));
    EXPECT_EQ(env.asked, std::vector<int>(3, platform::eThreadPriorityTimeCritical));

    // The threads wrote what the same views give when extracted one by one.
    for (int view : {1, 2}) EXPECT_TRUE(extractor.ExtractView({view, "D:\\in\\", "D:\\sync\\", 1}));
    const auto tree = Tree(dir.File("D/sync"));
    std::set<std::string> async;
    for (const std::string& f : Tree(dir.File("D/async")))
        if (f.find("/3/") == std::string::npos) async.insert(f);
    EXPECT_EQ(async, tree);
    EXPECT_GE(tree.size(), 14u);
    for (const std::string& f : tree)
        EXPECT_EQ(ReadAll(dir.File("D/async/" + f)), ReadAll(dir.File("D/sync/" + f))) << f;
}
