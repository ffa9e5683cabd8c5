#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "grabsystem/pool/pool_ctrl.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::Format;

namespace {

constexpr unsigned char kPoolId = 7;

class PoolCtrl : public ::testing::Test {
protected:
    std::vector<IPoolNodeP*> PushAll(unsigned n) {
        std::vector<IPoolNodeP*> nodes;
        for (unsigned i = 0; i < n; ++i) {
            EXPECT_TRUE(pool.Push());
            nodes.push_back(pool.GetNodeWithSerial(pool.GetNextSerialNum() - 1));
        }
        return nodes;
    }
    std::vector<uint64_t> UsingSerials() {
        std::vector<uint64_t> serials;
        for (uint64_t s = 0; s < pool.GetNextSerialNum(); ++s)
            if (pool.GetNodeWithSerial(s) != nullptr) serials.push_back(s);
        return serials;
    }

    grabsys_test::FakeClock clock{1000};
    grabsys_test::LogCapture log;
    CPoolCtrlP pool{kPoolId, log.Manager()};
};

}  // namespace

TEST_F(PoolCtrl, PushesNumberFramesAndReleaseReturnsThem) {
    ASSERT_TRUE(pool.Add(3));
    EXPECT_EQ(pool.GetCount(), 3u);
    EXPECT_EQ(pool.GetWaitingCount(), 3u);
    auto nodes = PushAll(3);
    for (uint64_t s = 0; s < 3; ++s) {
        ASSERT_NE(nodes[s], nullptr);
        EXPECT_EQ(nodes[s]->GetSerialNum(), s);
        EXPECT_EQ(nodes[s]->GetState(), eNodeUsing);
        EXPECT_EQ(nodes[s]->GetPoolCtrl(), &pool);
    }
    EXPECT_EQ(pool.GetUsingCount(), 3u);
    EXPECT_EQ(pool.GetWaitingCount(), 0u);

    // Nothing is left to push: false, and not a single log line.
    log.Clear();
    EXPECT_FALSE(pool.Push());
    EXPECT_TRUE(log.Lines().empty());

    EXPECT_TRUE(pool.Release(uint64_t{1}));
    EXPECT_EQ(pool.GetNodeWithSerial(1), nullptr);
    EXPECT_EQ(nodes[1]->GetState(), eNodeWaiting);
    EXPECT_EQ(nodes[1]->GetSerialNum(), 0u);
    EXPECT_EQ(UsingSerials(), (std::vector<uint64_t>{0, 2}));

    pool.SetNextSerialNum(100);
    ASSERT_TRUE(pool.Push(nodes[1]));
    EXPECT_EQ(nodes[1]->GetSerialNum(), 100u);
    EXPECT_EQ(pool.GetNodeWithSerial(100), nodes[1]);
    EXPECT_EQ(pool.GetNextSerialNum(), 101u);
}

TEST_F(PoolCtrl, ReleasedNodesQueueAtTheWaitingTail) {
    pool.Add(3);
    auto nodes = PushAll(3);
    ASSERT_TRUE(pool.Release(nodes[2]));
    ASSERT_TRUE(pool.Release(nodes[0]));
    // The next Push() takes the node released first.
    ASSERT_TRUE(pool.Push());
    EXPECT_EQ(pool.GetNodeWithSerial(3), nodes[2]);
    ASSERT_TRUE(pool.Push());
    EXPECT_EQ(pool.GetNodeWithSerial(4), nodes[0]);
}

TEST_F(PoolCtrl, RefusesWhatIsNotItsToMove) {
    pool.Add(1);
    auto nodes = PushAll(1);
    log.Clear();
    EXPECT_FALSE(pool.Push(nodes[0]));  // already in use
    EXPECT_FALSE(pool.Push(nullptr));
    EXPECT_FALSE(pool.Release(nullptr));
    EXPECT_FALSE(pool.Delete(nullptr));
    EXPECT_FALSE(pool.Release(uint64_t{99}));
    ASSERT_TRUE(pool.Release(nodes[0]));
    EXPECT_FALSE(pool.Release(nodes[0]));  // already waiting

    // A node of another pool is never moved by this one.
    CPoolCtrlP other(8, nullptr);
    other.Add(1);
    ASSERT_TRUE(other.Push());
    IPoolNodeP* foreign = other.GetNodeWithSerial(0);
    EXPECT_FALSE(pool.Release(foreign));
    EXPECT_FALSE(pool.Delete(foreign));
    EXPECT_EQ(other.GetUsingCount(), 1u);

    const std::string addr = Format("%p", static_cast<void*>(nodes[0]));
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{
                               "7>Push " + addr + " fail",
                               "7>Del Get NULL node",
                               "7>Del Get NULL node",
                               "7>Del Get NULL node",
                               "7>Rls #99 fail",
                               "7>Releasing #0",
                               "7>Rls #0 done",
                               "7>Rls #0 fail",
                               "7>Rls #0 fail",
                               Format("7>Del %p fail", static_cast<void*>(foreign)),
                           }));
}

