#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "arm_test_support.h"
#include "grabsystem/arm/arm_image_output_mng.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::TempDir;
using grabsys_test::View;

namespace {

// A heap-allocated view of `whites` white frames, as the manager expects.
COneViewArmImageData* NewView(View& v, int viewIdx, const std::string& path) {
    auto* data = new COneViewArmImageData(viewIdx);
    data->SetWhitePatternImage(v.white);
    data->SetOutputFileFullPath(path);
    return data;
}

constexpr uint64_t kMB = 1048576;

}  // namespace

TEST(ArmOutputMng, WritesTheViewLogsEveryStageAndDestroysIt) {
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\out");
    std::vector<std::string> lines;
    PelvaneSpace::Logger::GetInstance()->SetSink([&](int kind, const std::string& text) {
        EXPECT_EQ(kind, 2);
        lines.push_back(text);
    });
    View v(64, 32, 0, 0, 0, 0, 2);
    CArmImageOutputMng mng;
    EXPECT_EQ(mng.AddOneViewImages(NewView(v, 3, "D:\\out\\3.armraw"), 0), eAddRltOk);
    PelvaneSpace::Logger::GetInstance()->SetSink(nullptr);
    EXPECT_TRUE(std::filesystem::exists(dir.File("D/out/3.armraw")));
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "ArmCost--CArmImageOutputMng::AddOneViewImages - 1(3)",
                         "ArmCost--_GetAvaliableMemory - 1(3)",
                         "ArmCost--_GetAvaliableMemory - 2(3)",
                         "ArmCost--CompressMemoryData - 1(3)",
                         "ArmCost--CompressMemoryData - 2(3)",
                         "ArmCost--COneViewArmImageData::SaveToFile - 1(3)",
                         "ArmCost--COneViewArmImageData::SaveToFile - 2(3)",
                         "ArmCost--CArmImageOutputMng::AddOneViewImages - 2(3)",
                     }));
    EXPECT_EQ(mng.AddOneViewImages(nullptr), eAddRltNoMemory);
    EXPECT_EQ(mng.GetCounters().written, 1u);
    EXPECT_EQ(mng.GetCounters().refusedNoMemory, 1u);
    EXPECT_EQ(mng.GetCounters().waits, 0u);
}

TEST(ArmOutputMng, ReusesFreeBlocksThatAreLargeEnough) {
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\out");
    // One white frame each; required = its bytes + 64.
    auto sized = [](uint64_t total) { return View(static_cast<uint32_t>(total - 64), 1, 0, 0, 0, 0, 1); };
    View v10 = sized(10 * kMB), v12 = sized(12 * kMB), v11 = sized(11 * kMB);
    CArmImageOutputMng mng;
    ASSERT_EQ(mng.AddOneViewImages(NewView(v10, 1, "D:\\out\\1.armraw")), eAddRltOk);
    ASSERT_EQ(mng.AddOneViewImages(NewView(v12, 2, "D:\\out\\2.armraw")), eAddRltOk);
    EXPECT_EQ(mng.GetMemoryPoolSize(), 2u);
    ASSERT_EQ(mng.AddOneViewImages(NewView(v11, 3, "D:\\out\\3.armraw")), eAddRltOk);
    EXPECT_EQ(mng.GetMemoryPoolSize(), 2u);  // the free 12 MB block served

    // With the 12 MB block held (a view whose second frame outgrew its
    // estimate keeps its block), an 11 MB view makes a third block.
    View outgrowing = grabsys_test::Outgrowing(static_cast<uint32_t>(11 * kMB / 2 - 64), static_cast<uint32_t>(16 * kMB));
    COneViewArmImageData* holder = NewView(outgrowing, 4, "D:\\out\\4.armraw");
    ASSERT_EQ(mng.AddOneViewImages(holder), eAddRltCompressFailed);
    EXPECT_FALSE(holder->SaveToFile());
    EXPECT_FALSE(std::filesystem::exists(dir.File("D/out/4.armraw")));
    ASSERT_EQ(mng.AddOneViewImages(NewView(v11, 5, "D:\\out\\5.armraw")), eAddRltOk);
    EXPECT_EQ(mng.GetMemoryPoolSize(), 3u);
    delete holder;
    const OutputCounters counts = mng.GetCounters();
    EXPECT_EQ(counts.written, 4u);
    EXPECT_EQ(counts.refusedCompressFailed, 1u);
    EXPECT_EQ(counts.refusedNoMemory + counts.waits + counts.saveFailed, 0u);
}

