// What a device chunk gains on a GPU machine: a 2448 x 2048 frame uploaded
// from a chunk's page-locked, device-mapped buffer against the same upload
// from ordinary pageable memory, a kernel that reads the chunk in place
// through its device pointer, and frames pushed through an image pool to a
// kernel both ways: duplicated into a device chunk and read in place, or
// copied explicitly from the pool's pageable image into GPU memory.
//
// Every figure waits for the GPU (cuCtxSynchronize) before the clock stops.
// Without a CUDA driver and a GPU the program says so in one line and exits
// 0, so that make bench runs everywhere.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <numeric>
#include <vector>

#include "frame_read_ptx.h"
#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/memory/chunk_data.h"
#include "grabsystem/platform/device/cuda_driver.h"
#include "grabsystem/platform/device/device_manager.h"

namespace {

namespace cuda = Zentrik::cuda;
using GrabSystem::IChunkDataP;

constexpr size_t kWidth = 2448;
constexpr size_t kHeight = 2048;
constexpr size_t kFrame = kWidth * kHeight;
constexpr unsigned kPoolImages = 4;
// Enough threads to keep every load of the bus in flight on a large GPU;
// the kernel's warp reduction needs whole warps.
constexpr unsigned kBlocks = 1024;
constexpr unsigned kThreads = 256;

// The driver with the frame-reading kernel, set up once in main.
struct Gpu {
    const cuda::Driver* cu = nullptr;
    cuda::CUmodule module = nullptr;
    cuda::CUfunction read = nullptr;
    cuda::CUdeviceptr sum = 0;
};
Gpu g_gpu;

cuda::CUdeviceptr Address(void* device) { return static_cast<cuda::CUdeviceptr>(reinterpret_cast<uintptr_t>(device)); }

std::vector<unsigned char> CameraFrame() {
    std::vector<unsigned char> frame(kFrame);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<unsigned char>(i * 31 + (i >> 11));
    return frame;
}

unsigned long long HostSum(const unsigned char* bytes, size_t count) {
    return std::accumulate(bytes, bytes + count, 0ULL);
}

// Starts the kernel over `count` bytes at `address`; its sum accumulates.
bool LaunchRead(cuda::CUdeviceptr address) {
    unsigned long long count = kFrame;
    void* params[] = {&address, &count, &g_gpu.sum};
    return g_gpu.cu->cuLaunchKernel(g_gpu.read, kBlocks, 1, 1, kThreads, 1, 1, 0, nullptr, params, nullptr) ==
           cuda::kSuccess;
}

// The kernel's sum of the frame at `address`: proves, before a benchmark
// times anything, that the GPU reads the bytes the host put there.
bool GpuReadsFrame(benchmark::State& state, cuda::CUdeviceptr address, const unsigned char* expected) {
    const cuda::Driver& cu = *g_gpu.cu;
    unsigned long long sum = 0;
    const bool ran = cu.cuMemsetD8(g_gpu.sum, 0, sizeof sum) == cuda::kSuccess && LaunchRead(address) &&
                     cu.cuCtxSynchronize() == cuda::kSuccess &&
                     cu.cuMemcpyDtoH(&sum, g_gpu.sum, sizeof sum) == cuda::kSuccess;
    if (!ran) {
        state.SkipWithError("the kernel did not run");
        return false;
    }
    if (sum != HostSum(expected, kFrame)) {
        state.SkipWithError("the GPU read other bytes than the host wrote");
        return false;
    }
    return true;
}

// GPU memory for one frame, freed with the benchmark.
class DeviceFrame {
public:
    DeviceFrame() { m_ok = g_gpu.cu->cuMemAlloc(&m_address, kFrame) == cuda::kSuccess; }
    ~DeviceFrame() {
        if (m_ok) g_gpu.cu->cuMemFree(m_address);
    }
    DeviceFrame(const DeviceFrame&) = delete;
    DeviceFrame& operator=(const DeviceFrame&) = delete;
    bool ok() const { return m_ok; }
    cuda::CUdeviceptr address() const { return m_address; }

private:
    cuda::CUdeviceptr m_address = 0;
    bool m_ok = false;
};

// A chunk with a device buffer holding `frame`; null (with the benchmark
// skipped) when CUDA does not back it.
std::unique_ptr<IChunkDataP> DeviceChunk(benchmark::State& state, const std::vector<unsigned char>& frame) {
    auto chunk = std::make_unique<IChunkDataP>();
    if (!chunk->AllocMemory(kFrame, true) || chunk->GetDevicePointer() == nullptr) {
        state.SkipWithError("no device-mapped buffer for the chunk");
        return nullptr;
    }
    std::copy(frame.begin(), frame.end(), static_cast<unsigned char*>(chunk->GetData()));
    return chunk;
}

void Upload(benchmark::State& state, const void* host) {
    const cuda::Driver& cu = *g_gpu.cu;
    cu.MakeCurrent();
    DeviceFrame device;
    if (!device.ok()) return state.SkipWithError("cuMemAlloc failed");
    for (auto _ : state) {
        if (cu.cuMemcpyHtoD(device.address(), host, kFrame) != cuda::kSuccess ||
            cu.cuCtxSynchronize() != cuda::kSuccess)
            return state.SkipWithError("cuMemcpyHtoD failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame));
}

void BM_UploadPageable(benchmark::State& state) {
    const auto frame = CameraFrame();
    Upload(state, frame.data());
}
BENCHMARK(BM_UploadPageable)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_UploadDeviceChunk(benchmark::State& state) {
    auto chunk = DeviceChunk(state, CameraFrame());
    if (chunk != nullptr) Upload(state, chunk->GetData());
}
BENCHMARK(BM_UploadDeviceChunk)->Unit(benchmark::kMicrosecond)->UseRealTime();

// No upload at all: the kernel's loads cross the bus as it reads.
void BM_KernelReadDeviceChunk(benchmark::State& state) {
    const auto frame = CameraFrame();
    auto chunk = DeviceChunk(state, frame);
    if (chunk == nullptr) return;
    const cuda::Driver& cu = *g_gpu.cu;
    cu.MakeCurrent();
    const cuda::CUdeviceptr address = Address(chunk->GetDevicePointer());
    if (!GpuReadsFrame(state, address, frame.data())) return;
    for (auto _ : state) {
        if (!LaunchRead(address) || cu.cuCtxSynchronize() != cuda::kSuccess)
            return state.SkipWithError("the kernel did not run");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame));
}
BENCHMARK(BM_KernelReadDeviceChunk)->Unit(benchmark::kMicrosecond)->UseRealTime();

// A pool of pageable images fed as a camera thread feeds it; `toGpu` takes
// each pushed image to the GPU and starts the kernel on it.
template <typename ToGpu>
void PoolToGpu(benchmark::State& state, ToGpu toGpu) {
    const auto frame = CameraFrame();
    std::vector<unsigned char> region(kPoolImages * kFrame);
    GrabSystem::CImgPoolCtrlP pool(0, nullptr, GrabSystem::ePoolNormal, 8);
    GrabSystem::CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(kFrame);
    if (!pool.Add(kPoolImages)) return state.SkipWithError("the pool could not be made");
    const cuda::Driver& cu = *g_gpu.cu;
    cu.MakeCurrent();
    bool checked = false;
    for (auto _ : state) {
        if (!pool.PushImg(const_cast<unsigned char*>(frame.data()), kWidth, kHeight, 0, 0))
            return state.SkipWithError("push refused");
        GrabSystem::IImgP* img = pool.GetImg(pool.GetNextSerialNum() - 1);
        const cuda::CUdeviceptr address = toGpu(*img);
        if (address == 0) return state.SkipWithError("the frame did not reach the GPU");
        if (!checked) {
            if (!GpuReadsFrame(state, address, frame.data())) return;
            checked = true;
        }
        if (!LaunchRead(address) || cu.cuCtxSynchronize() != cuda::kSuccess)
            return state.SkipWithError("the kernel did not run");
        img->ReleaseUsingStatus();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame));
}

void BM_PoolToGpuDeviceChunk(benchmark::State& state) {
    auto staged = DeviceChunk(state, std::vector<unsigned char>(kFrame));
    if (staged == nullptr) return;
    PoolToGpu(state, [&](GrabSystem::IImgP& img) -> cuda::CUdeviceptr {
        return staged->DuplicateFromChunk(img) ? Address(staged->GetDevicePointer()) : 0;
    });
}
BENCHMARK(BM_PoolToGpuDeviceChunk)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_PoolToGpuPageableCopy(benchmark::State& state) {
    g_gpu.cu->MakeCurrent();
    DeviceFrame device;
    if (!device.ok()) return state.SkipWithError("cuMemAlloc failed");
    PoolToGpu(state, [&](GrabSystem::IImgP& img) -> cuda::CUdeviceptr {
        return g_gpu.cu->cuMemcpyHtoD(device.address(), img.GetData(), kFrame) == cuda::kSuccess ? device.address() : 0;
    });
}
BENCHMARK(BM_PoolToGpuPageableCopy)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    g_gpu.cu = cuda::Get();
    if (g_gpu.cu == nullptr) {
        std::printf("gpu_bench: skipped: it needs a CUDA driver and a GPU; here device buffers are %s\n",
                    Zentrik::CDeviceManager::Describe().c_str());
        return 0;
    }
    const cuda::Driver& cu = *g_gpu.cu;
    if (!cu.MakeCurrent() || cu.cuModuleLoadData(&g_gpu.module, kFrameReadPtx) != cuda::kSuccess ||
        cu.cuModuleGetFunction(&g_gpu.read, g_gpu.module, "frame_read") != cuda::kSuccess ||
        cu.cuMemAlloc(&g_gpu.sum, sizeof(unsigned long long)) != cuda::kSuccess) {
        std::fprintf(stderr, "gpu_bench: the frame-reading kernel could not be loaded on %s\n", cu.device.c_str());
        return 1;
    }
    std::fprintf(stderr, "gpu_bench: %s\n", Zentrik::CDeviceManager::Describe().c_str());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    cu.cuMemFree(g_gpu.sum);
    cu.cuModuleUnload(g_gpu.module);
    return 0;
}
