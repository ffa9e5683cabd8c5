// The camera devices through Aravis 0.8: the only file of the library that
// includes <arv.h>. No GLib main loop is needed: Aravis's stream threads and
// GigE Vision heartbeat run on their own, and every call here is synchronous.
#include <arv.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <mutex>

#include "grabsystem/platform/camera/camera_device.h"

namespace GrabSystem {
namespace platform {

namespace {

// Aravis keeps process-wide state (interfaces, the device list) that
// arv_shutdown() frees; it is called when the last object that used Aravis
// is gone, after streams, cameras and simulators, the order Aravis needs.
// The same lock serialises the calls that change interface state.
std::mutex g_aravisMutex;
int g_aravisUsers = 0;

class AravisUse {
public:
    AravisUse() {
        std::lock_guard<std::mutex> lock(g_aravisMutex);
        ++g_aravisUsers;
    }
    ~AravisUse() {
        std::lock_guard<std::mutex> lock(g_aravisMutex);
        if (--g_aravisUsers == 0) arv_shutdown();
    }
    AravisUse(const AravisUse&) = delete;
    AravisUse& operator=(const AravisUse&) = delete;
};

// A GError that frees itself; Aravis reports most failures through one.
class Error {
public:
    Error() = default;
    ~Error() { Clear(); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;
    GError** Out() {
        Clear();
        return &m_error;
    }
    explicit operator bool() const { return m_error != nullptr; }
    std::string Message() const { return m_error != nullptr ? m_error->message : "unknown error"; }
    bool IsTimeout() const {
        return m_error != nullptr && m_error->domain == arv_device_error_quark() && m_error->code == ARV_DEVICE_ERROR_TIMEOUT;
    }
    void Clear() {
        if (m_error != nullptr) g_error_free(m_error);
        m_error = nullptr;
    }

private:
    GError* m_error = nullptr;
};

template <typename T>
struct Unref {
    void operator()(T* object) const {
        if (object != nullptr) g_object_unref(object);
    }
};
template <typename T>
using GObjectPtr = std::unique_ptr<T, Unref<T>>;

std::string Text(const char* s) { return s != nullptr ? s : ""; }

std::string AddressText(GSocketAddress* address) {
    if (address == nullptr || !G_IS_INET_SOCKET_ADDRESS(address)) return "";
    gchar* text = g_inet_address_to_string(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(address)));
    std::string result = Text(text);
    g_free(text);
    return result;
}

class AravisStream : public CameraStream {
public:
    explicit AravisStream(ArvStream* stream) : m_stream(stream) {}
    // Unref stops the stream's thread and frees every buffer it holds.
    ~AravisStream() override { g_object_unref(m_stream); }

    bool Pop(uint32_t timeoutMs, CameraFrame& frame) override {
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(m_stream, uint64_t{timeoutMs} * 1000);
        if (buffer == nullptr) return false;
        frame = CameraFrame();
        frame.handle = buffer;
        frame.frameId = arv_buffer_get_frame_id(buffer);
        frame.complete = arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS &&
                         arv_buffer_get_payload_type(buffer) == ARV_BUFFER_PAYLOAD_TYPE_IMAGE;
        if (!frame.complete) return true;
        size_t size = 0;
        frame.data = static_cast<const uint8_t*>(arv_buffer_get_image_data(buffer, &size));
        frame.size = size;
        frame.width = static_cast<uint32_t>(std::max(0, arv_buffer_get_image_width(buffer)));
        frame.height = static_cast<uint32_t>(std::max(0, arv_buffer_get_image_height(buffer)));
        gint paddingX = 0, paddingY = 0;
        arv_buffer_get_image_padding(buffer, &paddingX, &paddingY);
        frame.rowPadding = static_cast<uint32_t>(std::max(0, paddingX));
        frame.pixelFormat = arv_buffer_get_image_pixel_format(buffer);
        return true;
    }

    void Requeue(CameraFrame& frame) override {
        arv_stream_push_buffer(m_stream, static_cast<ArvBuffer*>(frame.handle));
        frame.handle = nullptr;
    }

