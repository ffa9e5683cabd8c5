// Views compressed and extracted, and packages exported, on several threads:
// the same files, trees, results, log lines and failed lists as on one, from
// threads started once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "arm_test_support.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/arm/arm_image_output_mng.h"
#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/thread_pool.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::Tree;
using grabsys_test::View;

namespace {

// Counts the threads started and waited for through it.
class CountingEnv : public platform::EnvWrapper {
public:
    CountingEnv() : EnvWrapper(platform::Env::Default()), m_scope(this) {}
    platform::ThreadHandle StartThread(platform::ThreadFunc func, void* arg) override {
        ++started;
        return EnvWrapper::StartThread(func, arg);
    }
    bool WaitThread(platform::ThreadHandle thread, unsigned long* exitCode) override {
        ++waited;
        return EnvWrapper::WaitThread(thread, exitCode);
    }
    std::atomic<int> started{0}, waited{0};

private:
    platform::ScopedEnv m_scope;
};

enum class Content { kFringe, kNoise, kZero };

// cams x 1 x 2 x 3 Sin frames and one white frame per camera.
View MakeView(int cams, Content content) {
    View v(40, 24, cams, 1, 2, 3, cams, content == Content::kNoise);
    if (content == Content::kZero)
        for (auto& f : v.frames) std::memset(f->GetImg(), 0, f->GetBufferSize());
    return v;
}

std::vector<eCamIdx> Cameras(int n) {
    std::vector<eCamIdx> cams;
    for (int i = 0; i < n; ++i) cams.push_back(static_cast<eCamIdx>(i));
    return cams;
}

struct Outcome {
    eAddOneViewImageRlt result;
    std::vector<unsigned char> file;
    std::vector<std::string> lines;
    bool linesOnCaller = true;
};

// Adds one view on a manager compressing with `threads` threads; a view
// that is not written stays the caller's and is deleted here.
Outcome Add(COneViewArmImageData* data, int threads, const std::string& path, const std::string& file) {
    Outcome o;
    const std::thread::id caller = std::this_thread::get_id();
    PelvaneSpace::Logger::GetInstance()->SetSink([&](int, const std::string& text) {
        o.lines.push_back(text);
        o.linesOnCaller = o.linesOnCaller && std::this_thread::get_id() == caller;
    });
    CArmImageOutputMng mng;
    mng.SetCompressThreads(threads);
    data->SetOutputFileFullPath(path);
    o.result = mng.AddOneViewImages(data);
    PelvaneSpace::Logger::GetInstance()->SetSink(nullptr);
    if (o.result != eAddRltOk) delete data;
    o.file = ReadAll(file);
    std::remove(file.c_str());
    return o;
}

}  // namespace

TEST(ThreadPool, EveryIndexRunsOnceOnThreadsStartedOnceAndErrorsReachTheCaller) {
    CountingEnv env;
    {
        platform::ThreadPool pool(4);
        EXPECT_EQ(pool.Threads(), 4);
        for (size_t count : {size_t{0}, size_t{1}, size_t{1000}, size_t{37}}) {
            std::vector<std::atomic<int>> runs(count);
            std::atomic<bool> slotsInRange{true};
            pool.Run(count, [&](size_t i, int slot) {
                ++runs[i];
                if (slot < 0 || slot >= 4) slotsInRange = false;
            });
            for (size_t i = 0; i < count; ++i) EXPECT_EQ(runs[i], 1) << i;
            EXPECT_TRUE(slotsInRange);
        }
        std::atomic<int> after{0};
        EXPECT_THROW(pool.Run(100,
                              [&](size_t i, int) {
                                  if (i == 3) throw std::runtime_error("frame 3");
                                  std::this_thread::sleep_for(std::chrono::milliseconds(2));
                                  ++after;
                              }),
                     std::runtime_error);
        EXPECT_LT(after, 99);  // no index is handed out once one has thrown
        std::atomic<int> again{0};
        pool.Run(10, [&](size_t, int) { ++again; });
        EXPECT_EQ(again, 10);
        EXPECT_EQ(env.started, 3);
    }
    EXPECT_EQ(env.waited, 3);
    platform::ThreadPool single(1);
    EXPECT_EQ(single.Threads(), 1);
    EXPECT_EQ(env.started, 3);
}

