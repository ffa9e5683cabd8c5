#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "grabsystem/memory/chunk_data.h"
#include "grabsystem/memory/mem_block_mng.h"
#include "grabsystem/platform/device/device_manager.h"

using namespace GrabSystem;

TEST(ChunkData, AssignedBufferIsUsedButNeverReallocated) {
    IChunkDataP chunk;
    EXPECT_EQ(chunk.GetMemSource(), eMemSrcNew);
    EXPECT_EQ(chunk.GetData(), nullptr);
    std::vector<unsigned char> buffer(100);
    EXPECT_FALSE(chunk.SetMemSource(eMemSrcAssign, buffer.data(), 0));
    EXPECT_FALSE(chunk.SetMemSource(eMemSrcAssign, nullptr, 100));
    EXPECT_FALSE(chunk.SetMemSource(eMemSrcMng, nullptr, 0));
    EXPECT_FALSE(chunk.SetMemSource(static_cast<eMemBlockSource>(7), buffer.data(), 1));
    EXPECT_EQ(chunk.GetMemSource(), eMemSrcNew);

    ASSERT_TRUE(chunk.SetMemSource(eMemSrcAssign, buffer.data(), 100));
    EXPECT_EQ(chunk.GetMemSize(), 100u);
    EXPECT_EQ(chunk.GetData(), buffer.data());
    // The release that comes first sets the recorded size to 0.
    EXPECT_FALSE(chunk.AllocMemory(50, false));
    EXPECT_EQ(chunk.GetMemSize(), 0u);

    // Back to the heap: the caller's buffer is forgotten, never freed.
    ASSERT_TRUE(chunk.SetMemSource(eMemSrcNew, nullptr, 0));
    EXPECT_EQ(chunk.GetData(), nullptr);
    ASSERT_TRUE(chunk.AllocMemory(64, false));
    EXPECT_NE(chunk.GetData(), buffer.data());
    EXPECT_TRUE(chunk.AllocMemory(0, false));
    EXPECT_EQ(chunk.GetMemSize(), 0u);
}

TEST(ChunkData, PushDataDropsRowPaddingAndNeverOverflows) {
    std::vector<unsigned char> src(18);
    std::iota(src.begin(), src.end(), 0);
    IChunkDataP chunk;
    ASSERT_TRUE(chunk.AllocMemory(12, false));
    ASSERT_TRUE(chunk.PushData(src.data(), 4, 3, 2));
    const auto* data = static_cast<unsigned char*>(chunk.GetData());
    EXPECT_EQ(std::vector<unsigned char>(data, data + 12),
              (std::vector<unsigned char>{0, 1, 2, 3, 6, 7, 8, 9, 12, 13, 14, 15}));

    ASSERT_TRUE(chunk.PushData(src.data() + 6, 4, 3, 0));
    EXPECT_EQ(data[0], 6);
    EXPECT_EQ(data[11], 17);

    IChunkDataP small;
    ASSERT_TRUE(small.AllocMemory(11, false));
    EXPECT_FALSE(small.PushData(src.data(), 4, 3, 0));
    EXPECT_FALSE(small.PushData(src.data(), SIZE_MAX / 2, 3, 0));  // wraps to more than 11
    EXPECT_FALSE(small.PushData(nullptr, 1, 1, 0));
    EXPECT_TRUE(small.PushData(nullptr, 0, 5, 0));  // nothing to copy
    // Without padding the wrapped product is what is copied (here nothing);
    // row by row the true product would be, so there it is refused.
    const size_t half = size_t{1} << (sizeof(size_t) * 8 - 1);
    EXPECT_TRUE(small.PushData(src.data(), half, 2, 0));
    EXPECT_FALSE(small.PushData(src.data(), half, 2, 1));
}

TEST(ChunkData, LargePaddedFramesCopyExactlyWhateverTheirAlignment) {
    // Frames this large bypass the caches on the way in; rows of odd length
    // into a destination off any 16-byte boundary exercise every edge.
    const size_t rowBytes = 2449, rows = 1800, gap = 61;
    std::vector<unsigned char> src((rowBytes + gap) * rows);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 131 + i / 7);
    std::vector<unsigned char> want;
    for (size_t r = 0; r < rows; ++r)
        want.insert(want.end(), src.begin() + r * (rowBytes + gap), src.begin() + r * (rowBytes + gap) + rowBytes);
    std::vector<unsigned char> buffer(want.size() + 16, 0xEE);
    for (size_t offset : {0, 3, 8}) {
        std::fill(buffer.begin(), buffer.end(), 0xEE);
        IChunkDataP chunk;
        ASSERT_TRUE(chunk.SetMemSource(eMemSrcAssign, buffer.data() + offset, want.size()));
        ASSERT_TRUE(chunk.PushData(src.data(), rowBytes, rows, gap));
        EXPECT_TRUE(std::equal(want.begin(), want.end(), buffer.begin() + offset)) << "offset " << offset;
        EXPECT_EQ(buffer[offset + want.size()], 0xEE) << "wrote past the frame";
        if (offset != 0) {
            EXPECT_EQ(buffer[offset - 1], 0xEE) << "wrote before the frame";
        }
    }
}

