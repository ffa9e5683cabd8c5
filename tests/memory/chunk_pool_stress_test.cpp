// Producers and consumers on one chunk pool, in both modes. After every
// round the threads are joined and the pool's invariants are checked: every
// node in exactly one list, the population constant, serials strictly
// increasing along the using list, the memory accounting intact.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "grabsystem/memory/chunk_pool_ctrl.h"

using namespace GrabSystem;

namespace {

constexpr unsigned kChunks = 6;
constexpr size_t kFrame = 4096;

// Walks both lists under the pool mutex.
class Inspectable : public CChunkPoolCtrlP {
public:
    using CChunkPoolCtrlP::CChunkPoolCtrlP;
    void Check(std::set<IPoolNodeP*>& seen) {
        platform::MutexLock lock(m_mutex);
        uint64_t lastSerial = 0;
        bool first = true;
        for (IPoolNodeP* n = _UsingBegin()->NextNode(); n != _UsingEnd(); n = n->NextNode()) {
            ASSERT_NE(n, nullptr);
            EXPECT_EQ(n->GetState(), eNodeUsing);
            if (!first) {
                EXPECT_GT(n->GetSerialNum(), lastSerial);
            }
            lastSerial = n->GetSerialNum();
            first = false;
            EXPECT_TRUE(seen.insert(n).second) << "node in two places";
            EXPECT_EQ(n->NextNode()->LastNode(), n);
        }
        for (IPoolNodeP* n = _WaitingBegin()->NextNode(); n != _WaitingEnd(); n = n->NextNode()) {
            ASSERT_NE(n, nullptr);
            EXPECT_EQ(n->GetState(), eNodeWaiting);
            EXPECT_EQ(n->GetSerialNum(), 0u);
            EXPECT_TRUE(seen.insert(n).second) << "node in two places";
        }
    }
};

void RunRounds(PoolMode mode) {
    std::vector<unsigned char> region(kChunks * kFrame);
    Inspectable pool(1, nullptr, mode);
    CMemBlockP block(region.data(), region.size());
    ASSERT_TRUE(pool.AssignMemoryBlock(block));
    pool.SetDefaultMemSize(kFrame);
    ASSERT_TRUE(pool.Add(kChunks));

    std::vector<unsigned char> src(kFrame + 64 * 8);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 7);

    std::set<IPoolNodeP*> population;
    pool.Check(population);
    ASSERT_EQ(population.size(), kChunks);

    for (int round = 0; round < 40; ++round) {
        std::atomic<bool> producing{true};
        std::vector<std::thread> threads;
        for (int p = 0; p < 2; ++p) {
            threads.emplace_back([&, p] {
                for (int i = 0; i < 3000; ++i) {
                    if (p == 0)
                        pool.PushData(src.data(), kFrame, 1, 0);
                    else
                        pool.PushData(src.data(), 512, 8, 64);
                }
            });
        }
        std::atomic<uint64_t> consumed{0};
        for (int c = 0; c < 2; ++c) {
            threads.emplace_back([&, c] {
                uint64_t want = static_cast<uint64_t>(c);
                while (producing.load() || pool.GetUsingCount() > 0) {
                    const uint64_t next = pool.GetNextSerialNum();
                    if (want >= next) {
                        if (!producing.load()) {
                            pool.ReleaseAll();
                            break;
                        }
                        std::this_thread::yield();
                        continue;
                    }
                    if (mode == ePoolNormal) {
                        // Only consumers release in normal mode, so a found
                        // node is ours until released.
                        if (IPoolNodeP* node = pool.GetNodeWithSerial(want)) {
                            const auto* data = static_cast<unsigned char*>(static_cast<IChunkDataP*>(node)->GetData());
                            EXPECT_EQ(data[1], 7);
                            if (pool.Release(node)) consumed++;
                        }
                    } else if (pool.Release(want)) {
                        consumed++;
                    }
                    want += 2;
                }
            });
        }
        threads[0].join();
        threads[1].join();
        producing = false;
        threads[2].join();
        threads[3].join();

        std::set<IPoolNodeP*> seen;
        pool.Check(seen);
        EXPECT_EQ(seen, population);
        // Every serial went to a push into a free chunk or to a ring
        // overwrite, and every chunk in use was pushed and not yet released.
        const PoolCounters counts = pool.GetCounters();
        EXPECT_EQ(counts.pushed + counts.overwritten, pool.GetNextSerialNum()) << "round " << round;
        EXPECT_EQ(counts.pushed - counts.released, pool.GetUsingCount()) << "round " << round;
        EXPECT_LE(counts.maxInUse, kChunks);
        if (mode == ePoolNormal) {
            EXPECT_EQ(counts.overwritten, 0u);
        }
        EXPECT_EQ(pool.GetCount(), kChunks);
        EXPECT_EQ(pool.GetUsingMemSize(), kChunks * kFrame);
        if (::testing::Test::HasFailure()) return;
    }
}

}  // namespace

TEST(ChunkPoolStress, NormalModeKeepsInvariants) { RunRounds(ePoolNormal); }

TEST(ChunkPoolStress, RingModeKeepsInvariants) { RunRounds(ePoolRing); }
