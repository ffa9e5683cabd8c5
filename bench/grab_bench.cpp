// The grab path against memcpy: 2448 x 2048 8-bit frames pushed through a
// chunk pool, contiguous and with row padding. Both sides rotate through the
// same number of destination buffers so that neither gains from the cache.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/memory/chunk_pool_ctrl.h"

namespace {

constexpr size_t kWidth = 2448;
constexpr size_t kHeight = 2048;
constexpr size_t kFrame = kWidth * kHeight;
constexpr unsigned kChunks = 4;

std::vector<unsigned char> SourceFrame(size_t rowGap) {
    std::vector<unsigned char> src((kWidth + rowGap) * kHeight);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 31);
    return src;
}

void BM_Memcpy(benchmark::State& state) {
    const auto src = SourceFrame(0);
    std::vector<std::vector<unsigned char>> dst(kChunks, std::vector<unsigned char>(kFrame, 1));
    size_t i = 0;
    for (auto _ : state) {
        std::memcpy(dst[i++ % kChunks].data(), src.data(), kFrame);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame));
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMicrosecond)->UseRealTime();

// PushData then a release by serial, as a consumer would: every push finds
// a waiting chunk, which is the steady state of a pool that keeps up.
void BM_ChunkPoolPush(benchmark::State& state) {
    const size_t rowGap = static_cast<size_t>(state.range(0));
    const auto src = SourceFrame(rowGap);
    std::vector<unsigned char> region(kChunks * kFrame, 1);
    GrabSystem::CChunkPoolCtrlP pool(1, nullptr, GrabSystem::ePoolNormal);
    GrabSystem::CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(kFrame);
    pool.Add(kChunks);
    uint64_t serial = 0;
    for (auto _ : state) {
        if (!pool.PushData(const_cast<unsigned char*>(src.data()), kWidth, kHeight, rowGap)) {
            state.SkipWithError("push refused");
            break;
        }
        pool.Release(serial++);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame));
}
BENCHMARK(BM_ChunkPoolPush)->Arg(0)->Arg(64)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The camera's entry point: CImgPoolCtrlP::PushImg with a frame attribute,
// then the consumer's release. Argument 1 attaches a log manager whose sink
// counts the lines, so the cost of formatting every log line shows.
void BM_ImgPoolPush(benchmark::State& state) {
    const bool logged = state.range(0) != 0;
    const auto src = SourceFrame(0);
    std::vector<unsigned char> region(kChunks * kFrame, 1);
    long lines = 0;
    PelvaneSpace::CMsgLogMngP log([&lines](const PelvaneSpace::CMsgLogP&) { ++lines; });
    GrabSystem::CImgPoolCtrlP pool(1, logged ? &log : nullptr, GrabSystem::ePoolNormal, 8);
    GrabSystem::CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(kFrame);
    pool.Add(kChunks);
    uint64_t serial = 0;
    for (auto _ : state) {
        if (!pool.PushImg(const_cast<unsigned char*>(src.data()), kWidth, kHeight, 0, 7)) {
            state.SkipWithError("push refused");
            break;
        }
        pool.Release(serial++);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame));
    state.counters["log_lines"] = static_cast<double>(lines);
}
BENCHMARK(BM_ImgPoolPush)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
