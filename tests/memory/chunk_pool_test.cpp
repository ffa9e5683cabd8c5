#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "grabsystem/memory/chunk_pool_ctrl.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::Format;

namespace {

class ChunkPool : public ::testing::TestWithParam<PoolMode> {
protected:
    void Make(PoolMode mode, size_t chunkSize, unsigned count, size_t regionSize = 1 << 16) {
        region.assign(regionSize, 0);
        pool.reset(new CChunkPoolCtrlP(3, log.Manager(), mode));
        CMemBlockP block(region.data(), region.size());
        ASSERT_TRUE(pool->AssignMemoryBlock(block));
        pool->SetDefaultMemSize(chunkSize);
        ASSERT_TRUE(pool->Add(count));
    }
    std::vector<unsigned char> Frame(size_t size, unsigned char seed) {
        std::vector<unsigned char> frame(size);
        std::iota(frame.begin(), frame.end(), seed);
        return frame;
    }
    const unsigned char* DataOf(uint64_t serial) {
        IPoolNodeP* node = pool->GetNodeWithSerial(serial);
        return node ? static_cast<unsigned char*>(static_cast<IChunkDataP*>(node)->GetData()) : nullptr;
    }

    grabsys_test::FakeClock clock{1000};
    grabsys_test::LogCapture log;
    std::vector<unsigned char> region;
    std::unique_ptr<CChunkPoolCtrlP> pool;
};

}  // namespace

TEST_F(ChunkPool, ChunksAreCarvedFromTheRegionAndGivenBack) {
    Make(ePoolNormal, 1024, 4, 5000);
    EXPECT_EQ(pool->GetAssignedMemSize(), 5000u);
    EXPECT_EQ(pool->GetUsingMemSize(), 4096u);
    EXPECT_EQ(pool->GetRemainMemSize(), 904u);
    // A fifth chunk finds no memory but still joins the pool, empty.
    ASSERT_TRUE(pool->Add(1));
    EXPECT_EQ(pool->GetCount(), 5u);
    EXPECT_EQ(pool->GetUsingMemSize(), 4096u);
    pool->DeleteAll();
    EXPECT_EQ(pool->GetUsingMemSize(), 0u);
    EXPECT_TRUE(pool->DischargeMemoryBlock());
    EXPECT_FALSE(pool->DischargeMemoryBlock());
}

TEST_F(ChunkPool, NormalModeDropsWhenFullAndKeepsTheOldest) {
    Make(ePoolNormal, 1024, 2);
    auto a = Frame(1024, 1), b = Frame(1024, 2), c = Frame(1024, 3);
    ASSERT_TRUE(pool->PushData(a.data(), 32, 32, 0));
    ASSERT_TRUE(pool->PushData(b.data(), 32, 32, 0));
    log.Clear();
    EXPECT_FALSE(pool->PushData(c.data(), 32, 32, 0));
    EXPECT_EQ(log.Texts().back(), "3>PushData 1.00 KB fail");
    EXPECT_EQ(DataOf(0)[0], 1);
    EXPECT_EQ(DataOf(1)[0], 2);
    EXPECT_EQ(pool->GetNextSerialNum(), 2u);

    // Too large for every chunk: 32 x 33 = 1056 bytes.
    pool->ReleaseAll();
    log.Clear();
    EXPECT_FALSE(pool->PushData(c.data(), 32, 33, 0));
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"3>Find no chunk > 1.03 KB", "3>PushData 1.03 KB fail"}));

    // A frame of 0 bytes takes the first waiting chunk.
    EXPECT_TRUE(pool->PushData(c.data(), 0, 7, 0));
    EXPECT_EQ(pool->GetUsingCount(), 1u);

    // The counters tell each of those frames' stories.
    PoolCounters counts = pool->GetCounters();
    EXPECT_EQ(counts.pushed, 3u);
    EXPECT_EQ(counts.refusedNoFreeNode, 1u);  // the pool was full
    EXPECT_EQ(counts.refusedTooLarge, 1u);    // 1056 bytes fit no chunk
    EXPECT_EQ(counts.overwritten, 0u);
    EXPECT_EQ(counts.released, 2u);
    EXPECT_EQ(counts.maxInUse, 2u);
    EXPECT_EQ(counts.bytesCopied, 2048u);
    EXPECT_FALSE(pool->Release(uint64_t{77}));  // not in use: no release counted
    pool->ResetCounters();
    counts = pool->GetCounters();
    EXPECT_EQ(counts.pushed + counts.released + counts.bytesCopied + counts.refusedNoFreeNode, 0u);
    EXPECT_EQ(counts.maxInUse, 1u);  // the one still in use
}

