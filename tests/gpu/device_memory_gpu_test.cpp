// Device buffers on a real GPU: frames pushed through an image pool are
// duplicated into chunks' device buffers, and the GPU reads each through its
// device pointer: a kernel (PTX that nvcc made when the tests were built) or,
// without one, a driver copy. Without a CUDA driver and a GPU the test skips,
// saying what backs the device buffers instead.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/platform/device/cuda_driver.h"
#include "grabsystem/platform/device/device_manager.h"
#ifdef GRABSYS_BYTE_SUM_PTX
#include "byte_sum_ptx.h"
#endif

using namespace GrabSystem;
namespace cuda = Zentrik::cuda;

namespace {

// Adds up `count` bytes at a device pointer, on the GPU.
class GpuSum {
public:
    explicit GpuSum(const cuda::Driver& cu) : m_cu(cu) {
        EXPECT_EQ(m_cu.cuMemAlloc(&m_sum, sizeof(unsigned long long)), cuda::kSuccess);
#ifdef GRABSYS_BYTE_SUM_PTX
        EXPECT_EQ(m_cu.cuModuleLoadData(&m_module, kByteSumPtx), cuda::kSuccess);
        EXPECT_EQ(m_cu.cuModuleGetFunction(&m_kernel, m_module, "byte_sum"), cuda::kSuccess);
#endif
    }
    ~GpuSum() {
        if (m_module != nullptr) m_cu.cuModuleUnload(m_module);
        m_cu.cuMemFree(m_sum);
    }
    GpuSum(const GpuSum&) = delete;
    GpuSum& operator=(const GpuSum&) = delete;

    const char* How() const { return m_kernel != nullptr ? "a kernel" : "a driver copy"; }

    unsigned long long operator()(void* device, unsigned long long count) {
        auto address = static_cast<cuda::CUdeviceptr>(reinterpret_cast<uintptr_t>(device));
        unsigned long long sum = 0;
        if (m_kernel != nullptr) {
            m_cu.cuMemsetD8(m_sum, 0, sizeof sum);
            void* params[] = {&address, &count, &m_sum};
            EXPECT_EQ(m_cu.cuLaunchKernel(m_kernel, 64, 1, 1, 256, 1, 1, 0, nullptr, params, nullptr), cuda::kSuccess);
            EXPECT_EQ(m_cu.cuMemcpyDtoH(&sum, m_sum, sizeof sum), cuda::kSuccess);
            return sum;
        }
        std::vector<unsigned char> bytes(count);
        EXPECT_EQ(m_cu.cuMemcpyDtoH(bytes.data(), address, count), cuda::kSuccess);
        return std::accumulate(bytes.begin(), bytes.end(), 0ULL);
    }

private:
    const cuda::Driver& m_cu;
    cuda::CUdeviceptr m_sum = 0;
    cuda::CUmodule m_module = nullptr;
    cuda::CUfunction m_kernel = nullptr;
};

// Resident memory of the process in KiB (page-locked buffers count here).
long ResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return 0;
}

}  // namespace

TEST(DeviceMemoryGpu, PooledFramesAddUpOnTheGpuRoundAfterRound) {
    const cuda::Driver* cu = cuda::Get();
    if (cu == nullptr)
        GTEST_SKIP() << "needs a CUDA driver and a GPU; here device buffers are " << Zentrik::CDeviceManager::Describe();
    ASSERT_TRUE(Zentrik::CDeviceManager::IsCudaBacked());
    ASSERT_TRUE(cu->MakeCurrent());
    GpuSum gpuSum(*cu);

    constexpr uint32_t kWidth = 640, kHeight = 480, kImages = 4, kRounds = 1000;
    std::vector<unsigned char> region(size_t{kImages} * kWidth * kHeight);
    std::vector<unsigned char> frame(size_t{kWidth} * kHeight);
    size_t freeAfterFirst = 0, freeAfterLast = 0, total = 0;
    long residentAfterFirst = 0;
    for (uint32_t round = 0; round < kRounds; ++round) {
        CImgPoolCtrlP pool(0, nullptr, ePoolNormal, 8);
        CMemBlockP block(region.data(), region.size());
        ASSERT_TRUE(pool.AssignMemoryBlock(block));
        pool.SetDefaultMemSize(frame.size());
        ASSERT_TRUE(pool.Add(kImages));
        std::vector<std::unique_ptr<IChunkDataP>> onGpu;
        for (uint32_t i = 0; i < kImages; ++i) {
            const uint32_t seed = round * kImages + i;
            for (size_t b = 0; b < frame.size(); ++b) frame[b] = static_cast<unsigned char>(b * 7 + seed * 13 + (b >> 9));
            ASSERT_TRUE(pool.PushImg(frame.data(), kWidth, kHeight, 0, seed));
            IImgP* img = pool.GetImg(pool.GetNextSerialNum() - 1);
            ASSERT_NE(img, nullptr);
            EXPECT_EQ(img->GetDevicePointer(), nullptr);  // pool images have no device buffer

            auto staged = std::make_unique<IChunkDataP>();
            ASSERT_TRUE(staged->AllocMemory(frame.size(), true));
            ASSERT_TRUE(staged->DuplicateFromChunk(*img));
            void* device = staged->GetDevicePointer();
            ASSERT_NE(device, nullptr);
            const unsigned long long cpu = std::accumulate(frame.begin(), frame.end(), 0ULL);
            ASSERT_EQ(gpuSum(device, frame.size()), cpu) << "round " << round << ", frame " << i;
            onGpu.push_back(std::move(staged));
            img->ReleaseUsingStatus();
        }
        onGpu.clear();  // the device buffers go back here; the pool at the end of the round
        if (round == 0) {
            cu->cuMemGetInfo(&freeAfterFirst, &total);
            residentAfterFirst = ResidentKiB();
        }
    }
    cu->cuMemGetInfo(&freeAfterLast, &total);
    const long residentGrowth = ResidentKiB() - residentAfterFirst;
    std::printf("%u rounds of %u frames of %u x %u read on %s through %s; GPU memory free %zu MiB after the first "
                "round, %zu MiB after the last; resident memory grew by %ld KiB\n",
                kRounds, kImages, kWidth, kHeight, cu->device.c_str(), gpuSum.How(), freeAfterFirst >> 20,
                freeAfterLast >> 20, residentGrowth);
    EXPECT_GE(freeAfterLast + (size_t{1} << 20), freeAfterFirst) << "GPU memory shrank over the rounds";
    EXPECT_LT(residentGrowth, 16 * 1024) << "page-locked buffers were not given back";
}
