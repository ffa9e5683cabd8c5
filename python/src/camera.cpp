// Cameras from Python: a GenICam camera streaming into an ImagePool, its
// counters, and the simulated camera's picture for checking frames.
#include <pybind11/stl.h>

#include <memory>

#include "common.h"
#include "grabsystem/camera/camera.h"
#include "grabsystem/camera/simulated_pattern.h"

namespace grabsys_py {
namespace {

using namespace GrabSystem::camera;

void Check(const GrabSystem::Status& status) {
    if (!status.ok()) Raise(status);
}

py::dict DescriptionDict(const CameraDescription& d) {
    py::dict r;
    r["id"] = d.id;
    r["vendor"] = d.vendor;
    r["model"] = d.model;
    r["serial"] = d.serial;
    r["protocol"] = d.protocol;
    r["address"] = d.address;
    r["sensor"] = py::make_tuple(d.sensorWidth, d.sensorHeight);
    r["region"] = py::make_tuple(d.x, d.y, d.width, d.height);
    r["pixel_format"] = d.pixelFormat;
    r["frame_rate"] = d.frameRate;
    r["packet_size"] = d.packetSize;
    r["payload"] = d.payload;
    return r;
}


// A camera and the pool it streams into, which it keeps alive meanwhile.
class PyCamera {
public:
    PyCamera(const py::object& simulated, const py::object& address, const py::object& deviceId, bool discover) {
        const int given = !simulated.is_none() + !address.is_none() + !deviceId.is_none();
        if (given != 1) throw py::value_error("one of simulated=SERIAL, address=IP or device_id=ID");
        const CameraSpec which = !simulated.is_none() ? CameraSpec::Simulated(simulated.cast<std::string>())
                                : !address.is_none() ? CameraSpec::Address(address.cast<std::string>())
                                                     : CameraSpec::DeviceId(deviceId.cast<std::string>(), discover);
        GrabSystem::Status s;
        {
            py::gil_scoped_release release;
            s = Camera::Open(which, m_camera);
        }
        Check(s);
    }

    void Configure(uint32_t width, uint32_t height, uint32_t x, uint32_t y, const std::string& format, double frameRate,
                   uint32_t packetSize, uint32_t socketBuffer) {
        CameraSettings settings;
        settings.width = width, settings.height = height, settings.x = x, settings.y = y;
        Check(ParsePixelFormat(format, settings.pixelFormat));
        settings.frameRate = frameRate;
        settings.packetSize = packetSize;
        settings.socketBuffer = socketBuffer;
        Call([&] { return m_camera->Configure(settings); });
    }

    void Start(const py::object& pool, const std::string& frameAttr, uint32_t firstCounter, uint32_t buffers, uint32_t timeoutMs) {
        if (frameAttr != "frame_id" && frameAttr != "counter") throw py::value_error("frame_attr: 'frame_id' or 'counter'");
        GrabSystem::CImgPoolCtrlP& target = PoolOf(pool);
        StreamOptions options;
        options.frameAttr = frameAttr == "counter" ? StreamOptions::FrameAttr::kCounter : StreamOptions::FrameAttr::kFrameId;
        options.firstCounter = firstCounter;
        options.buffers = buffers;
        options.frameTimeoutMs = timeoutMs;
        Call([&] { return m_camera->Start(target, options); });
        m_pool = pool;
    }

    void Stop() {
        Call([&] { return m_camera->Stop(); });
        m_pool = py::none();
    }

    Camera& Get() { return *m_camera; }
    py::dict Describe() {
        CameraDescription d;
        Call([&] { return m_camera->Describe(d); });
        return DescriptionDict(d);
    }

private:
    // Camera calls may wait for the network: without the GIL.
    template <typename F>
    void Call(F call) {
        GrabSystem::Status s;
        {
            py::gil_scoped_release release;
            s = call();
        }
        if (!s.ok()) {
            // A failed stop has still stopped: the pool is free again.
            if (!m_camera->Streaming()) m_pool = py::none();
            Raise(s);
        }
    }

