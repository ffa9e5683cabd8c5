#include <pybind11/eval.h>
#include <pybind11/stl.h>

#include <memory>
#include <mutex>

#include "common.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/fault_env.h"

namespace grabsys_py {
namespace {

using VormexDataStructure::CImgInfo;
using VormexDataStructure::ImgAlignment;
using VormexDataStructure::ImgProcCmd;

// Made once and never released: they must outlive the module's statics.
py::handle g_fileError;
py::handle g_cameraError;

// set_drive_root replaces the default Env; one call at a time.
std::mutex g_envMutex;
std::unique_ptr<GrabSystem::platform::DriveMappingEnv> g_driveRoot;

py::dict AlignmentToDict(const ImgAlignment& a) {
    py::dict d;
    d["width"] = a.nWidth;
    d["height"] = a.nHeight;
    d["offset_x"] = a.nOffsetX;
    d["offset_y"] = a.nOffsetY;
    return d;
}

ImgAlignment AlignmentFromDict(const py::handle& h) {
    const py::dict d = py::reinterpret_borrow<py::dict>(h);
    return ImgAlignment(d["width"].cast<uint32_t>(), d["height"].cast<uint32_t>(),
                        d.contains("offset_x") ? d["offset_x"].cast<int32_t>() : 0,
                        d.contains("offset_y") ? d["offset_y"].cast<int32_t>() : 0);
}

void SetDriveRoot(const std::string& root) {
    std::lock_guard<std::mutex> lock(g_envMutex);
    GrabSystem::platform::Env::Install(nullptr);
    if (root.empty()) {
        g_driveRoot.reset();
        return;
    }
    g_driveRoot = std::make_unique<GrabSystem::platform::DriveMappingEnv>(GrabSystem::platform::Env::System(), root);
    GrabSystem::platform::Env::Install(g_driveRoot.get());
}

// Faults injected into every file the module touches, for the tests of how
// each function reports them: installed as the default Env while in a with
// block, over the default it found.
class FaultInjection {
public:
    void Enter() {
        std::lock_guard<std::mutex> lock(g_envMutex);
        if (m_env) throw py::value_error("faults are already being injected by this object");
        m_env = std::make_unique<GrabSystem::platform::FaultEnv>(GrabSystem::platform::Env::Default());
        m_previous = GrabSystem::platform::Env::Install(m_env.get());
    }
    void Exit() {
        std::lock_guard<std::mutex> lock(g_envMutex);
        if (!m_env) return;
        GrabSystem::platform::Env::Install(m_previous);
        m_env.reset();
    }
    GrabSystem::platform::FaultEnv& Env() {
        if (!m_env) throw py::value_error("faults are injected only inside the with block");
        return *m_env;
    }

private:
    std::unique_ptr<GrabSystem::platform::FaultEnv> m_env;
    GrabSystem::platform::Env* m_previous = nullptr;
};

void BindFaultInjection(py::module_& m) {
    using GrabSystem::platform::FaultEnv;
    py::class_<FaultInjection>(m, "_FaultInjection",
                               "For tests: a with block in which the module's files meet injected faults\n"
                               "(see the C++ FaultEnv). Counts are 1-based from the last clear().")
        .def(py::init<>())
        .def("__enter__", [](py::object self) {
            self.cast<FaultInjection&>().Enter();
            return self;
        })
        .def("__exit__", [](FaultInjection& f, py::args) { f.Exit(); })
        .def("fail_write", [](FaultInjection& f, uint64_t n) { f.Env().FailWrite(n); })
        .def("short_write", [](FaultInjection& f, uint64_t n) { f.Env().ShortWrite(n); })
        .def("fill_disk_after", [](FaultInjection& f, uint64_t bytes) { f.Env().FillDiskAfter(bytes); })
        .def("fail_sync", [](FaultInjection& f, uint64_t n) { f.Env().FailSync(n); })
        .def("refuse_folder", [](FaultInjection& f, const std::string& dir) { f.Env().RefuseFolder(dir); })
        .def("fail_open", [](FaultInjection& f, uint64_t n) { f.Env().FailOpen(n); })
        .def("fail_read", [](FaultInjection& f, uint64_t n) { f.Env().FailRead(n); })
        .def("short_read", [](FaultInjection& f, uint64_t n) { f.Env().ShortRead(n); })
        .def("clear", [](FaultInjection& f) { f.Env().Clear(); })
        .def_property_readonly("appends", [](FaultInjection& f) { return f.Env().Appends(); })
        .def_property_readonly("opens", [](FaultInjection& f) { return f.Env().Opens(); })
        .def_property_readonly("reads", [](FaultInjection& f) { return f.Env().Reads(); });
}

}  // namespace

void Fail(const std::string& path, const std::string& cause) {
    PyErr_SetObject(g_fileError.ptr(), py::make_tuple(path, cause).ptr());
    throw py::error_already_set();
}

void Raise(const GrabSystem::Status& status) {
    if (status.subject().empty() && status.IsInvalidArgument()) throw py::value_error(status.cause());
    PyErr_SetObject(g_cameraError.ptr(),
                    py::make_tuple(status.subject(), status.cause(), GrabSystem::CodeName(status.code())).ptr());
    throw py::error_already_set();
}

py::dict InfoToDict(const CImgInfo& info) {
    py::dict d;
    d["width"] = info.size.GetWidth();
    d["height"] = info.size.GetHeight();
    d["channels"] = info.size.GetChannels();
    d["bits_per_channel"] = info.size.GetBitPerChannel();
    d["bytes_per_pixel"] = info.size.GetBytePerPixel();
    d["byte_size"] = info.size.GetByteSize();
    d["mem_mode"] = static_cast<int>(info.memMode);
    d["file_format"] = static_cast<int>(info.fileFormat);
    d["cam_idx"] = static_cast<int>(info.camIdx);
    d["frame_attr"] = info.frameAttr;
    d["status"] = info.status;
    d["resolution"] = py::make_tuple(info.resolution.dX, info.resolution.dY, info.resolution.dZ);
    d["img_alignment"] = AlignmentToDict(info.imgAlignment);
    d["cad_alignment"] = AlignmentToDict(info.cadAlignment);
    py::list log;
    for (size_t i = 0; i < info.procLog.Size(); ++i)
        log.append(py::make_tuple(static_cast<int>(info.procLog.At(i).GetTag()), std::string(info.procLog.At(i).GetMsg())));
    d["proc_log"] = log;
    return d;
}

void ApplyInfo(const py::handle& handle, CImgInfo& info) {
    if (handle.is_none()) return;
    const py::dict d = py::reinterpret_borrow<py::dict>(handle);
    for (const auto& item : d) {
        const std::string key = py::str(item.first);
        const py::handle v = item.second;
        if (key == "cam_idx") {
            info.camIdx = static_cast<GrabSystem::eCamIdx>(v.cast<int>());
        } else if (key == "frame_attr") {
            info.frameAttr = v.cast<uint32_t>();
        } else if (key == "status") {
            info.status = v.cast<uint16_t>();
        } else if (key == "resolution") {
            const auto r = v.cast<std::tuple<double, double, double>>();
            info.resolution = VormexDataStructure::ImgRes(std::get<0>(r), std::get<1>(r), std::get<2>(r));
        } else if (key == "img_alignment") {
            info.imgAlignment = AlignmentFromDict(v);
        } else if (key == "cad_alignment") {
            info.cadAlignment = AlignmentFromDict(v);
        } else if (key == "proc_log") {
            info.procLog.Clear();
            for (const auto& entry : v.cast<std::vector<std::tuple<int, std::string>>>()) {
                if (info.procLog.Size() >= VormexDataStructure::ImgProcCmds::kMaxCmds)
                    throw py::value_error("proc_log: more commands than a log holds");
                info.procLog.Add(new ImgProcCmd(static_cast<VormexDataStructure::eProcTag>(std::get<0>(entry)),
                                                std::get<1>(entry).c_str()));
            }
        } else if (key != "width" && key != "height" && key != "channels" && key != "bits_per_channel" &&
                   key != "bytes_per_pixel" && key != "byte_size" && key != "mem_mode" && key != "file_format") {
            // The geometry keys come from the pixels; a dict read from a file
            // may carry them back unchanged.
            throw py::key_error("info: unknown key '" + key + "'");
        }
    }
}

void Fail(const std::string& path, const GrabSystem::Status& status) {
    Fail(status.subject().empty() ? path : status.subject(), status.cause());
}

CallFiles::CallFiles() : TrackingEnv(GrabSystem::platform::Env::Default()) {}

void RaiseFailures(const CallFiles& files) {
    const std::vector<GrabSystem::Status> failures = files.Failures();
    if (failures.empty()) return;
    std::string cause = failures.front().cause();
    if (failures.size() > 1)
        cause += " (and " + std::to_string(failures.size() - 1) + " more failure" + (failures.size() == 2 ? "" : "s") +
                 ", " + std::to_string(files.FilesFailed()) + " files not written in all)";
    Fail(failures.front().subject(), cause);
}

}  // namespace grabsys_py

