// CameraDevice and CameraStream: the small interface through which the
// camera layer (grabsystem/camera/) drives a GenICam camera, so that only
// one file of the library includes Aravis (aravis_camera.cpp) and the
// streaming logic above it can be tested against a scripted device.
//
// A device is opened one of three ways, none of which broadcasts unless the
// caller asks: the in-process simulated camera, a GigE Vision camera at an
// IPv4 address (connected directly), or an Aravis device id (USB3 Vision
// enumeration; GigE Vision discovery only with `discover`). A build without
// Aravis answers NotSupported to every open.
//
// Threads: a device is driven by one thread at a time (the camera layer's
// caller, then its acquisition thread between Start and Stop); a stream by
// the acquisition thread only.
//
// Internal to the library: not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/platform/camera/camera_description.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace platform {

// GenICam pixel format codes (PFNC) of the formats the pools take.
constexpr uint32_t kPixelMono8 = 0x01080001;
constexpr uint32_t kPixelMono16 = 0x01100007;

// One buffer taken from a stream. `handle` is the backend's; the frame is
// valid until it is given back with Requeue.
struct CameraFrame {
    bool complete = false;  // every byte arrived; otherwise it must not be used
    const uint8_t* data = nullptr;
    size_t size = 0;  // bytes at data
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t rowPadding = 0;  // bytes after each row
    uint32_t pixelFormat = 0;
    uint64_t frameId = 0;
    void* handle = nullptr;
};

class CameraStream {
public:
    virtual ~CameraStream() = default;  // stops the stream and frees its buffers

    // Waits up to `timeoutMs` for the next frame; false when none came.
    virtual bool Pop(uint32_t timeoutMs, CameraFrame& frame) = 0;
    // Gives a popped frame's buffer back for a next frame.
    virtual void Requeue(CameraFrame& frame) = 0;
    // Frames the stream had no free buffer for, since it was opened.
    virtual uint64_t Underruns() = 0;
};

class CameraDevice {
public:
    virtual ~CameraDevice() = default;

    // How messages name the camera: "simulated camera SIM0",
    // "camera at 192.168.1.20", "camera Basler-123".
    virtual const std::string& Name() const = 0;
    // 16: GigE Vision block ids, which wrap after 65535 and skip 0;
    // 64: ids that do not wrap.
    virtual int FrameIdBits() const = 0;
    virtual Status Describe(CameraDescription& description) = 0;

    virtual Status SetRegion(uint32_t x, uint32_t y, uint32_t width, uint32_t height) = 0;
    virtual Status SetPixelFormat(uint32_t pfnc) = 0;
    virtual Status SetFrameRate(double fps) = 0;
    // GigE Vision only (NotSupported elsewhere): stream packet size, and the
    // receive buffer of the streams opened afterwards.
    virtual Status SetPacketSize(uint32_t bytes) = 0;
    virtual Status SetSocketBuffer(uint32_t bytes) = 0;

    // A stream with `buffers` frame buffers of the current payload, queued.
    virtual Status OpenStream(uint32_t buffers, std::unique_ptr<CameraStream>& stream) = 0;
    virtual Status StartAcquisition() = 0;
    virtual Status StopAcquisition() = 0;
    // Whether the camera still answers (one read from it); bounded by the
    // protocol's own timeout and retries.
    virtual Status Probe() = 0;
};

// Whether this build has camera support (Aravis).
bool CameraSupport();

Status OpenSimulatedCamera(const std::string& serial, std::unique_ptr<CameraDevice>& device);
Status OpenCameraAtAddress(const std::string& address, std::unique_ptr<CameraDevice>& device);
Status OpenCameraById(const std::string& id, bool discover, std::unique_ptr<CameraDevice>& device);
// USB3 Vision cameras, and GigE Vision ones only with `discover` (which
// broadcasts on every interface).
Status ListCameraDevices(bool discover, std::vector<CameraDescription>& cameras);

// A GigE Vision camera simulated on the loopback interface: real GVCP and
// GVSP over UDP, for tests and benchmarks. It binds the fixed GVCP port
// 3956 of 127.0.0.1, so one runs at a time on a machine: Start fails when
// the port is taken (a camera answering with another serial).
class GigECameraSimulator {
public:
    virtual ~GigECameraSimulator() = default;  // the camera vanishes
    static Status Start(const std::string& serial, std::unique_ptr<GigECameraSimulator>& simulator);
    // The share of stream packets it drops on purpose (0 to 1).
    virtual void SetPacketLoss(double ratio) = 0;
};

}  // namespace platform
}  // namespace GrabSystem
