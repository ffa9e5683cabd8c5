// The camera layer's streaming and accounting against a scripted device:
// frames with the ids, damage and sizes a test chooses, a camera that stops
// answering, and a clock the test drives. Needs no Aravis.
#include <gtest/gtest.h>

#include <deque>
#include <mutex>

#include "camera_test_support.h"
#include "grabsystem/camera/frame_sequence.h"
#include "grabsystem/platform/camera/camera_device.h"
#include "test_support.h"

using namespace GrabSystem;
using namespace GrabSystem::camera;
using grabsys_test::TestPool;

namespace {

struct Scripted {
    uint64_t id;
    bool complete = true;
    uint32_t width = 8;
    uint32_t format = platform::kPixelMono8;
};

// What the scripted device and its streams share with the test.
struct Script {
    std::mutex mutex;
    std::deque<Scripted> frames;
    std::vector<std::vector<uint8_t>> out;  // pixels of frames handed out, until requeued
    int probesAnswered = 1 << 30;           // probes that succeed before the camera vanishes
    int stops = 0;
    grabsys_test::FakeClock* clock = nullptr;  // advanced by each empty wait, when set
};

class ScriptedStream : public platform::CameraStream {
public:
    explicit ScriptedStream(Script& script) : m_script(script) {}
    bool Pop(uint32_t timeoutMs, platform::CameraFrame& frame) override {
        std::unique_lock<std::mutex> lock(m_script.mutex);
        if (m_script.frames.empty()) {
            lock.unlock();
            if (m_script.clock != nullptr) m_script.clock->Advance(timeoutMs);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return false;
        }
        const Scripted s = m_script.frames.front();
        m_script.frames.pop_front();
        const uint32_t height = 4, bytes = s.format == platform::kPixelMono16 ? 2 : 1;
        auto pixels = std::make_unique<std::vector<uint8_t>>(size_t{s.width} * height * bytes);
        for (uint32_t y = 0; y < height; ++y)  // the simulated camera's picture, to be checked in the pool
            for (uint32_t x = 0; x < s.width; ++x) (*pixels)[(y * s.width + x) * bytes] = (x + y + s.id) % 255;
        frame = platform::CameraFrame();
        frame.complete = s.complete;
        frame.frameId = s.id;
        frame.width = s.width;
        frame.height = height;
        frame.pixelFormat = s.format;
        frame.data = pixels->data();
        frame.size = pixels->size();
        frame.handle = pixels.release();
        return true;
    }
    void Requeue(platform::CameraFrame& frame) override { delete static_cast<std::vector<uint8_t>*>(frame.handle); }
    uint64_t Underruns() override { return 2; }

private:
    Script& m_script;
};

class ScriptedDevice : public platform::CameraDevice {
public:
    ScriptedDevice(Script& script, uint32_t format = platform::kPixelMono8) : m_script(script), m_format(format) {}
    const std::string& Name() const override { return m_name; }
    int FrameIdBits() const override { return 16; }
    Status Describe(CameraDescription& d) override {
        d.pixelFormatCode = m_format;
        d.pixelFormat = m_format == platform::kPixelMono8 ? "Mono8" : m_format == platform::kPixelMono16 ? "Mono16" : "BayerRG8";
        return Status::OK();
    }
    Status SetRegion(uint32_t, uint32_t, uint32_t, uint32_t) override { return Status::OK(); }
    Status SetPixelFormat(uint32_t pfnc) override {
        m_format = pfnc;
        return Status::OK();
    }
    Status SetFrameRate(double) override { return Status::OK(); }
    Status SetPacketSize(uint32_t) override { return Status::NotSupported(m_name, "not GigE Vision"); }
    Status SetSocketBuffer(uint32_t) override { return Status::NotSupported(m_name, "not GigE Vision"); }
    Status OpenStream(uint32_t, std::unique_ptr<platform::CameraStream>& stream) override {
        stream = std::make_unique<ScriptedStream>(m_script);
        return Status::OK();
    }
    Status StartAcquisition() override { return Status::OK(); }
    Status StopAcquisition() override {
        std::lock_guard<std::mutex> lock(m_script.mutex);
        ++m_script.stops;
        return Status::OK();
    }
    Status Probe() override {
        std::lock_guard<std::mutex> lock(m_script.mutex);
        return m_script.probesAnswered-- > 0 ? Status::OK() : Status::TimedOut(m_name, "read timeout");
    }

private:
    Script& m_script;
    uint32_t m_format;
    std::string m_name = "scripted camera";
};

// Streams the script into `pool` and stops once every frame was taken.
CameraCounters StreamAll(Camera& camera, Script& script, CImgPoolCtrlP& pool, StreamOptions options = StreamOptions()) {
    options.frameTimeoutMs = 60000;
    EXPECT_TRUE(camera.Start(pool, options).ok());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(script.mutex);
            if (script.frames.empty() || std::chrono::steady_clock::now() > deadline) break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the last frame is pushed before the next wait
    EXPECT_TRUE(camera.Stop().ok());
    return camera.Counters();
}

// The frame attributes of the images in the pool, which it releases;
// `idsAreAttributes`: checks the pixels against the picture of that id.
std::vector<unsigned> Attributes(CImgPoolCtrlP& pool, bool idsAreAttributes) {
    std::vector<unsigned> attrs;
    for (uint64_t serial = 0; serial < pool.GetNextSerialNum(); ++serial) {
        IImgP* img = pool.GetImg(serial);
        if (img == nullptr) continue;
        attrs.push_back(img->GetInfo().frameAttr);
        if (idsAreAttributes) {
            EXPECT_EQ(CheckSimulatedPattern(img->GetData(), img->GetWidth(), 4, 8, attrs.back()).wrong, 0u) << serial;
        }
        img->ReleaseUsingStatus();
    }
    return attrs;
}

}  // namespace