    py::object m_pool = py::none();    // released after the camera (declared first)
    std::unique_ptr<Camera> m_camera;  // stops its stream when destroyed
};

uint64_t CheckPattern(const py::handle& frame, uint64_t frameId) {
    const py::array a = py::array::ensure(frame, py::array::c_style);
    if (!a || a.ndim() != 2 || (a.itemsize() != 1 && a.itemsize() != 2) || a.shape(0) > UINT32_MAX || a.shape(1) > UINT32_MAX)
        throw py::value_error("frame: a 2-D array of uint8 or uint16");
    return CheckSimulatedPattern(a.data(), static_cast<uint32_t>(a.shape(1)), static_cast<uint32_t>(a.shape(0)),
                                 static_cast<unsigned>(a.itemsize() * 8), frameId)
        .wrong;
}

}  // namespace

void BindCamera(py::module_& m) {
    py::class_<PyCamera>(m, "Camera",
                         "A GenICam camera (through Aravis) that streams into an ImagePool: Mono8 into 8-bit\n"
                         "pools, Mono16 into 16-bit pools. Open one of: simulated=SERIAL (Aravis's in-process\n"
                         "simulated camera), address=IP (a GigE Vision camera, connected directly), or\n"
                         "device_id=ID (USB3 Vision; GigE Vision too with discover=True, which broadcasts).\n"
                         "Failures raise CameraError naming the camera and the cause.")
        .def(py::init<const py::object&, const py::object&, const py::object&, bool>(), py::kw_only(),
             py::arg("simulated") = py::none(), py::arg("address") = py::none(), py::arg("device_id") = py::none(),
             py::arg("discover") = false)
        .def("configure", &PyCamera::Configure, py::kw_only(), py::arg("width") = 0, py::arg("height") = 0, py::arg("x") = 0,
             py::arg("y") = 0, py::arg("pixel_format") = "Mono8", py::arg("frame_rate") = 0.0, py::arg("packet_size") = 0,
             py::arg("socket_buffer") = 4u << 20,
             "Sets region (0: keep), pixel format, and when given frame rate and GigE Vision packet\n"
             "size and socket buffer, each read back; only while stopped.")
        .def("start", &PyCamera::Start, py::arg("pool"), py::kw_only(), py::arg("frame_attr") = "frame_id",
             py::arg("first_counter") = 0, py::arg("buffers") = 8, py::arg("timeout_ms") = 1000,
             "Streams into `pool` on a thread of the library until stop(): each complete frame is\n"
             "pushed with the camera's frame id (or first_counter + its position) as frame_attr.")
        .def("stop", &PyCamera::Stop, "Ends the stream; raises CameraError if it had ended by a failure.")
        .def("reset_counters", [](PyCamera& c) { c.Get().ResetCounters(); })
        .def_property_readonly("name", [](PyCamera& c) { return c.Get().Name(); })
        .def_property_readonly("streaming", [](PyCamera& c) { return c.Get().Streaming(); })
        .def_property_readonly("description", &PyCamera::Describe)
        .def_property_readonly("counters",
                               [](PyCamera& c) {
                                   return CountersDict(c.Get().Counters(), GrabSystem::camera::kCameraCounterFields);
                               },
                               "What became of every frame the camera sent: sent == pushed + refused_no_free_node\n"
                               "+ refused_too_large + overwritten + incomplete + missed; with completed, underruns,\n"
                               "timeouts and bytes_pushed.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](PyCamera& c, const py::object& type, const py::object&, const py::object&) {
            // A failure of the stream is raised unless another exception is on its way.
            if (type.is_none()) return c.Stop();
            py::gil_scoped_release release;
            c.Get().Stop();
        });

    m.def("list_cameras",
          [](bool discover) {
              std::vector<CameraDescription> found;
              GrabSystem::Status s;
              {
                  py::gil_scoped_release release;
                  s = ListCameras(discover, found);
              }
              Check(s);
              py::list cameras;
              for (const CameraDescription& d : found) cameras.append(DescriptionDict(d));
              return cameras;
          },
          py::arg("discover") = false,
          "USB3 Vision cameras; with discover=True GigE Vision ones too, by a broadcast on every interface.");
    m.def("camera_support", &CameraSupport, "Whether this build can open cameras (it was built with Aravis).");
    m.def("check_simulated_pattern", &CheckPattern, py::arg("frame"), py::arg("frame_id"),
          "Pixels of a (height, width) uint8 or uint16 frame that differ from the picture the\n"
          "simulated camera sends as frame `frame_id`: 0 for a frame that arrived intact.");
}

}  // namespace grabsys_py
