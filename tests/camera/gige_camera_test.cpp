// Aravis's simulated GigE Vision camera on 127.0.0.1 through the camera
// layer: real GVCP and GVSP over UDP on the loopback interface only, never
// a broadcast. The simulator binds port 3956, so ctest runs these one at a
// time (resource lock), and each checks that the camera answering is its own.
#include <gtest/gtest.h>

#include <random>

#include "camera_test_support.h"
#include "grabsystem/platform/camera/camera_device.h"

using namespace GrabSystem;
using namespace GrabSystem::camera;
using grabsys_test::Consume;
using grabsys_test::TestPool;

namespace {

constexpr uint32_t kWidth = 256, kHeight = 128;

struct Loopback {
    Loopback() {
        serial = "GS" + std::to_string(std::random_device{}() % 1000000);
        Status s = platform::GigECameraSimulator::Start(serial, simulator);
        EXPECT_TRUE(s.ok()) << s.ToString();
        if (!s.ok()) return;
        s = Camera::Open(CameraSpec::Address("127.0.0.1"), camera);
        EXPECT_TRUE(s.ok()) << s.ToString();
        CameraDescription d;
        if (s.ok()) s = camera->Describe(d);
        EXPECT_EQ(d.serial, serial) << "another camera answers on 127.0.0.1";
        CameraSettings settings;
        settings.width = kWidth, settings.height = kHeight;
        settings.frameRate = 200;
        settings.packetSize = 1500;
        if (s.ok()) s = camera->Configure(settings);
        EXPECT_TRUE(s.ok()) << s.ToString();
        ok = s.ok() && d.serial == serial;
    }
    std::string serial;
    std::unique_ptr<platform::GigECameraSimulator> simulator;
    std::unique_ptr<Camera> camera;  // declared after the simulator: released first
    bool ok = false;
};

// Takes frames until `frames` were taken; returns the pixels that differ
// from the simulated camera's picture.
uint64_t TakeAndCheck(Camera& camera, CImgPoolCtrlP& pool, uint64_t frames) {
    uint64_t wrong = 0;
    EXPECT_EQ(Consume(pool, camera, frames, [&](IImgP& img) {
        wrong += CheckSimulatedPattern(img.GetData(), kWidth, kHeight, 8, img.GetInfo().frameAttr).wrong;
    }), frames);
    return wrong;
}

}  // namespace

TEST(GigECamera, FramesArriveIntactOverLoopback) {
    Loopback lo;
    ASSERT_TRUE(lo.ok);
    CameraDescription d;
    ASSERT_TRUE(lo.camera->Describe(d).ok());
    EXPECT_EQ(d.protocol, "GigEVision");
    EXPECT_EQ(d.address, "127.0.0.1");
    EXPECT_EQ(d.packetSize, 1500u);
    TestPool p(8, ePoolNormal, kWidth, kHeight, 8);
    ASSERT_TRUE(lo.camera->Start(p.pool).ok());
    EXPECT_EQ(TakeAndCheck(*lo.camera, p.pool, 60), 0u);
    ASSERT_TRUE(lo.camera->Stop().ok());
    grabsys_test::ExpectAccountedFor(lo.camera->Counters(), p.pool.GetCounters());
    EXPECT_GE(lo.camera->Counters().pushed, 60u);
}

TEST(GigECamera, FramesWithDroppedPacketsNeverReachThePool) {
    Loopback lo;
    ASSERT_TRUE(lo.ok);
    // About 24 packets a frame: one in 50 lost spoils about 40 % of them.
    lo.simulator->SetPacketLoss(0.02);
    TestPool p(8, ePoolNormal, kWidth, kHeight, 8);
    ASSERT_TRUE(lo.camera->Start(p.pool).ok());
    EXPECT_EQ(TakeAndCheck(*lo.camera, p.pool, 40), 0u);
    ASSERT_TRUE(lo.camera->Stop().ok());
    const CameraCounters c = lo.camera->Counters();
    grabsys_test::ExpectAccountedFor(c, p.pool.GetCounters());
    EXPECT_GT(c.incomplete, 0u);
}

TEST(GigECamera, ACameraThatVanishesIsReportedInBoundedTime) {
    Loopback lo;
    ASSERT_TRUE(lo.ok);
    TestPool p(8, ePoolNormal, kWidth, kHeight, 8);
    StreamOptions options;
    options.frameTimeoutMs = 500;
    ASSERT_TRUE(lo.camera->Start(p.pool, options).ok());
    EXPECT_EQ(TakeAndCheck(*lo.camera, p.pool, 10), 0u);
    lo.simulator.reset();
    const auto gone = std::chrono::steady_clock::now();
    while (lo.camera->Streaming() && std::chrono::steady_clock::now() - gone < std::chrono::seconds(20))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - gone).count();
    // The frame timeout, then one read that GVCP retries for 2.5 s, after
    // the heartbeat's own when that holds the channel.
    EXPECT_LT(seconds, 7.0) << lo.camera->Error().ToString();
    const Status s = lo.camera->Stop();
    EXPECT_TRUE(s.IsTimedOut()) << s.ToString();
    EXPECT_EQ(s.subject(), "camera at 127.0.0.1");
    EXPECT_NE(s.cause().find("no longer answers"), std::string::npos) << s.cause();
    EXPECT_TRUE(lo.camera->Counters().Balanced());
    // Back again, it answers the camera's last words at once rather than
    // after GVCP's retries.
    EXPECT_TRUE(platform::GigECameraSimulator::Start(lo.serial, lo.simulator).ok());
}