TEST(ChunkData, ManagerChunksReturnTheirPiece) {
    std::vector<unsigned char> region(256);
    CMemBlockMngP mng, other;
    mng.AssignMemBlock(region.data(), region.size());
    IChunkDataP chunk;
    ASSERT_TRUE(chunk.SetMemSource(eMemSrcMng, &other, 0));
    // Holding no piece, it has nothing the manager would take back (a null
    // address is refused), yet it may still move to another manager.
    EXPECT_FALSE(chunk.ReleaseMemory());
    ASSERT_TRUE(chunk.SetMemSource(eMemSrcMng, &mng, 0));
    EXPECT_EQ(chunk.GetMemSize(), 0u);  // nothing taken yet
    ASSERT_TRUE(chunk.AllocMemory(100, false));
    EXPECT_EQ(chunk.GetData(), region.data());
    EXPECT_EQ(mng.GetRemainMem(), 156u);
    ASSERT_TRUE(chunk.AllocMemory(50, false));  // releases the 100 first
    EXPECT_EQ(mng.GetRemainMem(), 206u);
    EXPECT_FALSE(chunk.AllocMemory(300, false));
    EXPECT_EQ(chunk.GetMemSize(), 0u);

    ASSERT_TRUE(chunk.AllocMemory(40, false));
    void* piece = chunk.GetData();
    mng.DischargeMemBlock();
    EXPECT_FALSE(chunk.ReleaseMemory());
    EXPECT_EQ(chunk.GetData(), piece);  // kept: the manager refused it
    // The move to the heap happens all the same, forgetting the piece, which
    // the heap source would otherwise free.
    ASSERT_TRUE(chunk.SetMemSource(eMemSrcNew, nullptr, 0));
    EXPECT_EQ(chunk.GetData(), nullptr);
    EXPECT_EQ(chunk.GetMemSource(), eMemSrcNew);
    // Staying on the heap keeps the heap's own memory (forgetting it would
    // leak it; the sanitizer build catches that).
    ASSERT_TRUE(chunk.AllocMemory(24, false));
    void* heap = chunk.GetData();
    ASSERT_TRUE(chunk.SetMemSource(eMemSrcNew, nullptr, 0));
    EXPECT_EQ(chunk.GetData(), heap);
    EXPECT_EQ(chunk.GetMemSize(), 24u);
}

TEST(ChunkData, DeviceBufferBecomesTheDataAddress) {
    IChunkDataP src, dst;
    ASSERT_TRUE(src.AllocMemory(32, true));
    void* device = src.GetData();
    // Page-aligned whatever backs it; a GPU address only where CUDA does.
    EXPECT_EQ(reinterpret_cast<uintptr_t>(device) % 4096, 0u);
    EXPECT_EQ(src.GetDevicePointer() != nullptr, Zentrik::CDeviceManager::IsCudaBacked());
    EXPECT_NE(Zentrik::CDeviceManager::Describe().find(Zentrik::CDeviceManager::IsCudaBacked() ? "CUDA" : "host memory"),
              std::string::npos);
    EXPECT_EQ(dst.GetDevicePointer(), nullptr);  // no device buffer
    std::fill_n(static_cast<unsigned char*>(device), 32, 0xAB);
    // PushData writes the host block, not the device buffer.
    std::vector<unsigned char> frame(32, 1);
    ASSERT_TRUE(src.PushData(frame.data(), 32, 1, 0));
    EXPECT_EQ(static_cast<unsigned char*>(src.GetData())[0], 0xAB);

    ASSERT_TRUE(dst.DuplicateFromChunk(src));
    EXPECT_EQ(dst.GetMemSize(), 32u);
    EXPECT_EQ(static_cast<unsigned char*>(dst.GetData())[31], 0xAB);
    ASSERT_TRUE(src.ReleaseMemory());
    EXPECT_EQ(src.GetData(), nullptr);

    // A caller's buffer cannot be re-allocated (its release sets the size
    // to 0): the duplicate is true and copies as far as the chunk reaches,
    // which is nothing, instead of overflowing the buffer.
    std::vector<unsigned char> tiny(8, 7);
    IChunkDataP fixed;
    fixed.SetMemSource(eMemSrcAssign, tiny.data(), tiny.size());
    EXPECT_TRUE(fixed.DuplicateFromChunk(dst));
    EXPECT_EQ(fixed.GetMemSize(), 0u);
    EXPECT_EQ(tiny, std::vector<unsigned char>(8, 7));
}