    uint64_t Underruns() override {
        guint64 completed = 0, failures = 0, underruns = 0;
        arv_stream_get_statistics(m_stream, &completed, &failures, &underruns);
        return underruns;
    }

private:
    ArvStream* m_stream;
};

class AravisDevice : public CameraDevice {
public:
    // Takes the device; the camera object is made over it.
    static Status Make(std::string name, ArvDevice* device, bool simulated, std::unique_ptr<CameraDevice>& out) {
        auto made = std::unique_ptr<AravisDevice>(new AravisDevice(std::move(name), device, simulated));
        Error error;
        made->m_camera.reset(arv_camera_new_with_device(device, error.Out()));
        if (!made->m_camera) return Status::IOError(made->m_name, "cannot be driven as a GenICam camera: " + error.Message());
        made->m_gige = arv_camera_is_gv_device(made->m_camera.get());
        // The same receive path for root and others: no packet socket.
        if (made->m_gige) arv_camera_gv_set_stream_options(made->m_camera.get(), ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
        out = std::move(made);
        return Status::OK();
    }

    const std::string& Name() const override { return m_name; }
    int FrameIdBits() const override { return m_gige || m_simulated ? 16 : 64; }

    Status Describe(CameraDescription& d) override {
        ArvCamera* cam = m_camera.get();
        Error error;
        d = CameraDescription();
        d.id = Text(arv_camera_get_device_id(cam, error.Out()));
        d.vendor = Text(arv_camera_get_vendor_name(cam, error.Out()));
        d.model = Text(arv_camera_get_model_name(cam, error.Out()));
        d.serial = Text(arv_camera_get_device_serial_number(cam, error.Out()));
        d.protocol = m_simulated ? "Fake" : m_gige ? "GigEVision" : arv_camera_is_uv_device(cam) ? "USB3Vision" : "";
        if (m_gige) d.address = AddressText(arv_gv_device_get_device_address(ARV_GV_DEVICE(m_device.get())));
        gint sw = 0, sh = 0, x = 0, y = 0, w = 0, h = 0;
        arv_camera_get_sensor_size(cam, &sw, &sh, error.Out());
        if (error) return Fail("cannot be read", error);
        arv_camera_get_region(cam, &x, &y, &w, &h, error.Out());
        if (error) return Fail("cannot be read", error);
        d.sensorWidth = static_cast<uint32_t>(sw);
        d.sensorHeight = static_cast<uint32_t>(sh);
        d.x = static_cast<uint32_t>(x), d.y = static_cast<uint32_t>(y);
        d.width = static_cast<uint32_t>(w), d.height = static_cast<uint32_t>(h);
        d.pixelFormat = Text(arv_camera_get_pixel_format_as_string(cam, error.Out()));
        d.pixelFormatCode = arv_camera_get_pixel_format(cam, error.Out());
        if (arv_camera_is_frame_rate_available(cam, nullptr)) d.frameRate = arv_camera_get_frame_rate(cam, nullptr);
        if (m_gige) d.packetSize = arv_camera_gv_get_packet_size(cam, nullptr);
        d.payload = arv_camera_get_payload(cam, error.Out());
        if (error) return Fail("cannot be read", error);
        return Status::OK();
    }

    Status SetRegion(uint32_t x, uint32_t y, uint32_t width, uint32_t height) override {
        ArvCamera* cam = m_camera.get();
        Error error;
        gint sw = 0, sh = 0;
        arv_camera_get_sensor_size(cam, &sw, &sh, error.Out());
        if (error) return Fail("cannot be read", error);
        const std::string asked = std::to_string(width) + " x " + std::to_string(height) + " at " + std::to_string(x) +
                                  "," + std::to_string(y);
        // Cameras are not required to refuse what does not fit (the
        // simulated one takes anything), so the sensor bounds it here.
        if (width == 0 || height == 0 || uint64_t{x} + width > static_cast<uint64_t>(sw) ||
            uint64_t{y} + height > static_cast<uint64_t>(sh))
            return Status::InvalidArgument(m_name, "region " + asked + " does not fit its " + std::to_string(sw) +
                                                       " x " + std::to_string(sh) + " sensor");
        arv_camera_set_region(cam, static_cast<gint>(x), static_cast<gint>(y), static_cast<gint>(width),
                              static_cast<gint>(height), error.Out());
        if (error) return Fail("refused region " + asked, error);
        gint gx = 0, gy = 0, gw = 0, gh = 0;
        arv_camera_get_region(cam, &gx, &gy, &gw, &gh, error.Out());
        if (error) return Fail("cannot be read", error);
        if (gx != static_cast<gint>(x) || gy != static_cast<gint>(y) || gw != static_cast<gint>(width) ||
            gh != static_cast<gint>(height))
            return Status::InvalidArgument(m_name, "region " + asked + " not taken: it set " + std::to_string(gw) + " x " +
                                                       std::to_string(gh) + " at " + std::to_string(gx) + "," +
                                                       std::to_string(gy) + " (check its size and offset increments)");
        return Status::OK();
    }

    Status SetPixelFormat(uint32_t pfnc) override {
        const char* name = pfnc == kPixelMono16 ? "Mono16" : "Mono8";
        Error error;
        guint count = 0;
        gint64* formats = arv_camera_dup_available_pixel_formats(m_camera.get(), &count, error.Out());
        bool offered = false;
        for (guint i = 0; i < count; ++i) offered = offered || static_cast<uint32_t>(formats[i]) == pfnc;
        g_free(formats);
        if (error) return Fail("cannot list its pixel formats", error);
        if (!offered) return Status::NotSupported(m_name, std::string("does not offer pixel format ") + name);
        arv_camera_set_pixel_format(m_camera.get(), pfnc, error.Out());
        if (error) return Fail(std::string("refused pixel format ") + name, error);
        return Status::OK();
    }

    Status SetFrameRate(double fps) override {
        ArvCamera* cam = m_camera.get();
        Error error;
        if (!arv_camera_is_frame_rate_available(cam, error.Out()))
            return Status::NotSupported(m_name, "has no frame rate setting");
        double low = 0, high = 0;
        arv_camera_get_frame_rate_bounds(cam, &low, &high, error.Out());
        if (error) return Fail("cannot be read", error);
        if (fps < low || fps > high)
            return Status::InvalidArgument(m_name, "frame rate " + Number(fps) + " outside its range " + Number(low) +
                                                       " to " + Number(high) + " fps");
        arv_camera_set_frame_rate(cam, fps, error.Out());
        if (error) return Fail("refused frame rate " + Number(fps), error);
        const double got = arv_camera_get_frame_rate(cam, nullptr);
        if (std::fabs(got - fps) > 0.01 * fps)
            return Status::InvalidArgument(m_name, "frame rate " + Number(fps) + " not taken: it runs at " + Number(got));
        return Status::OK();
    }

    Status SetPacketSize(uint32_t bytes) override {
        if (!m_gige) return Status::NotSupported(m_name, "has no packet size: it is not a GigE Vision camera");
        Error error;
        arv_camera_gv_set_packet_size(m_camera.get(), static_cast<gint>(bytes), error.Out());
        if (error) return Fail("refused packet size " + std::to_string(bytes), error);
        const guint got = arv_camera_gv_get_packet_size(m_camera.get(), nullptr);
        if (got != bytes)
            return Status::InvalidArgument(m_name, "packet size " + std::to_string(bytes) + " not taken: it uses " +
                                                       std::to_string(got));
        return Status::OK();
    }

    Status SetSocketBuffer(uint32_t bytes) override {
        if (!m_gige) return Status::NotSupported(m_name, "has no socket buffer: it is not a GigE Vision camera");
        m_socketBuffer = bytes;
        return Status::OK();
    }

    Status OpenStream(uint32_t buffers, std::unique_ptr<CameraStream>& stream) override {
        Error error;
        const guint payload = arv_camera_get_payload(m_camera.get(), error.Out());
        if (error) return Fail("cannot be read", error);
        ArvStream* s = arv_camera_create_stream(m_camera.get(), nullptr, nullptr, error.Out());
        if (s == nullptr) return Fail("cannot open a stream", error);
        if (m_gige) {
            // A fixed buffer, not one sized by Aravis from the payload, so the
            // figure in the README is the one in use; no resend requests, so
            // a frame with packets missing is counted, never patched up.
            g_object_set(s, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
                         static_cast<gint>(m_socketBuffer), "packet-resend", ARV_GV_STREAM_PACKET_RESEND_NEVER, nullptr);
        }
        for (uint32_t i = 0; i < buffers; ++i) arv_stream_push_buffer(s, arv_buffer_new_allocate(payload));
        stream = std::make_unique<AravisStream>(s);
        return Status::OK();
    }

    Status StartAcquisition() override {
        Error error;
        arv_camera_start_acquisition(m_camera.get(), error.Out());
        return error ? Fail("did not start", error) : Status::OK();
    }

    Status StopAcquisition() override {
        Error error;
        arv_camera_stop_acquisition(m_camera.get(), error.Out());
        return error ? Fail("did not stop", error) : Status::OK();
    }

    Status Probe() override {
        Error error;
        arv_camera_get_integer(m_camera.get(), "Width", error.Out());
        if (!error) return Status::OK();
        return error.IsTimeout() ? Status::TimedOut(m_name, error.Message()) : Status::IOError(m_name, error.Message());
    }

private:
    AravisDevice(std::string name, ArvDevice* device, bool simulated)
        : m_name(std::move(name)), m_device(device), m_simulated(simulated) {}

    Status Fail(const std::string& what, const Error& error) const {
        const std::string cause = what + " (" + error.Message() + ")";
        return error.IsTimeout() ? Status::TimedOut(m_name, cause) : Status::IOError(m_name, cause);
    }
    static std::string Number(double value) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", value);
        return text;
    }

