#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "grabsystem/platform/toolkit/lz4_tool.h"

using namespace DrasselSpace;

namespace {
std::vector<unsigned char> Compressed(const std::vector<unsigned char>& data) {
    std::vector<unsigned char> block(static_cast<size_t>(CLZ4CompressorP::GetCompressBound(static_cast<int>(data.size()))));
    const int n = CLZ4CompressorP::CompressRaw(data.data(), static_cast<int>(data.size()), block.data(),
                                               static_cast<int>(block.size()), 3);
    block.resize(static_cast<size_t>(n));
    return block;
}
}  // namespace

TEST(Lz4Tool, RoundTripsAndFindsTheExactDecodedSize) {
    for (size_t size : {size_t{0}, size_t{1}, size_t{15}, size_t{300}, size_t{70000}}) {
        std::vector<unsigned char> data(size);
        for (size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>((i / 7) % 5);
        const auto block = Compressed(data);
        ASSERT_FALSE(block.empty());
        EXPECT_EQ(CLZ4DecompressorP::DecodedSize(block.data(), static_cast<int>(block.size())), static_cast<long long>(size));
        unsigned char* out = nullptr;
        int length = -1;
        ASSERT_TRUE(CLZ4DecompressorP::Decompress(block.data(), static_cast<int>(block.size()), out, length));
        std::unique_ptr<unsigned char[]> owned(out);
        EXPECT_EQ(std::vector<unsigned char>(out, out + length), data);

        std::vector<unsigned char> raw(size + 1);
        if (size != 0) {
            EXPECT_EQ(CLZ4DecompressorP::DecompressRaw(block.data(), static_cast<int>(block.size()), raw.data(),
                                                       static_cast<int>(size)), static_cast<int>(size));
            EXPECT_EQ(CLZ4DecompressorP::DecompressRaw(block.data(), static_cast<int>(block.size()), raw.data(),
                                                       static_cast<int>(size) - 1), 0);  // too small: refused
        }
    }
    // Too little room to compress: 0, nothing written past the room.
    std::vector<unsigned char> noise(1000);
    for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<unsigned char>(i * 2654435761u >> 13);
    std::vector<unsigned char> tiny(101, 0xEE);
    EXPECT_EQ(CLZ4CompressorP::CompressRaw(noise.data(), 1000, tiny.data(), 100, 3), 0);
    EXPECT_EQ(tiny[100], 0xEE);
    EXPECT_EQ(CLZ4CompressorP::GetCompressBound(-1), 0);
}

TEST(Lz4Tool, DamagedBlocksAreRefusedWhereverTheyBreak) {
    std::vector<unsigned char> data(5000);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i % 97 < 50 ? 1 : i);
    const auto block = Compressed(data);
    // A cut that ends right after a run of literals is itself a valid,
    // shorter block; every other cut is refused. Either way nothing is read
    // past the cut (the sanitizer builds watch that).
    int refused = 0;
    for (size_t cut = 0; cut < block.size(); ++cut) {
        unsigned char* out = reinterpret_cast<unsigned char*>(1);
        int length = 7;
        if (CLZ4DecompressorP::Decompress(block.data(), static_cast<int>(cut), out, length)) {
            std::unique_ptr<unsigned char[]> owned(out);
            ASSERT_LT(static_cast<size_t>(length), data.size()) << cut;
            EXPECT_EQ(std::vector<unsigned char>(out, out + length),
                      std::vector<unsigned char>(data.begin(), data.begin() + length)) << cut;
        } else {
            EXPECT_EQ(out, nullptr);
            EXPECT_EQ(length, 0);
            ++refused;
        }
    }
    EXPECT_GT(refused, static_cast<int>(block.size()) / 2);
    // An offset reaching before the start of the output.
    const unsigned char badOffset[] = {0x10, 'a', 0xFF, 0x00, 0x00};
    EXPECT_EQ(CLZ4DecompressorP::DecodedSize(badOffset, sizeof badOffset), -1);
    // A literal run longer than the block.
    const unsigned char longRun[] = {0xF0, 0xFF, 0xFF, 0x10};
    EXPECT_EQ(CLZ4DecompressorP::DecodedSize(longRun, sizeof longRun), -1);
    EXPECT_EQ(CLZ4DecompressorP::DecodedSize(nullptr, 3), -1);
}

TEST(Lz4Tool, ABufferSizeBecomesTheIntCapacityACallerHandsOver) {
    // The low 32 bits, two's complement: frames of 2^31 bytes and more get
    // a capacity the decoder refuses.
    EXPECT_EQ(CLZ4DecompressorP::CapacityOf(1224u * 1024u), 1224 * 1024);
    EXPECT_EQ(CLZ4DecompressorP::CapacityOf(0x7FFFFFFFu), 0x7FFFFFFF);
    EXPECT_EQ(CLZ4DecompressorP::CapacityOf(65536ull * 32768u), INT32_MIN);
    EXPECT_EQ(CLZ4DecompressorP::CapacityOf(60000ull * 60000u), 60000ll * 60000 - (1ll << 32));
    EXPECT_EQ(CLZ4DecompressorP::CapacityOf(0xFFFFFFFFu), -1);
    EXPECT_EQ(CLZ4DecompressorP::CapacityOf(1ull << 32), 0);
    const unsigned char empty = 0;  // the block of no bytes
    unsigned char out[4] = {};
    EXPECT_EQ(CLZ4DecompressorP::DecompressRaw(&empty, 1, out, CLZ4DecompressorP::CapacityOf(0xFFFFFFFFu)), 0);
}
