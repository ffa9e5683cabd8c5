#include <gtest/gtest.h>

#include <system_error>
#include <vector>

#include "grabsystem/memory/mem_block_mng.h"

using namespace GrabSystem;

namespace {

class MemBlockMng : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(mng.AssignMemBlock(region.data(), region.size())); }
    unsigned char* At(size_t offset) { return region.data() + offset; }

    std::vector<unsigned char> region = std::vector<unsigned char>(1000);
    CMemBlockMngP mng;
};

}  // namespace

TEST_F(MemBlockMng, CutsFromTheTailThenFromGapsStrictlyLarger) {
    EXPECT_EQ(mng.GetAssignedMem(), 1000u);
    EXPECT_EQ(mng.AllocMem(300), At(0));
    EXPECT_EQ(mng.AllocMem(300), At(300));
    EXPECT_EQ(mng.AllocMem(300), At(600));
    EXPECT_EQ(mng.GetRemainMem(), 100u);
    EXPECT_EQ(mng.AllocMem(200), nullptr);
    EXPECT_FALSE(mng.IsRemainMemEnough(200));
    EXPECT_TRUE(mng.IsRemainMemEnough(100));

    ASSERT_TRUE(mng.ReleaseMem(At(300)));
    EXPECT_EQ(mng.GetRemainMem(), 400u);
    EXPECT_EQ(mng.AllocMem(300), nullptr);  // the gap is exactly 300
    EXPECT_EQ(mng.AllocMem(299), At(300));
    EXPECT_EQ(mng.GetRemainMem(), 101u);
    EXPECT_EQ(mng.GetAllocedBlockCnt(), 3);

    // The pieces are now out of address order. Gaps are judged in
    // allocation order only: after the piece at 0 comes the one at 600, so
    // 300..600 counts as a gap although the piece at 300 fills most of it.
    EXPECT_EQ(mng.AllocMem(1), At(900));  // from the tail
    EXPECT_EQ(mng.AllocMem(99), At(901));
    EXPECT_EQ(mng.AllocMem(1), At(300));
    // A piece whose predecessor in the array lies behind it has no gap:
    // nothing is placed outside the region.
    EXPECT_EQ(mng.AllocMem(400), nullptr);
}

TEST_F(MemBlockMng, ReleasedTailPiecesOnlyReturnThroughGaps) {
    void* a = mng.AllocMem(400);
    void* b = mng.AllocMem(400);
    ASSERT_NE(a, nullptr);
    ASSERT_TRUE(mng.ReleaseMem(b));
    EXPECT_EQ(mng.GetRemainMem(), 600u);
    // 600 bytes are free, but the tail holds 200 and there is no gap.
    EXPECT_EQ(mng.AllocMem(300), nullptr);
    EXPECT_EQ(mng.AllocMem(200), At(800));

    EXPECT_FALSE(mng.ReleaseMem(nullptr));
    EXPECT_FALSE(mng.ReleaseMem(At(1)));  // not the start of a piece
    EXPECT_EQ(mng.GetRemainMem(), 400u);
}

TEST_F(MemBlockMng, CountsIteratesAndReallocates) {
    void* p100 = mng.AllocMem(100);
    mng.AllocMem(200);
    mng.AllocMem(300);
    mng.AllocMem(50);
    EXPECT_EQ(mng.GetAllocedBlockCnt(100, 300), 3);
    EXPECT_EQ(mng.GetAllocedBlockCnt(101, 299), 1);

    std::vector<uint64_t> sizes;
    for (CMemBlockP* b = &mng.GetFirstMemBlock(); b->address != nullptr; b = &mng.GetNextMemBlock()) {
        EXPECT_EQ(b->source, eMemSrcMng);
        EXPECT_EQ(b->manager, &mng);
        sizes.push_back(b->size);
    }
    EXPECT_EQ(sizes, (std::vector<uint64_t>{100, 200, 300, 50}));

    EXPECT_EQ(mng.ReallocMem(p100, 0), nullptr);
    EXPECT_EQ(mng.GetAllocedBlockCnt(), 4);  // p100 stays allocated
    EXPECT_EQ(mng.ReallocMem(p100, 80), At(650));  // the tail comes first
    EXPECT_EQ(mng.ReallocMem(At(999), 10), nullptr);
}

TEST_F(MemBlockMng, DischargeForgetsEverythingAndAllowsANewRegion) {
    void* p = mng.AllocMem(100);
    std::vector<unsigned char> other(10);
    EXPECT_FALSE(mng.AssignMemBlock(other.data(), other.size()));  // first region stays
    EXPECT_EQ(mng.GetAssignedMem(), 1000u);

    ASSERT_TRUE(mng.DischargeMemBlock());
    EXPECT_FALSE(mng.DischargeMemBlock());
    EXPECT_EQ(mng.AllocMem(10), nullptr);
    EXPECT_FALSE(mng.ReleaseMem(p));
    EXPECT_EQ(mng.GetAllocedBlockCnt(), 0);
    EXPECT_EQ(mng.GetFirstMemBlock().address, nullptr);

    ASSERT_TRUE(mng.AssignMemBlock(other.data(), other.size()));
    EXPECT_EQ(mng.AllocMem(10), other.data());
    EXPECT_EQ(mng.AllocMem(0), nullptr);
}

TEST_F(MemBlockMng, FlagsGateAllocation) {
    mng.EnableMemAlloc(false, false);
    EXPECT_EQ(mng.AllocMem(10), nullptr);
    mng.EnableMemAlloc(false, true);  // the gate lets it through
    EXPECT_EQ(mng.AllocMem(10), At(0));
    mng.EnableMemAlloc(true, false);
    EXPECT_THROW(mng.AllocMem(10), std::system_error);
    mng.EnableMemAlloc(true, true);
    EXPECT_EQ(mng.AllocMem(10), At(10));  // the throw released the main mutex
}

TEST(MemBlockMngUnassigned, RefusesEverything) {
    CMemBlockMngP mng;
    EXPECT_EQ(mng.AllocMem(1), nullptr);
    EXPECT_FALSE(mng.ReleaseMem(&mng));
    EXPECT_EQ(mng.GetAssignedMem(), 0u);
    EXPECT_FALSE(mng.IsRemainMemEnough(1));
    unsigned char byte = 0;
    ASSERT_TRUE(mng.AssignMemBlock(&byte, 0));
    EXPECT_EQ(mng.AllocMem(1), nullptr);  // an empty region hands out nothing
}