TEST(FrameSequence, SixteenBitIdsWrapSkippingZeroAndStepsBackAreLateFrames) {
    FrameSequence ids(16);
    EXPECT_EQ(ids.Place(65534).position, 0u);
    auto p = ids.Place(1);  // 65535 skipped, 0 is never used
    EXPECT_EQ(p.skipped, 1u);
    EXPECT_EQ(p.position, 2u);
    p = ids.Place(65535);
    EXPECT_TRUE(p.late);
    EXPECT_EQ(p.position, 1u);
    p = ids.Place(1 + 32767);  // half the range ahead is still ahead
    EXPECT_EQ(p.skipped, 32766u);
    p = ids.Place(1);  // and as far back is a late frame, not a wrap
    EXPECT_TRUE(p.late);
    ids.Restart();  // a camera may renumber when started again
    p = ids.Place(7);
    EXPECT_EQ(p.skipped, 0u);
    EXPECT_EQ(p.position, 2u + 32767u + 1u);

    FrameSequence wide(64);
    wide.Place(70000);
    p = wide.Place(70003);
    EXPECT_EQ(p.skipped, 2u);
    EXPECT_TRUE(wide.Place(69999).late);
}

TEST(CameraAccounting, EveryFrameIsCountedOnceAcrossWrapGapsDamageAndARestart) {
    Script script;
    Camera camera(std::make_unique<ScriptedDevice>(script));
    TestPool p(8, ePoolNormal, 8, 4, 16);
    // 2 is late (after 3), 2 again a frame of its own; 4 and 5 never come;
    // 6 is damaged, 7 too wide for the pool's images.
    script.frames = {{65533}, {65534}, {65535}, {1}, {3}, {2}, {2}, {6, false}, {7, true, 100}, {8}};
    CameraCounters c = StreamAll(camera, script, p.pool);
    EXPECT_EQ(c.sent, 12u);
    EXPECT_EQ(c.missed, 2u);
    EXPECT_EQ(c.incomplete, 1u);
    EXPECT_EQ(c.completed, 9u);
    EXPECT_EQ(c.refusedTooLarge, 1u);
    EXPECT_EQ(c.underruns, 2u);
    grabsys_test::ExpectAccountedFor(c, p.pool.GetCounters());
    EXPECT_EQ(Attributes(p.pool, true), (std::vector<unsigned>{65533, 65534, 65535, 1, 3, 2, 2, 8}));

    // Started again, the camera numbers from 1000: no gap across the stop,
    // and the counter numbers go on from the furthest frame (8, at 10).
    script.frames = {{1000}, {1002}};
    StreamOptions counter;
    counter.frameAttr = StreamOptions::FrameAttr::kCounter;
    counter.firstCounter = 500;
    c = StreamAll(camera, script, p.pool, counter);
    EXPECT_EQ(c.sent, 15u);
    EXPECT_EQ(c.missed, 3u);
    EXPECT_EQ(c.underruns, 4u);  // two streams' worth
    grabsys_test::ExpectAccountedFor(c, p.pool.GetCounters());
    EXPECT_EQ(Attributes(p.pool, false), (std::vector<unsigned>{511, 513}));
    EXPECT_EQ(script.stops, 2);
}