TEST(ArmOutputMng, WaitsForABlockUntilAViewLetsGo) {
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\out");
    CArmImageOutputMng mng;
    mng.SetMaxMemoryPoolDataCount(1);
    View outgrowing = grabsys_test::Outgrowing(64, 4096), fine(100, 1, 0, 0, 0, 0, 1);
    COneViewArmImageData* holder = NewView(outgrowing, 1, "D:\\out\\1.armraw");
    ASSERT_EQ(mng.AddOneViewImages(holder), eAddRltCompressFailed);

    std::atomic<bool> done{false};
    std::thread producer([&] {
        EXPECT_EQ(mng.AddOneViewImages(NewView(fine, 2, "D:\\out\\2.armraw")), eAddRltOk);
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(350));
    EXPECT_FALSE(done.load());  // the only block is held
    delete holder;              // hands it back
    producer.join();
    EXPECT_TRUE(done.load());
    EXPECT_EQ(mng.GetMemoryPoolSize(), 1u);
    EXPECT_TRUE(std::filesystem::exists(dir.File("D/out/2.armraw")));
    // One wait, at least as long as the block was held.
    const OutputCounters counts = mng.GetCounters();
    EXPECT_EQ(counts.waits, 1u);
    EXPECT_GE(counts.waitMsTotal, 300u);
    EXPECT_EQ(counts.waitMsLongest, counts.waitMsTotal);
    EXPECT_EQ(counts.written, 1u);
    mng.ResetCounters();
    EXPECT_EQ(mng.GetCounters().waitMsLongest, 0u);
}

TEST(ArmOutputMng, WorkerSavesQueuedViewsAndStopsCleanly) {
    TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\q");
    CArmImageOutputMng idle;
    idle.StopProcess();  // before any start: harmless
    idle.WaitAllTaskDone();  // nothing queued, no worker: returns at once

    CArmImageOutputMng mng;
    mng.StartProcess();
    View v(128, 16, 0, 0, 0, 0, 1);
    constexpr int kViews = 24;
    std::vector<std::unique_ptr<CArmImageOutputMemory>> blocks;
    std::thread feeder([&] {
        for (int i = 0; i < kViews; ++i) {
            blocks.emplace_back(new CArmImageOutputMemory);
            blocks.back()->AllocateMemory(4096);
            auto* data = NewView(v, i, "D:\\q\\" + std::to_string(i) + ".armraw");
            ASSERT_TRUE(data->SetAvaliableMemory(blocks.back().get()));
            ASSERT_TRUE(data->CompressMemoryData());
            mng._AddDataToOutputFileQueue(data);
        }
    });
    feeder.join();
    mng.WaitAllTaskDone();
    // WaitAllTaskDone may return between a pop and the busy flag; the
    // worker finishes that view before StopProcess returns.
    mng.StopProcess();
    mng.StopProcess();
    EXPECT_EQ(mng.GetQueuedCount(), 0u);
    EXPECT_EQ(mng.GetCounters().writtenByWorker, static_cast<uint64_t>(kViews));
    EXPECT_EQ(mng.GetCounters().written, 0u);  // AddOneViewImages wrote none
    for (int i = 0; i < kViews; ++i) {
        EXPECT_TRUE(std::filesystem::exists(dir.File("D/q/" + std::to_string(i) + ".armraw"))) << i;
        EXPECT_FALSE(blocks[static_cast<size_t>(i)]->GetUsingStatus()) << i;
    }
}
