// Camera: a GenICam camera (through Aravis) as the producer of an image
// pool. Open it, Configure region, pixel format and frame rate while it is
// stopped, then Start it on a CImgPoolCtrlP: its acquisition thread pushes
// every complete frame with PushImg and hands the camera's buffer back at
// once; consumers take the frames from the pool as from any producer
// (GetImg by serial, then release). Stop ends the stream; Start again
// resumes it, into the same pool or another.
//
// Nothing is lost in silence: every frame the camera sent is counted once
// in Counters() (see camera_counters.h): pushed, refused by the pool,
// overwritten in it, arrived incomplete, or missed. A camera that stops
// answering ends the stream within the frame timeout plus one read of the
// camera that fails (GigE Vision gives a read 2.5 s, up to twice that when
// its heartbeat holds the control channel), with a TimedOut status naming
// it; nothing waits without a limit.
//
// Pixel formats: Mono8 into 8-bit pools, Mono16 into 16-bit pools; any
// other format, or a pool of the other depth, is refused naming the camera.
//
// Where the library was built without Aravis, Open answers NotSupported,
// saying so.
//
// Threads: Open, Configure, Start, Stop and the destructor from one thread
// at a time; Counters, Streaming and Error from any thread. While the
// camera streams it must be its pool's only producer (so that each push's
// outcome can be told from the pool's counters), and the pool must outlive
// Stop. Ownership: the camera owns its device and stream, never the pool.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/camera/camera_counters.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/platform/camera/camera_description.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {

namespace platform {
class CameraDevice;
class CameraStream;
struct CameraFrame;
}  // namespace platform

namespace camera {

class FrameSequence;

using CameraDescription = platform::CameraDescription;

// Which camera to open. None of the three broadcasts unless `discover` is set.
struct CameraSpec {
    enum class Source {
        kSimulated,  // Aravis's in-process simulated camera; `name` is its serial
        kAddress,    // a GigE Vision camera at an IPv4 address, connected directly
        kDeviceId,   // an Aravis device id, among the USB3 Vision cameras (and
                     // GigE Vision ones found by a discovery broadcast when
                     // `discover` is set)
    };
    Source source = Source::kSimulated;
    std::string name = "SIM0";
    bool discover = false;

    static CameraSpec Simulated(std::string serial = "SIM0") { return {Source::kSimulated, std::move(serial), false}; }
    static CameraSpec Address(std::string ip) { return {Source::kAddress, std::move(ip), false}; }
    static CameraSpec DeviceId(std::string id, bool discover = false) { return {Source::kDeviceId, std::move(id), discover}; }
};

enum class PixelFormat { kMono8, kMono16 };

// "Mono8" or "Mono16"; any other name is InvalidArgument, saying which are taken.
GRABSYSTEM_EXPORT Status ParsePixelFormat(const std::string& name, PixelFormat& format);

// What Configure sets. Zero means "leave as the camera has it".
struct CameraSettings {
    uint32_t x = 0, y = 0;              // region offset (with a width and height)
    uint32_t width = 0, height = 0;     // region size; 0: keep the region
    PixelFormat pixelFormat = PixelFormat::kMono8;
    double frameRate = 0;               // frames per second
    uint32_t packetSize = 0;            // GigE Vision: stream packet size in bytes
    uint32_t socketBuffer = 4u << 20;   // GigE Vision: receive buffer of the stream socket
};

// How Start streams.
struct StreamOptions {
    enum class FrameAttr {
        kFrameId,  // the camera's frame id (16 bit for GigE Vision: wraps)
        kCounter,  // firstCounter + the frame's position in what the camera
                   // sent since the camera was opened: gaps keep their numbers
    };
    FrameAttr frameAttr = FrameAttr::kFrameId;
    uint32_t firstCounter = 0;
    uint32_t buffers = 8;            // camera buffers queued in the stream
    uint32_t frameTimeoutMs = 1000;  // silence after which the camera is probed
};

class GRABSYSTEM_EXPORT Camera {
public:
    // Opens the camera: NotFound, TimedOut (nothing answers at the address),
    // InvalidArgument (not an address), NotSupported (no Aravis in this
    // build), IOError; `camera` is left unchanged then.
    static Status Open(const CameraSpec& which, std::unique_ptr<Camera>& camera);
    // Over a device of the platform layer (the tests' scripted ones).
    explicit Camera(std::unique_ptr<platform::CameraDevice> device);
    // Stops the stream first.
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    // "simulated camera SIM0", "camera at 192.168.1.20", "camera <id>":
    // the subject of every status it returns.
    const std::string& Name() const;
    Status Describe(CameraDescription& description);

    // Sets the region (checked against the sensor), the pixel format and,
    // when given, frame rate, packet size and socket buffer; each setting is
    // read back. InvalidArgument while streaming. A failed setting leaves
    // the ones before it made.
    Status Configure(const CameraSettings& settings);

    // Streams into `pool` until Stop or a failure. InvalidArgument when
    // already streaming, for a pixel format other than Mono8 / Mono16 or a
    // pool whose depth does not match it.
    Status Start(CImgPoolCtrlP& pool, const StreamOptions& options = StreamOptions());
    // Ends the stream (the acquisition thread is joined, the camera told to
    // stop, its buffers freed) and returns what ended it early, or OK.
    // Harmless when stopped.
    Status Stop();
    // True from Start until Stop or a failure.
    bool Streaming() const { return m_streaming.load(); }
    // The failure that ended the last stream, or OK.
    Status Error() const;

    CameraCounters Counters() const;
    // Sets the counters to zero while the camera is stopped; positions for
    // the frame counter go on.
    void ResetCounters();

private:
    struct AtomicCounters;
    static unsigned long ThreadMain(void* self);
    void Run();
    // Pushes or counts one frame; false when the stream must end.
    bool Handle(const platform::CameraFrame& frame);
    void Fail(const Status& status);

    std::unique_ptr<platform::CameraDevice> m_device;
    std::unique_ptr<platform::CameraStream> m_stream;
    std::unique_ptr<FrameSequence> m_sequence;
    std::unique_ptr<AtomicCounters> m_counters;
    CImgPoolCtrlP* m_pool = nullptr;  // not owned; set while streaming
    StreamOptions m_options;
    uint32_t m_pixelFormat = 0;
    uint32_t m_bytesPerPixel = 1;
    platform::Env* m_env = nullptr;
    platform::ThreadHandle m_thread = nullptr;
    std::atomic<bool> m_stopRequested{false};
    std::atomic<bool> m_streaming{false};
    bool m_vanished = false;  // written by the thread, read after it is joined
    uint64_t m_underrunsBefore = 0;
    mutable platform::Mutex m_errorMutex;
    Status m_error GRABSYS_GUARDED_BY(m_errorMutex);
};

// The cameras that can be listed without opening them: USB3 Vision ones,
// and with `discover` GigE Vision ones too (which broadcasts a discovery
// request on every interface). NotSupported in a build without Aravis.
GRABSYSTEM_EXPORT Status ListCameras(bool discover, std::vector<CameraDescription>& cameras);

// Whether this build can open cameras.
GRABSYSTEM_EXPORT bool CameraSupport();

}  // namespace camera
}  // namespace GrabSystem