TEST(ArmParallel, FilesResultsAndLinesAreTheSameForAnyThreadCount) {
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\out");
    const std::string path = "D:\\out\\5.armraw", file = dir.File("D/out/5.armraw");
    for (int cams : {1, 8}) {
        for (Content content : {Content::kFringe, Content::kNoise, Content::kZero}) {
            std::map<int, Outcome> by;
            for (int threads : {1, 2, 4}) {
                View v = MakeView(cams, content);
                auto* data = new COneViewArmImageData(5);
                data->SetSinImages(v.sin, Cameras(cams), 1, 2, 3);
                data->SetWhitePatternImage(v.white);
                by[threads] = Add(data, threads, path, file);
            }
            const std::string what = std::to_string(cams) + " cameras, content " + std::to_string(int(content));
            EXPECT_EQ(by[1].result, eAddRltOk) << what;
            EXPECT_GT(by[1].file.size(), 1024u) << what;
            EXPECT_EQ(by[1].lines.size(), 8u) << what;
            for (int threads : {2, 4}) {
                EXPECT_EQ(by[threads].result, by[1].result) << what << ", " << threads << " threads";
                EXPECT_TRUE(by[threads].file == by[1].file) << what << ", " << threads << " threads";
                EXPECT_EQ(by[threads].lines, by[1].lines) << what << ", " << threads << " threads";
                EXPECT_TRUE(by[threads].linesOnCaller) << what << ", " << threads << " threads";
            }
        }
    }

    // Later frames larger than the first: one whose bound no longer fits but
    // whose LZ4 block does is compressed into the block in its turn; one
    // that does not fit refuses the view. Either way as on one thread.
    auto views = [](uint32_t second, bool noise) {
        View v(1, 1, 0, 0, 0, 0, 0);
        v.frames.push_back(grabsys_test::Frame(1000, 1, 0));
        for (int i = 1; i < 6; ++i) v.frames.push_back(grabsys_test::Frame(i == 3 ? second : 1000, 1, i, noise && i == 3));
        for (auto& f : v.frames) v.white.push_back(f.get());
        return v;
    };
    for (bool noise : {false, true}) {
        std::map<int, Outcome> by;
        for (int threads : {1, 2, 4}) {
            View v = views(9000, noise);
            auto* data = new COneViewArmImageData(5);
            data->SetWhitePatternImage(v.white);
            by[threads] = Add(data, threads, path, file);
        }
        EXPECT_EQ(by[1].result, noise ? eAddRltCompressFailed : eAddRltOk);
        for (int threads : {2, 4}) {
            EXPECT_EQ(by[threads].result, by[1].result) << threads << " threads";
            EXPECT_TRUE(by[threads].file == by[1].file) << threads << " threads";
            EXPECT_EQ(by[threads].lines, by[1].lines) << threads << " threads";
        }
    }
}

TEST(ArmParallel, TreesAndFailedListsAreTheSameForAnyThreadCount) {
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\in");
    CArmImageOutputMemory block;
    std::vector<View> views;
    for (int view : {1, 2, 3, 5, 6}) {
        views.push_back(MakeView(view == 6 ? 8 : 2, view == 3 ? Content::kNoise : Content::kFringe));
        ASSERT_TRUE(grabsys_test::WriteViewFile(views.back(), view, Cameras(view == 6 ? 8 : 2), 1, 2, 3,
                                                "D:\\in\\" + std::to_string(view) + ".armraw", block));
    }
    auto cut = ReadAll(dir.File("D/in/2.armraw"));
    cut.resize(cut.size() / 2);  // its later records are missing
    grabsys_test::WriteAll(dir.File("D/in/2.armraw"), cut);

    std::map<int, std::vector<int>> failed;
    for (int threads : {1, 2, 4}) {
        ArmImageExtractor extractor;
        extractor.SetExtractThreads(threads);
        OutputOneViewArmImageParm parm;
        parm.views[0] = {6, 2, 5, 4, 1, 3};  // 4 has no file
        parm.inputDirs[0] = "D:\\in";
        parm.outputDir = "D:\\out" + std::to_string(threads);
        parm.mode = 1;
        std::vector<int> lists[1];
        ASSERT_TRUE(extractor.OutputOneViewArmImages(parm, lists, 1));
        failed[threads] = lists[0];
        EXPECT_EQ(extractor.GetCounters().extracted[0], 4u);
        EXPECT_EQ(extractor.GetCounters().failed[0], 2u);
    }
    EXPECT_EQ(failed[1], (std::vector<int>{2, 4}));
    const auto tree = Tree(dir.File("D/out1"));
    EXPECT_GE(tree.size(), 4u * 12u);
    for (int threads : {2, 4}) {
        const std::string out = "D/out" + std::to_string(threads);
        EXPECT_EQ(failed[threads], failed[1]) << threads << " threads";
        ASSERT_EQ(Tree(dir.File(out)), tree) << threads << " threads";
        for (const std::string& f : tree)
            EXPECT_TRUE(ReadAll(dir.File(out + "/" + f)) == ReadAll(dir.File("D/out1/" + f))) << f;
    }
}

TEST(ArmParallel, ImagePackageExportsTheSameTreeForAnyThreadCount) {
    TempDir dir;
    CDebugImgPackageP pkg;
    // Runs of unequal sizes put later frames partly past the data area, and
    // a run without pixels still writes its files.
    for (const CDebugImgPackageInfoP& run : {CDebugImgPackageInfoP{32, 16, 5, 0, 0}, CDebugImgPackageInfoP{48, 16, 4, 1, 2},
                                             CDebugImgPackageInfoP{0, 16, 2, 2, 0}})
        pkg.AddPackageInfo(run);
    pkg.CreatePackageBuffer();
    for (unsigned run = 0; run < 3; ++run)
        for (unsigned f = 0; f < pkg.PackageInfos[run].FrameCount; ++f) {
            auto bytes = grabsys_test::FrameBytes(pkg.PackageInfos[run].Width, pkg.PackageInfos[run].Height,
                                                  static_cast<int>(run * 10 + f));
            pkg.AddData(run, bytes.data(), f);
        }
    std::map<int, std::map<std::string, std::vector<unsigned char>>> trees;
    for (int threads : {1, 2, 4}) {
        pkg.SetExportThreads(threads);
        EXPECT_EQ(pkg.GetExportThreads(), threads);
        pkg.ExportDebugImg(static_cast<unsigned>(threads));
        for (int cam : {0, 1, 2}) {
            const std::string folder = "D/ImgTest/CamImgInput/Cam" + std::to_string(cam) + "_" + std::to_string(threads);
            for (const std::string& f : Tree(dir.File(folder)))
                trees[threads][std::to_string(cam) + "/" + f] = ReadAll(dir.File(folder + "/" + f));
        }
    }
    EXPECT_EQ(trees[1].size(), 11u);
    EXPECT_TRUE(trees[2] == trees[1]);
    EXPECT_TRUE(trees[4] == trees[1]);
}