    AravisUse m_use;  // declared first: released after the camera and device
    std::string m_name;
    GObjectPtr<ArvDevice> m_device;
    GObjectPtr<ArvCamera> m_camera;  // declared after the device: released first
    bool m_simulated;
    bool m_gige = false;
    uint32_t m_socketBuffer = 4u << 20;
};

class AravisGigESimulator : public GigECameraSimulator {
public:
    explicit AravisGigESimulator(ArvGvFakeCamera* camera) : m_camera(camera) {}
    void SetPacketLoss(double ratio) override { g_object_set(m_camera.get(), "gvsp-lost-ratio", ratio, nullptr); }

private:
    AravisUse m_use;
    GObjectPtr<ArvGvFakeCamera> m_camera;
};

GObjectPtr<GInetAddress> ParseIPv4(const std::string& text) {
    GObjectPtr<GInetAddress> address(g_inet_address_new_from_string(text.c_str()));
    if (address && g_inet_address_get_family(address.get()) != G_SOCKET_FAMILY_IPV4) address.reset();
    return address;
}

}  // namespace

bool CameraSupport() { return true; }

Status OpenSimulatedCamera(const std::string& serial, std::unique_ptr<CameraDevice>& device) {
    AravisUse use;
    const std::string name = "simulated camera " + serial;
    Error error;
    ArvDevice* fake = arv_fake_device_new(serial.c_str(), error.Out());
    if (fake == nullptr) return Status::IOError(name, "cannot be made: " + error.Message());
    return AravisDevice::Make(name, fake, true, device);
}

Status OpenCameraAtAddress(const std::string& address, std::unique_ptr<CameraDevice>& device) {
    AravisUse use;
    const std::string name = "camera at " + address;
    GObjectPtr<GInetAddress> remote = ParseIPv4(address);
    if (!remote) return Status::InvalidArgument(name, "not an IPv4 address");
    // The local address that routes to the camera, found by connecting a
    // UDP socket, which sends nothing: no discovery, no broadcast.
    Error error;
    GObjectPtr<GSocket> probe(g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_DATAGRAM, G_SOCKET_PROTOCOL_UDP, error.Out()));
    if (!probe) return Status::IOError(name, "no UDP socket: " + error.Message());
    GObjectPtr<GSocketAddress> target(g_inet_socket_address_new(remote.get(), 3956));
    if (!g_socket_connect(probe.get(), target.get(), nullptr, error.Out()))
        return Status::NotFound(name, "no route to it (" + error.Message() + ")");
    GObjectPtr<GSocketAddress> local(g_socket_get_local_address(probe.get(), error.Out()));
    if (!local) return Status::IOError(name, "no local address routes to it: " + error.Message());
    GInetAddress* iface = g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(local.get()));
    ArvDevice* gv = arv_gv_device_new(iface, remote.get(), error.Out());
    if (gv == nullptr) {
        const std::string cause = "no GigE Vision camera answers there (" + error.Message() + ")";
        return error.IsTimeout() || error.Message().find("timeout") != std::string::npos ? Status::TimedOut(name, cause)
                                                                                         : Status::IOError(name, cause);
    }
    return AravisDevice::Make(name, gv, false, device);
}