TEST_F(ChunkPool, RingModeOverwritesTheOldestWithoutFeedingTheMeter) {
    Make(ePoolRing, 1024, 3);
    std::vector<std::vector<unsigned char>> frames;
    for (unsigned char i = 0; i < 4; ++i) frames.push_back(Frame(1024, static_cast<unsigned char>(10 * i)));
    for (int i = 0; i < 3; ++i) {
        clock.Set(1000 + 10 * i);
        ASSERT_TRUE(pool->PushData(frames[i].data(), 1024, 1, 0));
    }
    const double fps = pool->GetLiveFps();
    EXPECT_DOUBLE_EQ(fps, 3000.0 / 20.0);
    IPoolNodeP* oldest = pool->GetNodeWithSerial(0);

    clock.Set(2000);
    log.Clear();
    ASSERT_TRUE(pool->PushData(frames[3].data(), 1024, 1, 0));
    EXPECT_EQ(pool->GetNodeWithSerial(0), nullptr);
    EXPECT_EQ(pool->GetNodeWithSerial(3), oldest);
    EXPECT_EQ(oldest->GetTimeStamp(), 2000u);
    EXPECT_EQ(DataOf(3)[0], 30);
    EXPECT_EQ(pool->GetLiveFps(), fps);
    const std::string addr = Format("%p", static_cast<void*>(oldest));
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"3>Find no chunk > 1.00 KB", "3>Pushing -> " + addr,
                                                     "3>Ringing " + addr, "3>PushData 1.00 KB done"}));
    // Serials 1, 2, 3 in the using list, oldest first: releasing them in
    // order empties it.
    for (uint64_t s = 1; s <= 3; ++s) EXPECT_TRUE(pool->Release(s));
    EXPECT_EQ(pool->GetUsingCount(), 0u);
    const PoolCounters counts = pool->GetCounters();
    EXPECT_EQ(counts.pushed, 3u);
    EXPECT_EQ(counts.overwritten, 1u);
    EXPECT_EQ(counts.released, 3u);
    EXPECT_EQ(counts.maxInUse, 3u);
    EXPECT_EQ(counts.bytesCopied, 4u * 1024u);
}

TEST_F(ChunkPool, RingModeSkipsChunksTooSmallAndFailsWhenNoneFits) {
    Make(ePoolRing, 512, 1);
    pool->SetDefaultMemSize(1024);
    pool->Add(1);
    auto big = Frame(1024, 0), small = Frame(512, 0);
    ASSERT_TRUE(pool->PushData(small.data(), 512, 1, 0));  // first fit: the 512 chunk
    ASSERT_TRUE(pool->PushData(big.data(), 1024, 1, 0));
    // No waiting chunk: the oldest one in use that is large enough is the
    // 1024 chunk, although the 512 chunk is older.
    ASSERT_TRUE(pool->PushData(big.data(), 1024, 1, 0));
    EXPECT_NE(pool->GetNodeWithSerial(0), nullptr);
    EXPECT_EQ(pool->GetNodeWithSerial(1), nullptr);
    auto huge = Frame(2048, 0);
    EXPECT_FALSE(pool->PushData(huge.data(), 2048, 1, 0));
    EXPECT_EQ(pool->GetCounters().refusedTooLarge, 1u);
    EXPECT_EQ(pool->GetCounters().refusedNoFreeNode, 0u);
}

TEST_F(ChunkPool, PaddedRowsArrivePacked) {
    Make(ePoolNormal, 12, 1);
    auto src = Frame(18, 0);
    ASSERT_TRUE(pool->PushData(src.data(), 4, 3, 2));
    const unsigned char* data = DataOf(0);
    EXPECT_EQ(std::vector<unsigned char>(data, data + 12),
              (std::vector<unsigned char>{0, 1, 2, 3, 6, 7, 8, 9, 12, 13, 14, 15}));
}

TEST_F(ChunkPool, LogsMemoryOperations) {
    region.assign(3 * 1048576, 0);
    CChunkPoolCtrlP p(4, log.Manager(), ePoolNormal);
    CMemBlockP block(region.data(), region.size());
    ASSERT_TRUE(p.AssignMemoryBlock(block));
    EXPECT_FALSE(p.AssignMemoryBlock(block));
    p.SetDefaultMemSize(1536);
    p.Add(1);
    const auto texts = log.Texts();
    ASSERT_EQ(texts.size(), 5u);
    EXPECT_EQ(texts[0], "4>Asn Mem 3.00 MB done");
    EXPECT_EQ(texts[1], "4>Asn Mem 3.00 MB fail");
    EXPECT_EQ(texts[2].rfind("4>Newing ", 0), 0u);
    EXPECT_EQ(texts[3], "4>Assign 1.50 KB");
    EXPECT_EQ(texts[4], "4>Add     1/    1 Node");
    p.DeleteAll();
    EXPECT_TRUE(p.DischargeMemoryBlock());
    EXPECT_EQ(log.Texts().back(), "4>Discharge Mem done");
}
