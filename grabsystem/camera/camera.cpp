#include "grabsystem/camera/camera.h"

#include <algorithm>
#include <cstdio>

#include "grabsystem/camera/frame_sequence.h"
#include "grabsystem/platform/camera/camera_device.h"

namespace GrabSystem {
namespace camera {

// Written by the acquisition thread only; read from any thread.
struct Camera::AtomicCounters {
    std::atomic<uint64_t> sent{0}, completed{0}, pushed{0}, refusedNoFreeNode{0}, refusedTooLarge{0}, overwritten{0},
        incomplete{0}, missed{0}, underruns{0}, timeouts{0}, bytesPushed{0};

    static void Add(std::atomic<uint64_t>& counter, uint64_t n) { counter.store(counter.load() + n); }
};

namespace {
std::string Hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}
}  // namespace

Status ParsePixelFormat(const std::string& name, PixelFormat& format) {
    if (name == "Mono8") {
        format = PixelFormat::kMono8;
    } else if (name == "Mono16") {
        format = PixelFormat::kMono16;
    } else {
        return Status::InvalidArgument("", "pixel format " + name + " is not supported: Mono8 (into 8-bit pools) or Mono16 (into 16-bit pools)");
    }
    return Status::OK();
}

bool CameraSupport() { return platform::CameraSupport(); }

Status ListCameras(bool discover, std::vector<CameraDescription>& cameras) {
    return platform::ListCameraDevices(discover, cameras);
}

Status Camera::Open(const CameraSpec& which, std::unique_ptr<Camera>& camera) {
    std::unique_ptr<platform::CameraDevice> device;
    Status s;
    switch (which.source) {
        case CameraSpec::Source::kSimulated: s = platform::OpenSimulatedCamera(which.name, device); break;
        case CameraSpec::Source::kAddress: s = platform::OpenCameraAtAddress(which.name, device); break;
        case CameraSpec::Source::kDeviceId: s = platform::OpenCameraById(which.name, which.discover, device); break;
    }
    if (!s.ok()) return s;
    camera = std::make_unique<Camera>(std::move(device));
    return Status::OK();
}

Camera::Camera(std::unique_ptr<platform::CameraDevice> device)
    : m_device(std::move(device)),
      m_sequence(std::make_unique<FrameSequence>(m_device->FrameIdBits())),
      m_counters(std::make_unique<AtomicCounters>()) {}

Camera::~Camera() { Stop(); }

const std::string& Camera::Name() const { return m_device->Name(); }

Status Camera::Describe(CameraDescription& description) { return m_device->Describe(description); }

Status Camera::Configure(const CameraSettings& settings) {
    if (Streaming() || m_thread != nullptr) return Status::InvalidArgument(Name(), "cannot be configured while it streams");
    Status s;
    if (settings.width != 0 || settings.height != 0) s = m_device->SetRegion(settings.x, settings.y, settings.width, settings.height);
    if (s.ok()) s = m_device->SetPixelFormat(settings.pixelFormat == PixelFormat::kMono16 ? platform::kPixelMono16 : platform::kPixelMono8);
    if (s.ok() && settings.frameRate > 0) s = m_device->SetFrameRate(settings.frameRate);
    if (s.ok() && settings.packetSize != 0) s = m_device->SetPacketSize(settings.packetSize);
    // The socket buffer is a GigE Vision setting with a default: other
    // cameras have none to refuse.
    if (s.ok() && settings.socketBuffer != 0) {
        const Status buffer = m_device->SetSocketBuffer(settings.socketBuffer);
        if (!buffer.IsNotSupported()) s = buffer;
    }
    return s;
}

Status Camera::Start(CImgPoolCtrlP& pool, const StreamOptions& options) {
    if (m_thread != nullptr) return Status::InvalidArgument(Name(), "already streams (or its stream ended and was not stopped)");
    CameraDescription d;
    Status s = m_device->Describe(d);
    if (!s.ok()) return s;
    if (d.pixelFormatCode != platform::kPixelMono8 && d.pixelFormatCode != platform::kPixelMono16)
        return Status::InvalidArgument(Name(), "sends pixel format " + d.pixelFormat +
                                                   ": only Mono8 (into 8-bit pools) and Mono16 (into 16-bit pools) are taken");
    const unsigned bits = d.pixelFormatCode == platform::kPixelMono16 ? 16 : 8;
    if (pool.GetBits() != bits)
        return Status::InvalidArgument(Name(), d.pixelFormat + " frames need a " + std::to_string(bits) +
                                                   "-bit pool; this pool makes " + std::to_string(pool.GetBits()) + "-bit images");
    if (options.buffers == 0 || options.frameTimeoutMs == 0)
        return Status::InvalidArgument(Name(), "a stream needs at least one buffer and a frame timeout");
    m_pixelFormat = d.pixelFormatCode;
    m_bytesPerPixel = bits / 8;
    m_options = options;
    m_pool = &pool;
    m_vanished = false;
    {
        platform::MutexLock lock(m_errorMutex);
        m_error = Status::OK();
    }
    s = m_device->OpenStream(options.buffers, m_stream);
    if (s.ok()) s = m_device->StartAcquisition();
    if (!s.ok()) {
        m_stream.reset();
        return s;
    }
    m_sequence->Restart();
    m_stopRequested = false;
    m_streaming = true;
    m_env = platform::Env::Default();
    m_thread = m_env->StartThread(&Camera::ThreadMain, this);
    if (m_thread == nullptr) {
        m_streaming = false;
        m_device->StopAcquisition();
        m_stream.reset();
        return Status::IOError(Name(), "no acquisition thread could be started");
    }
    return Status::OK();
}

Status Camera::Stop() {
    if (m_thread != nullptr) {
        m_stopRequested = true;
        m_env->WaitThread(m_thread, nullptr);
        m_env->CloseThread(m_thread);
        m_thread = nullptr;
    }
    m_streaming = false;
    if (m_stream) {
        // A camera that vanished is not spoken to again: each call would
        // only wait for the protocol's timeout.
        if (!m_vanished) {
            const Status stopped = m_device->StopAcquisition();
            if (!stopped.ok()) Fail(stopped);
        }
        m_underrunsBefore += m_stream->Underruns();
        m_counters->underruns.store(m_underrunsBefore);
        m_stream.reset();
    }
    m_pool = nullptr;
    return Error();
}

Status Camera::Error() const {
    platform::MutexLock lock(m_errorMutex);
    return m_error;
}

void Camera::Fail(const Status& status) {
    platform::MutexLock lock(m_errorMutex);
    m_error.Update(status);
}

CameraCounters Camera::Counters() const {
    const AtomicCounters& a = *m_counters;
    CameraCounters c;
    c.sent = a.sent;
    c.completed = a.completed;
    c.pushed = a.pushed;
    c.refusedNoFreeNode = a.refusedNoFreeNode;
    c.refusedTooLarge = a.refusedTooLarge;
    c.overwritten = a.overwritten;
    c.incomplete = a.incomplete;
    c.missed = a.missed;
    c.underruns = a.underruns;
    c.timeouts = a.timeouts;
    c.bytesPushed = a.bytesPushed;
    return c;
}

void Camera::ResetCounters() {
    AtomicCounters& a = *m_counters;
    for (auto* counter : {&a.sent, &a.completed, &a.pushed, &a.refusedNoFreeNode, &a.refusedTooLarge, &a.overwritten,
                          &a.incomplete, &a.missed, &a.underruns, &a.timeouts, &a.bytesPushed})
        counter->store(0);
    m_underrunsBefore = 0;
}

unsigned long Camera::ThreadMain(void* self) {
    static_cast<Camera*>(self)->Run();
    return 0;
}

void Camera::Run() {
    // Short waits, so that Stop is answered within one of them.
    const uint32_t slice = std::min<uint32_t>(100, m_options.frameTimeoutMs);
    uint32_t quietSince = m_env->NowMs();
    while (!m_stopRequested.load()) {
        platform::CameraFrame frame;
        if (!m_stream->Pop(slice, frame)) {
            const uint32_t now = m_env->NowMs();
            const uint32_t quiet = now - quietSince;
            if (quiet < m_options.frameTimeoutMs) continue;
            AtomicCounters::Add(m_counters->timeouts, 1);
            const Status alive = m_device->Probe();
            if (!alive.ok()) {
                m_vanished = true;
                Fail(Status::TimedOut(Name(), "no frame for " + std::to_string(quiet) + " ms and it no longer answers (" +
                                                  alive.cause() + ")"));
                break;
            }
            quietSince = m_env->NowMs();
            continue;
        }
        quietSince = m_env->NowMs();
        const bool goOn = Handle(frame);
        m_stream->Requeue(frame);
        m_counters->underruns.store(m_underrunsBefore + m_stream->Underruns());
        if (!goOn) break;
    }
    m_streaming = false;
}

bool Camera::Handle(const platform::CameraFrame& frame) {
    AtomicCounters& c = *m_counters;
    const FrameSequence::Placed placed = m_sequence->Place(frame.frameId);
    if (placed.late && c.missed.load() > 0) {
        c.missed.store(c.missed.load() - 1);  // it was counted missed when a later frame came first
    } else {
        AtomicCounters::Add(c.missed, placed.skipped);
        AtomicCounters::Add(c.sent, placed.skipped + 1);
    }
    if (!frame.complete) {
        AtomicCounters::Add(c.incomplete, 1);
        return true;
    }
    if (frame.pixelFormat != m_pixelFormat) {
        AtomicCounters::Add(c.incomplete, 1);
        Fail(Status::InvalidArgument(Name(), "sent a frame in another pixel format than it was set to (PFNC " +
                                                 Hex(frame.pixelFormat) + "): was it reconfigured by another program?"));
        return false;
    }
    const size_t rowBytes = size_t{frame.width} * m_bytesPerPixel;
    const size_t needed = frame.height == 0 ? 0 : (rowBytes + frame.rowPadding) * (frame.height - 1) + rowBytes;
    if (frame.data == nullptr || needed > frame.size || rowBytes == 0) {
        // Said to be complete, but its geometry does not fit its bytes.
        AtomicCounters::Add(c.incomplete, 1);
        return true;
    }
    AtomicCounters::Add(c.completed, 1);
    const unsigned attr = m_options.frameAttr == StreamOptions::FrameAttr::kFrameId
                              ? static_cast<unsigned>(frame.frameId)
                              : static_cast<unsigned>(m_options.firstCounter + placed.position);
    // The pool's counters tell which of its outcomes the push had: the
    // camera is its only producer, and consumers move only `released`.
    const PoolCounters before = m_pool->GetCounters();
    const bool taken = m_pool->PushImg(const_cast<uint8_t*>(frame.data), rowBytes, frame.height, frame.rowPadding, attr);
    const PoolCounters after = m_pool->GetCounters();
    if (taken) {
        AtomicCounters::Add(after.overwritten > before.overwritten ? c.overwritten : c.pushed, 1);
        AtomicCounters::Add(c.bytesPushed, rowBytes * frame.height);
    } else {
        AtomicCounters::Add(after.refusedTooLarge > before.refusedTooLarge ? c.refusedTooLarge : c.refusedNoFreeNode, 1);
    }
    return true;
}

}  // namespace camera
}  // namespace GrabSystem
