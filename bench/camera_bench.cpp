// Cameras into the pool against the cameras alone: Aravis's simulated
// cameras at 1024 x 1024 Mono8, read by popping and requeueing their
// buffers (the baseline), and through the camera layer into an image pool
// whose frames a consumer takes and releases. Both sides run as fast as the
// simulated camera makes frames, so the ratio is what the pool costs a
// camera. The GigE Vision camera runs over the loopback interface.
#include <benchmark/benchmark.h>

#include <chrono>
#include <thread>
#include <vector>

#include "grabsystem/camera/camera.h"
#include "grabsystem/platform/camera/camera_device.h"

namespace {

using namespace GrabSystem;
constexpr uint32_t kWidth = 1024, kHeight = 1024;
constexpr uint32_t kPacketSize = 9000;  // jumbo frames, as GigE Vision cameras are run

// A camera opened at the platform layer, set up as both sides use it.
bool SetUp(benchmark::State& state, bool gige, std::unique_ptr<platform::GigECameraSimulator>& simulator,
           std::unique_ptr<platform::CameraDevice>& device) {
    Status s = gige ? platform::GigECameraSimulator::Start("BENCH", simulator) : Status::OK();
    if (s.ok()) s = gige ? platform::OpenCameraAtAddress("127.0.0.1", device) : platform::OpenSimulatedCamera("BENCH", device);
    if (s.ok()) s = device->SetRegion(0, 0, kWidth, kHeight);
    if (s.ok()) s = device->SetPixelFormat(platform::kPixelMono8);
    if (s.ok()) s = device->SetFrameRate(1000);
    if (s.ok() && gige) s = device->SetPacketSize(kPacketSize);
    if (!s.ok()) state.SkipWithError(s.ToString().c_str());
    return s.ok();
}

void BM_CameraAlone(benchmark::State& state) {
    std::unique_ptr<platform::GigECameraSimulator> simulator;
    std::unique_ptr<platform::CameraDevice> device;
    std::unique_ptr<platform::CameraStream> stream;
    if (!SetUp(state, state.range(0) != 0, simulator, device)) return;
    if (!device->OpenStream(8, stream).ok() || !device->StartAcquisition().ok()) return state.SkipWithError("no stream");
    uint64_t complete = 0;
    for (auto _ : state) {
        platform::CameraFrame frame;
        if (!stream->Pop(2000, frame)) {
            state.SkipWithError("no frame");
            break;
        }
        complete += frame.complete;
        stream->Requeue(frame);
    }
    device->StopAcquisition();
    stream.reset();
    state.counters["complete"] = static_cast<double>(complete);
    state.SetBytesProcessed(static_cast<int64_t>(complete * kWidth * kHeight));
}
BENCHMARK(BM_CameraAlone)->Arg(0)->Arg(1)->MinTime(1.0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CameraToPool(benchmark::State& state) {
    std::unique_ptr<platform::GigECameraSimulator> simulator;
    std::unique_ptr<platform::CameraDevice> device;
    if (!SetUp(state, state.range(0) != 0, simulator, device)) return;
    camera::Camera camera(std::move(device));
    constexpr unsigned kImages = 8;
    std::vector<unsigned char> region(size_t{kWidth} * kHeight * kImages);
    CImgPoolCtrlP pool(1, nullptr, ePoolNormal, 8);
    CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(size_t{kWidth} * kHeight);
    pool.Add(kImages);
    if (!camera.Start(pool).ok()) return state.SkipWithError("no stream");
    uint64_t serial = 0;
    for (auto _ : state) {
        // The consumer: the next frame, released at once. It looks every
        // millisecond, as a consumer sharing the cores would; the pool
        // holds 8 frames meanwhile.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        while (serial >= pool.GetNextSerialNum() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (!pool.Release(serial++)) {
            state.SkipWithError("no frame");
            break;
        }
    }
    camera.Stop();
    const camera::CameraCounters c = camera.Counters();
    state.counters["incomplete"] = static_cast<double>(c.incomplete);
    state.counters["refused"] = static_cast<double>(c.refusedNoFreeNode);
    state.SetBytesProcessed(static_cast<int64_t>(serial * kWidth * kHeight));
    pool.DeleteAll();
}
BENCHMARK(BM_CameraToPool)->Arg(0)->Arg(1)->MinTime(1.0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
BENCHMARK_MAIN();