TEST_F(PoolCtrl, LogsEveryStepWithTagsAndPoolId) {
    pool.Add(2);
    ASSERT_TRUE(pool.Push());
    IPoolNodeP* node = pool.GetNodeWithSerial(0);
    ASSERT_TRUE(pool.Release(node));
    ASSERT_TRUE(pool.Delete(node));

    const auto lines = log.Lines();
    const std::string addr = Format("%p", static_cast<void*>(node));
    std::vector<std::pair<int, std::string>> got;
    for (const auto& line : lines) got.emplace_back(line.tag, line.text);
    ASSERT_EQ(got.size(), 9u);
    EXPECT_EQ(got[0].first, 2);
    EXPECT_EQ(got[0].second.rfind("7>Newing ", 0), 0u);
    EXPECT_EQ(got[1].first, 2);
    EXPECT_EQ(got[2], std::make_pair(1, std::string("7>Add     2/    2 Node")));
    EXPECT_EQ(got[3], std::make_pair(2, "7>Pushing " + addr));
    EXPECT_EQ(got[4], std::make_pair(1, std::string("7>Push #0 done")));
    EXPECT_EQ(got[5], std::make_pair(2, std::string("7>Releasing #0")));
    EXPECT_EQ(got[6], std::make_pair(1, std::string("7>Rls #0 done")));
    EXPECT_EQ(got[7], std::make_pair(2, "7>Deleting " + addr));
    EXPECT_EQ(got[8], std::make_pair(1, "7>Del " + addr + " done"));
    EXPECT_EQ(pool.GetCount(), 1u);
}

TEST_F(PoolCtrl, ReleaseAllAndDeleteAllKeepOrderAndCounts) {
    // Empty using list: true, two lines.
    log.Clear();
    EXPECT_TRUE(pool.ReleaseAll());
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"7>Releasing All...", "7>Rls All done"}));

    pool.Add(4);
    auto nodes = PushAll(3);
    clock.Set(5000);
    ASSERT_TRUE(pool.ReleaseAll());
    EXPECT_EQ(pool.GetUsingCount(), 0u);
    EXPECT_EQ(pool.GetWaitingCount(), 4u);
    for (IPoolNodeP* node : nodes) {
        EXPECT_EQ(node->GetState(), eNodeWaiting);
        EXPECT_EQ(node->GetSerialNum(), 0u);
        EXPECT_EQ(node->GetTimeStamp(), 1000u);  // a splice does not stamp
    }
    // The released chain follows the node that was already waiting.
    PushAll(4);
    IPoolNodeP* neverPushed = pool.GetNodeWithSerial(3);
    for (IPoolNodeP* node : nodes) EXPECT_NE(neverPushed, node);
    EXPECT_EQ(pool.GetNodeWithSerial(4), nodes[0]);
    EXPECT_EQ(pool.GetNodeWithSerial(5), nodes[1]);
    EXPECT_EQ(pool.GetNodeWithSerial(6), nodes[2]);

    // DeleteAll with nodes in use releases them, then deletes all of them.
    log.Clear();
    EXPECT_TRUE(pool.DeleteAll());
    EXPECT_EQ(pool.GetCount(), 0u);
    const auto texts = log.Texts();
    int done = 0;
    for (const auto& text : texts)
        if (text.find(" done") != std::string::npos && text.rfind("7>Del ", 0) == 0) ++done;
    EXPECT_EQ(done, 4);
    EXPECT_EQ(texts.back(), "7>Del All     4/    4 Node");
}

TEST_F(PoolCtrl, LiveFpsCountsStampsOverTheirSpan) {
    pool.Add(120);
    EXPECT_EQ(pool.GetLiveFps(), 0.0);
    clock.Set(1000);
    pool.Push();
    clock.Set(1050);
    pool.Push();
    EXPECT_EQ(pool.GetLiveFps(), 0.0);  // two stamps are not enough
    clock.Set(1100);
    pool.Push();
    EXPECT_DOUBLE_EQ(pool.GetLiveFps(), 30.0);  // 3 x 1000 / 100

    // Equal first and last stamps: 0.
    CPoolCtrlP still(1, nullptr);
    still.Add(3);
    for (int i = 0; i < 3; ++i) still.Push();
    EXPECT_EQ(still.GetLiveFps(), 0.0);

    // After 100 stamps the oldest is the one about to be overwritten: pushes
    // 10 ms apart give 100 x 1000 / 990.
    CPoolCtrlP full(2, nullptr);
    full.Add(110);
    for (uint32_t i = 0; i < 105; ++i) {
        clock.Set(10000 + 10 * i);
        full.Push();
    }
    EXPECT_DOUBLE_EQ(full.GetLiveFps(), 100000.0 / 990.0);
}

TEST_F(PoolCtrl, LiveFpsAcrossTickWrap) {
    pool.Add(3);
    clock.Set(0xFFFFFFF0u);
    pool.Push();
    clock.Set(0xFFFFFFF8u);
    pool.Push();
    clock.Set(0x10u);
    pool.Push();
    // Span 0x20 modulo 2^32, minus one.
    EXPECT_DOUBLE_EQ(pool.GetLiveFps(), 3000.0 / 31.0);
}

TEST(PoolCtrlLocking, LiveFpsIsReadUnderThePoolMutex) {
    struct OpenPool : CPoolCtrlP {
        OpenPool() : CPoolCtrlP(0, nullptr) {}
        using CPoolCtrlP::m_mutex;
    } pool;
    std::atomic<bool> read{false};
    pool.m_mutex.Lock();
    std::thread reader([&] {
        pool.GetLiveFps();
        read = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(read) << "GetLiveFps ran while another thread held the pool mutex";
    pool.m_mutex.Unlock();
    reader.join();
    EXPECT_TRUE(read);
}
