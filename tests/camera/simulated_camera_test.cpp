// Aravis's in-process simulated camera through the camera layer into image
// pools: every pixel of every frame that reaches a pool is checked against
// the camera's picture.
#include <gtest/gtest.h>

#include "camera_test_support.h"
#include "grabsystem/camera/frame_sequence.h"

using namespace GrabSystem;
using namespace GrabSystem::camera;
using grabsys_test::Consume;
using grabsys_test::TestPool;

namespace {

std::unique_ptr<Camera> OpenSimulated(uint32_t x, uint32_t y, uint32_t width, uint32_t height, PixelFormat format,
                                      double fps) {
    std::unique_ptr<Camera> camera;
    Status s = Camera::Open(CameraSpec::Simulated("SIMTEST"), camera);
    EXPECT_TRUE(s.ok()) << s.ToString();
    if (!s.ok()) return nullptr;
    CameraSettings settings;
    settings.x = x, settings.y = y, settings.width = width, settings.height = height;
    settings.pixelFormat = format;
    settings.frameRate = fps;
    s = camera->Configure(settings);
    EXPECT_TRUE(s.ok()) << s.ToString();
    return camera;
}

// Takes `frames` frames, checks every pixel of each against the picture of
// the id it carries, and that ids follow each other (16 bit, skipping 0)
// whenever nothing was refused in between. Returns the ids seen.
std::vector<uint64_t> TakeAndCheck(Camera& camera, CImgPoolCtrlP& pool, uint32_t width, uint32_t height, uint64_t frames) {
    std::vector<uint64_t> ids;
    uint64_t wrong = 0;
    const unsigned bits = pool.GetBits();
    Consume(pool, camera, frames, [&](IImgP& img) {
        ids.push_back(img.GetInfo().frameAttr);
        wrong += CheckSimulatedPattern(img.GetData(), width, height, bits, ids.back()).wrong;
    });
    EXPECT_EQ(ids.size(), frames);
    EXPECT_EQ(wrong, 0u) << "pixels that differ from the simulated camera's picture";
    return ids;
}

}  // namespace

TEST(SimulatedCamera, EveryPixelOfEveryFrameArrivesAcrossTheIdWrapIn8And16Bits) {
    for (PixelFormat format : {PixelFormat::kMono8, PixelFormat::kMono16}) {
        const unsigned bits = format == PixelFormat::kMono16 ? 16 : 8;
        auto camera = OpenSimulated(0, 0, 64, 48, format, 1000);
        ASSERT_TRUE(camera);
        CameraDescription d;
        ASSERT_TRUE(camera->Describe(d).ok());
        EXPECT_EQ(d.protocol, "Fake");
        EXPECT_EQ(d.serial, "SIMTEST");
        EXPECT_EQ(d.payload, 64u * 48u * bits / 8u);
        TestPool p(bits, ePoolNormal, 64, 48, 8);
        ASSERT_TRUE(camera->Start(p.pool).ok());
        // The simulated camera starts at id 65401: 200 frames wrap to 1.
        const std::vector<uint64_t> ids = TakeAndCheck(*camera, p.pool, 64, 48, 200);
        ASSERT_TRUE(camera->Stop().ok());
        const CameraCounters c = camera->Counters();
        grabsys_test::ExpectAccountedFor(c, p.pool.GetCounters());
        EXPECT_EQ(c.incomplete + c.missed, 0u);
        EXPECT_NE(std::find(ids.begin(), ids.end(), 65535), ids.end());
        EXPECT_NE(std::find(ids.begin(), ids.end(), 1), ids.end());
        EXPECT_EQ(std::find(ids.begin(), ids.end(), 0), ids.end());
        if (c.refusedNoFreeNode == 0) {
            FrameSequence sequence(16);
            for (uint64_t id : ids) EXPECT_EQ(sequence.Place(id).skipped, 0u) << id;
        }
    }
}

TEST(SimulatedCamera, ARegionChangeBetweenAStopAndARestart) {
    auto camera = OpenSimulated(0, 0, 64, 48, PixelFormat::kMono8, 1000);
    ASSERT_TRUE(camera);
    TestPool first(8, ePoolNormal, 64, 48, 4);
    ASSERT_TRUE(camera->Start(first.pool).ok());
    const uint64_t lastBefore = TakeAndCheck(*camera, first.pool, 64, 48, 30).back();
    ASSERT_TRUE(camera->Stop().ok());

    CameraSettings smaller;
    smaller.x = 16, smaller.y = 8, smaller.width = 40, smaller.height = 30;  // the picture follows the region
    ASSERT_TRUE(camera->Configure(smaller).ok());
    TestPool second(8, ePoolNormal, 40, 30, 4);
    ASSERT_TRUE(camera->Start(second.pool).ok());
    const uint64_t firstAfter = TakeAndCheck(*camera, second.pool, 40, 30, 30).front();
    ASSERT_TRUE(camera->Stop().ok());
    EXPECT_GT(firstAfter, lastBefore);  // the camera goes on counting
    const CameraCounters c = camera->Counters();
    EXPECT_TRUE(c.Balanced());
    EXPECT_EQ(c.pushed, first.pool.GetCounters().pushed + second.pool.GetCounters().pushed);

    smaller.x = 2040;  // past the 2048-pixel sensor
    const Status s = camera->Configure(smaller);
    EXPECT_EQ(s.ToString(), "simulated camera SIMTEST: region 40 x 30 at 2040,8 does not fit its 2048 x 2048 sensor");
    smaller.x = 0;
    smaller.frameRate = 5000;
    EXPECT_EQ(camera->Configure(smaller).ToString(),
              "simulated camera SIMTEST: frame rate 5000 outside its range 0.1 to 1000 fps");
}

TEST(SimulatedCamera, AConsumerTooSlowForTheCameraLosesFramesThatAreCounted) {
    for (PoolMode mode : {ePoolNormal, ePoolRing}) {
        auto camera = OpenSimulated(0, 0, 64, 48, PixelFormat::kMono8, 500);
        ASSERT_TRUE(camera);
        TestPool p(8, mode, 64, 48, 2);
        ASSERT_TRUE(camera->Start(p.pool).ok());
        uint64_t checked = 0, wrong = 0;
        if (mode == ePoolNormal) {
            // A frame in a normal pool is the consumer's until released.
            Consume(p.pool, *camera, 10, [&](IImgP& img) {
                ++checked;
                wrong += CheckSimulatedPattern(img.GetData(), 64, 48, 8, img.GetInfo().frameAttr).wrong;
            }, 20);
        } else {
            // A ring overwrites frames in use: hold each a while, then see
            // whether it was still ours.
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (p.pool.GetCounters().overwritten < 5 && std::chrono::steady_clock::now() < deadline) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                if (p.pool.GetNextSerialNum() > 0) p.pool.Release(p.pool.GetNextSerialNum() - 1);
            }
        }
        ASSERT_TRUE(camera->Stop().ok());
        const CameraCounters c = camera->Counters();
        grabsys_test::ExpectAccountedFor(c, p.pool.GetCounters());
        EXPECT_GT(mode == ePoolRing ? c.overwritten : c.refusedNoFreeNode, 0u);
        EXPECT_EQ(c.incomplete + c.missed, 0u);
        EXPECT_EQ(wrong, 0u);
        EXPECT_EQ(checked, mode == ePoolNormal ? 10u : 0u);
    }
}
