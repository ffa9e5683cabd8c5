// What the camera tests share: a pool over a region of its own, and a
// consumer that takes every frame the camera pushes, as a program would.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "grabsystem/camera/camera.h"
#include "grabsystem/camera/simulated_pattern.h"
#include "grabsystem/image/img_pool_ctrl.h"

namespace grabsys_test {

struct TestPool {
    TestPool(unsigned bits, GrabSystem::PoolMode mode, uint32_t width, uint32_t height, unsigned count)
        : region(size_t{width} * height * (bits / 8) * count), pool(1, nullptr, mode, static_cast<unsigned char>(bits)) {
        GrabSystem::CMemBlockP block(region.data(), region.size());
        pool.AssignMemoryBlock(block);
        pool.SetDefaultMemSize(size_t{width} * height * (bits / 8));
        pool.SetImgDefaultConfig(GrabSystem::eCam0, VormexDataStructure::eMemModeFixed,
                                 VormexDataStructure::ImgSize(width, height, 1, static_cast<uint8_t>(bits)),
                                 VormexDataStructure::ImgRes());
        pool.Add(count);
    }
    ~TestPool() { pool.DeleteAll(); }
    std::vector<unsigned char> region;
    GrabSystem::CImgPoolCtrlP pool;
};

// Takes pushed images in serial order, hands each to `look` and releases
// it, until `frames` were taken, the camera stopped streaming, or 20 s
// passed. Returns how many were taken.
inline uint64_t Consume(GrabSystem::CImgPoolCtrlP& pool, const GrabSystem::camera::Camera& camera, uint64_t frames,
                        const std::function<void(GrabSystem::IImgP&)>& look, int msPerFrame = 0) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    uint64_t taken = 0;
    while (taken < frames && std::chrono::steady_clock::now() < deadline) {
        GrabSystem::IImgP* img = taken < pool.GetNextSerialNum() ? pool.GetImg(taken) : nullptr;
        if (img == nullptr) {
            if (!camera.Streaming()) break;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            continue;
        }
        look(*img);
        if (msPerFrame > 0) std::this_thread::sleep_for(std::chrono::milliseconds(msPerFrame));
        img->ReleaseUsingStatus();
        ++taken;
    }
    return taken;
}

// The camera's figures agree with themselves and with the pool's own.
inline void ExpectAccountedFor(const GrabSystem::camera::CameraCounters& c, const GrabSystem::PoolCounters& pool) {
    EXPECT_TRUE(c.Balanced()) << "sent " << c.sent << " pushed " << c.pushed << " refused " << c.refusedNoFreeNode << "+"
                              << c.refusedTooLarge << " overwritten " << c.overwritten << " incomplete " << c.incomplete
                              << " missed " << c.missed;
    EXPECT_EQ(c.pushed, pool.pushed);
    EXPECT_EQ(c.refusedNoFreeNode, pool.refusedNoFreeNode);
    EXPECT_EQ(c.refusedTooLarge, pool.refusedTooLarge);
    EXPECT_EQ(c.overwritten, pool.overwritten);
    EXPECT_EQ(c.bytesPushed, pool.bytesCopied);
}

}  // namespace grabsys_test