PYBIND11_MODULE(_core, m) {
    namespace py = pybind11;
    m.doc() =
        "GrabSystem for Python: the scanner's capture files to and from numpy, and the grab path.\n\n"
        "Reading returns objects whose arrays share memory with the object (no copy);\n"
        "writing goes through the library's own classes, so files are byte-identical to\n"
        "what C++ callers write. Failures to read or write a file raise FileError (an\n"
        "OSError) naming the file and the cause; outcomes that are normal at frame rate\n"
        "(a refused push, a serial not in the pool) return False or None.";
    // Defined in Python so that it reads as Python errors do: "file: cause".
    py::dict scope;
    scope["__builtins__"] = py::module_::import("builtins");
    scope["__name__"] = "grabsystem";
    py::exec(R"(
class FileError(OSError):
    """A file could not be read or written: .filename names it, .cause says why."""

    def __init__(self, filename, cause):
        super().__init__(cause)
        self.filename = filename
        self.cause = cause

    def __str__(self):
        return f"{self.filename}: {self.cause}"

    def __reduce__(self):
        return (type(self), (self.filename, self.cause))


class CameraError(OSError):
    """A camera could not be opened, set or streamed: .camera names it, .cause says why, .code is the kind."""

    def __init__(self, camera, cause, code=""):
        super().__init__(cause)
        self.camera = camera
        self.cause = cause
        self.code = code

    def __str__(self):
        return f"{self.camera}: {self.cause}" if self.camera else self.cause

    def __reduce__(self):
        return (type(self), (self.camera, self.cause, self.code))
)", scope);
    grabsys_py::g_fileError = py::object(scope["FileError"]).release();
    m.attr("FileError") = grabsys_py::g_fileError;
    grabsys_py::g_cameraError = py::object(scope["CameraError"]).release();
    m.attr("CameraError") = grabsys_py::g_cameraError;
    m.def("set_drive_root", &grabsys_py::SetDriveRoot, py::arg("root"),
          "Maps the system's drive paths (\"D://ImgTest//...\") to folders under `root`:\n"
          "D: becomes <root>/D. The package export and the extractor write there.\n"
          "An empty root restores the default (the working directory on POSIX,\n"
          "the real drives on Windows).");
    // Classes and signatures name the package, where users find them, not
    // the extension inside it.
    const py::object name = m.attr("__name__");
    m.attr("__name__") = "grabsystem";
    grabsys_py::BindFiles(m);
    grabsys_py::BindCapture(m);
    grabsys_py::BindGrab(m);
    grabsys_py::BindPreview(m);
    grabsys_py::BindArchive(m);
    grabsys_py::BindFaultInjection(m);
    grabsys_py::BindCamera(m);
    m.attr("__name__") = name;
}