Status OpenCameraById(const std::string& id, bool discover, std::unique_ptr<CameraDevice>& device) {
    AravisUse use;
    const std::string name = "camera " + id;
    ArvDevice* found = nullptr;
    Error error;
    {
        std::lock_guard<std::mutex> lock(g_aravisMutex);
        // Finding a GigE Vision camera by id means a discovery broadcast on
        // every interface: only when asked. USB3 Vision enumeration is local.
        if (discover)
            arv_enable_interface("GigEVision");
        else
            arv_disable_interface("GigEVision");
        found = arv_open_device(id.c_str(), error.Out());
    }
    if (found == nullptr)
        return Status::NotFound(name, std::string(discover ? "not found (USB3 Vision and GigE Vision discovery: "
                                                           : "not found among USB3 Vision cameras; GigE Vision ones need discovery or their address (") +
                                          error.Message() + ")");
    return AravisDevice::Make(name, found, false, device);
}

Status ListCameraDevices(bool discover, std::vector<CameraDescription>& cameras) {
    AravisUse use;
    cameras.clear();
    std::lock_guard<std::mutex> lock(g_aravisMutex);
    if (discover)
        arv_enable_interface("GigEVision");
    else
        arv_disable_interface("GigEVision");
    arv_update_device_list();
    for (unsigned i = 0; i < arv_get_n_devices(); ++i) {
        CameraDescription d;
        d.id = Text(arv_get_device_id(i));
        d.vendor = Text(arv_get_device_vendor(i));
        d.model = Text(arv_get_device_model(i));
        d.serial = Text(arv_get_device_serial_nbr(i));
        d.protocol = Text(arv_get_device_protocol(i));
        d.address = Text(arv_get_device_address(i));
        cameras.push_back(d);
    }
    return Status::OK();
}

Status GigECameraSimulator::Start(const std::string& serial, std::unique_ptr<GigECameraSimulator>& simulator) {
    const std::string name = "simulated GigE Vision camera " + serial;
    auto made = std::make_unique<AravisGigESimulator>(arv_gv_fake_camera_new("127.0.0.1", serial.c_str()));
    // A second simulator cannot bind the port and says nothing: ask who answers.
    std::unique_ptr<CameraDevice> client;
    CameraDescription d;
    Status s = OpenCameraAtAddress("127.0.0.1", client);
    if (s.ok()) s = client->Describe(d);
    if (!s.ok()) return Status::IOError(name, "does not answer on 127.0.0.1: " + s.ToString());
    if (d.serial != serial)
        return Status::IOError(name, "cannot bind 127.0.0.1 port 3956: camera " + d.serial + " answers there");
    simulator = std::move(made);
    return Status::OK();
}

}  // namespace platform
}  // namespace GrabSystem