TEST(CameraAccounting, AFullPoolRefusesAndARingOverwritesAsThePoolCountsThem) {
    for (PoolMode mode : {ePoolNormal, ePoolRing}) {
        Script script;
        Camera camera(std::make_unique<ScriptedDevice>(script));
        TestPool p(8, mode, 8, 4, 2);
        script.frames = {{10}, {11}, {12}, {13}, {14}};
        const CameraCounters c = StreamAll(camera, script, p.pool);
        EXPECT_EQ(c.pushed, 2u);
        EXPECT_EQ(mode == ePoolRing ? c.overwritten : c.refusedNoFreeNode, 3u);
        EXPECT_EQ(c.bytesPushed, (mode == ePoolRing ? 5u : 2u) * 32u);
        grabsys_test::ExpectAccountedFor(c, p.pool.GetCounters());
        camera.ResetCounters();
        EXPECT_EQ(camera.Counters().sent, 0u);
    }
}

TEST(CameraAccounting, ACameraThatStopsAnsweringEndsTheStreamNamingIt) {
    Script script;
    grabsys_test::FakeClock clock;
    script.clock = &clock;
    script.probesAnswered = 3;  // three silent timeouts, then it is gone
    Camera camera(std::make_unique<ScriptedDevice>(script));
    TestPool p(8, ePoolNormal, 8, 4, 2);
    script.frames = {{1}, {2}};
    StreamOptions options;
    options.frameTimeoutMs = 500;
    ASSERT_TRUE(camera.Start(p.pool, options).ok());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (camera.Streaming() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_FALSE(camera.Streaming());
    const Status error = camera.Error();
    EXPECT_TRUE(error.IsTimedOut());
    EXPECT_EQ(error.subject(), "scripted camera");
    EXPECT_EQ(error.cause(), "no frame for 500 ms and it no longer answers (read timeout)");
    EXPECT_EQ(camera.Counters().timeouts, 4u);
    EXPECT_EQ(camera.Counters().pushed, 2u);
    EXPECT_TRUE(camera.Stop().IsTimedOut());
    EXPECT_EQ(script.stops, 0);  // a vanished camera is not waited on again

    // A frame in a format it was not set to ends the stream too; it is
    // counted, never pushed.
    script.frames = {{3}, {4, true, 8, platform::kPixelMono16}, {5}};
    script.probesAnswered = 1 << 30;
    ASSERT_TRUE(camera.Start(p.pool, options).ok());
    while (camera.Streaming() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(camera.Stop().IsInvalidArgument());
    EXPECT_EQ(camera.Counters().incomplete, 1u);
    EXPECT_TRUE(camera.Counters().Balanced());
}

TEST(CameraStart, RefusesFormatsAndPoolsThatDoNotMatch) {
    Script script;
    TestPool eight(8, ePoolNormal, 8, 4, 1), sixteen(16, ePoolNormal, 8, 4, 1);
    Camera bayer(std::make_unique<ScriptedDevice>(script, 0x01080009));
    Status s = bayer.Start(eight.pool);
    EXPECT_TRUE(s.IsInvalidArgument());
    EXPECT_EQ(s.ToString(), "scripted camera: sends pixel format BayerRG8: only Mono8 (into 8-bit pools) and Mono16 (into 16-bit pools) are taken");

    Camera mono16(std::make_unique<ScriptedDevice>(script, platform::kPixelMono16));
    s = mono16.Start(eight.pool);
    EXPECT_EQ(s.ToString(), "scripted camera: Mono16 frames need a 16-bit pool; this pool makes 8-bit images");
    ASSERT_TRUE(mono16.Start(sixteen.pool).ok());
    EXPECT_TRUE(mono16.Start(sixteen.pool).IsInvalidArgument());
    EXPECT_TRUE(mono16.Configure(CameraSettings()).IsInvalidArgument());
    EXPECT_TRUE(mono16.Stop().ok());

    CameraSettings settings;
    settings.packetSize = 1500;  // not a GigE Vision camera: refused; the socket buffer's default is not
    EXPECT_TRUE(mono16.Configure(settings).IsNotSupported());
    PixelFormat format;
    s = ParsePixelFormat("RGB8", format);
    EXPECT_EQ(s.cause(), "pixel format RGB8 is not supported: Mono8 (into 8-bit pools) or Mono16 (into 16-bit pools)");
    EXPECT_TRUE(ParsePixelFormat("Mono16", format).ok() && format == PixelFormat::kMono16);
}

TEST(SimulatedPattern, MatchesWhatAravisSendsAndFindsACorruptedPixel) {
    // Measured from Aravis 0.8.26: frame 65401 starts with 121 (Mono8) and
    // 0x79ff (Mono16); frame 65425 at (63, 47) is 0 in both.
    std::vector<uint8_t> frame8(64 * 48);
    std::vector<uint16_t> frame16(64 * 48);
    for (uint32_t y = 0; y < 48; ++y)
        for (uint32_t x = 0; x < 64; ++x) {
            frame8[y * 64 + x] = static_cast<uint8_t>((x + y + 65425) % 255);
            frame16[y * 64 + x] = static_cast<uint16_t>((uint64_t{x + y + 65425} * 256) % 65535);
        }
    EXPECT_EQ(frame8[47 * 64 + 63], 0);
    EXPECT_EQ(frame16[47 * 64 + 63], 0);
    EXPECT_EQ((uint64_t{65401} * 256) % 65535, 0x79ffu);
    EXPECT_EQ(CheckSimulatedPattern(frame8.data(), 64, 48, 8, 65425).wrong, 0u);
    EXPECT_EQ(CheckSimulatedPattern(frame16.data(), 64, 48, 16, 65425).wrong, 0u);
    EXPECT_EQ(CheckSimulatedPattern(frame8.data(), 64, 48, 8, 65426).wrong, 64u * 48u);
    frame8[30 * 64 + 5] ^= 1;
    frame16[47 * 64 + 63] = 1;
    const PatternCheck bad8 = CheckSimulatedPattern(frame8.data(), 64, 48, 8, 65425);
    const PatternCheck bad16 = CheckSimulatedPattern(frame16.data(), 64, 48, 16, 65425);
    EXPECT_EQ(bad8.wrong, 1u);
    EXPECT_EQ(bad8.firstX, 5u);
    EXPECT_EQ(bad8.firstY, 30u);
    EXPECT_EQ(bad16.wrong, 1u);
    EXPECT_EQ(bad16.firstX, 63u);
}
