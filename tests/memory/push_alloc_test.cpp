// The grab path must not touch the heap per frame: this executable replaces
// the global allocator with one that counts, and pushes frames through a
// chunk pool and an image pool with no log manager attached.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/memory/chunk_pool_ctrl.h"

// The replacements below pair malloc with free throughout; GCC, inlining
// them, takes free() of what operator new returned for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {
std::atomic<long> g_allocations{0};

void* Counted(size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
}  // namespace

void* operator new(size_t size) { return Counted(size); }
void* operator new[](size_t size) { return Counted(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

using namespace GrabSystem;

TEST(PushAllocation, GrabPathDoesNotAllocate) {
    constexpr size_t kRow = 640, kRows = 480, kGap = 32;
    std::vector<unsigned char> region(4 * kRow * kRows);
    std::vector<unsigned char> src((kRow + kGap) * kRows, 9);
    for (PoolMode mode : {ePoolNormal, ePoolRing}) {
        CChunkPoolCtrlP pool(1, nullptr, mode);
        CMemBlockP block(region.data(), region.size());
        ASSERT_TRUE(pool.AssignMemoryBlock(block));
        pool.SetDefaultMemSize(kRow * kRows);
        ASSERT_TRUE(pool.Add(4));

        const long before = g_allocations.load();
        for (uint64_t i = 0; i < 50; ++i) {
            // Padded and contiguous frames; in ring mode the pool runs full
            // and rings; in normal mode the consumer keeps up.
            ASSERT_TRUE(pool.PushData(src.data(), kRow, kRows, i % 2 ? kGap : 0));
            ASSERT_NE(pool.GetNodeWithSerial(i), nullptr);
            if (mode == ePoolNormal) {
                ASSERT_TRUE(pool.Release(i));
            }
        }
        EXPECT_FALSE(pool.PushData(src.data(), kRow, kRows + 1, 0));
        pool.GetLiveFps();
        EXPECT_EQ(g_allocations.load() - before, 0) << "heap allocations on the grab path";

        // The counter does see the library's allocations.
        const long beforeAdd = g_allocations.load();
        pool.Add(1);
        EXPECT_GT(g_allocations.load() - beforeAdd, 0);
        pool.DeleteAll();
        pool.DischargeMemoryBlock();
    }
}

TEST(PushAllocation, ImagePoolPathDoesNotAllocate) {
    constexpr size_t kRow = 320, kRows = 240;
    std::vector<unsigned char> region(3 * kRow * kRows);
    std::vector<unsigned char> src(kRow * kRows, 4);
    CImgPoolCtrlP pool(2, nullptr, ePoolRing, 8);
    CMemBlockP block(region.data(), region.size());
    ASSERT_TRUE(pool.AssignMemoryBlock(block));
    pool.SetDefaultMemSize(kRow * kRows);
    pool.SetImgDefaultConfig(eCam1, VormexDataStructure::eMemModeFixed,
                             VormexDataStructure::ImgSize(kRow, kRows, 1, 8), VormexDataStructure::ImgRes());
    ASSERT_TRUE(pool.Add(3));

    const long before = g_allocations.load();
    for (uint64_t i = 0; i < 30; ++i) {
        ASSERT_TRUE(pool.PushImg(src.data(), kRow, kRows, 0, static_cast<unsigned>(i)));
        IImgP* img = pool.GetImg(i);
        ASSERT_NE(img, nullptr);
        if (i % 2 == 0) {
            img->SetToUsing();
            img->ReleaseUsingStatus();
        }
    }
    EXPECT_EQ(g_allocations.load() - before, 0) << "heap allocations on the image grab path";
    pool.DeleteAll();
}
