// Capture files to and from numpy: arm views and both package forms.
#include <pybind11/stl.h>

#include <memory>

#include "common.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/capture/package_writer.h"

namespace grabsys_py {
namespace {

using GrabSystem::capture::ArmViewContent;
using GrabSystem::capture::FrameStack;
using GrabSystem::capture::PackageContent;

py::array StackOver(const py::object& owner, const FrameStack& s) {
    return ArrayOver<uint8_t>(owner, s.pixels, {s.count, s.height, s.width});
}

template <typename Content, typename Reader>
std::unique_ptr<Content> Read(const std::string& path, Reader reader) {
    auto content = std::make_unique<Content>();
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = reader(path, *content, nullptr);
    }
    if (!status.ok()) Fail(path, status);
    return content;
}

using FrameArray = py::array_t<uint8_t, py::array::c_style>;

// The runs given from Python, each (frames, cam_idx, group_idx[, jump_idx])
// with frames a (count, height, width) uint8 array: the arrays, and the
// records they make in the general form (the image form drops JumpIdx).
void ParseRuns(const py::list& runs, std::vector<FrameArray>& arrays, std::vector<GrabSystem::CDebugPackageInfoP>& infos) {
    for (const py::handle run : runs) {
        const py::tuple t = run.cast<py::tuple>();
        arrays.push_back(Contiguous<uint8_t>(t[0], "frames", 3, 3));
        const FrameArray& a = arrays.back();
        if (a.shape(0) > UINT32_MAX || a.shape(1) > UINT32_MAX || a.shape(2) > UINT32_MAX)
            throw py::value_error("frames: too large");
        GrabSystem::CDebugPackageInfoP info;
        info.FrameCount = static_cast<uint32_t>(a.shape(0));
        info.Height = static_cast<uint32_t>(a.shape(1));
        info.Width = static_cast<uint32_t>(a.shape(2));
        info.CamIdx = t.size() > 1 ? t[1].cast<uint32_t>() : 0;
        info.GroupIdx = t.size() > 2 ? t[2].cast<uint32_t>() : 0;
        info.JumpIdx = t.size() > 3 ? t[3].cast<uint32_t>() : 0;
        infos.push_back(info);
    }
}

// The runs as the package writers take them: each frame a pointer into its
// array, which outlives the write.
std::vector<GrabSystem::capture::FrameRun> FrameRuns(const std::vector<FrameArray>& arrays,
                                                      const std::vector<GrabSystem::CDebugPackageInfoP>& infos) {
    std::vector<GrabSystem::capture::FrameRun> runs(arrays.size());
    for (size_t r = 0; r < arrays.size(); ++r) {
        runs[r].info = infos[r];
        const uint64_t frameBytes = uint64_t{infos[r].Width} * infos[r].Height;
        for (uint32_t f = 0; f < infos[r].FrameCount; ++f) runs[r].frames.push_back(arrays[r].data() + frameBytes * f);
    }
    return runs;
}

// Requests the format cannot hold are the caller's: ValueError; the file's
// failures: FileError.
void Written(const std::string& path, const CallFiles& files, const GrabSystem::Status& status) {
    if (status.IsInvalidArgument()) throw py::value_error(status.cause());
    RaiseFailures(files);
    if (!status.ok()) Fail(path, status);
}

void WriteImagePackage(const std::string& path, const py::list& runs, unsigned jumpIdx) {
    if (jumpIdx > 255) throw py::value_error("jump_idx: 0..255 in an image package");
    std::vector<FrameArray> arrays;
    std::vector<GrabSystem::CDebugPackageInfoP> infos;
    ParseRuns(runs, arrays, infos);
    const std::vector<GrabSystem::capture::FrameRun> frames = FrameRuns(arrays, infos);
    CallFiles files;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = GrabSystem::capture::WriteImagePackage(path, frames, static_cast<uint8_t>(jumpIdx), &files);
    }
    Written(path, files, status);
}

void WriteGeneralPackage(const std::string& path, const py::list& runs, const py::object& projectFile) {
    std::vector<FrameArray> arrays;
    std::vector<GrabSystem::CDebugPackageInfoP> infos;
    ParseRuns(runs, arrays, infos);
    const std::vector<GrabSystem::capture::FrameRun> frames = FrameRuns(arrays, infos);
    std::string project;
    const bool withProject = !projectFile.is_none();
    if (withProject) project = projectFile.cast<std::string>();
    const GrabSystem::format::Bytes projectBytes(reinterpret_cast<const uint8_t*>(project.data()), project.size());
    CallFiles files;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = GrabSystem::capture::WriteGeneralPackage(path, frames, withProject ? &projectBytes : nullptr, &files);
    }
    Written(path, files, status);
}

}  // namespace

void BindCapture(py::module_& m) {
    py::class_<ArmViewContent>(m, "ArmView",
                               "One .armraw view, decompressed. `sin` and `white` are (n, height, width)\n"
                               "uint8 arrays in file order that share memory with this object.")
        .def_property_readonly("version", [](ArmViewContent& v) { return v.header.version; })
        .def_property_readonly("width", [](ArmViewContent& v) { return v.header.width; })
        .def_property_readonly("height", [](ArmViewContent& v) { return v.header.height; })
        .def_property_readonly("sin_frame_count", [](ArmViewContent& v) { return v.header.sinFrameCount; })
        .def_property_readonly("white_frame_count", [](ArmViewContent& v) { return v.header.whiteFrameCount; })
        .def_property_readonly("cam_count", [](ArmViewContent& v) { return v.header.camCount; })
        .def_property_readonly(
            "sin_dims", [](ArmViewContent& v) { return py::make_tuple(v.header.sinDimA, v.header.sinDimB, v.header.sinDimC); },
            "(A, B, C): the Sin frames are camera x A x B x C, C innermost.")
        .def_property_readonly("cameras", [](ArmViewContent& v) { return v.cameras; },
                               "The camera index of each camera, from the header's table.")
        .def_property_readonly(
            "record_lengths",
            [](py::object self) {
                auto& v = self.cast<ArmViewContent&>();
                return ArrayOver<uint32_t>(self, v.recordLengths.data(), {static_cast<py::ssize_t>(v.recordLengths.size())});
            },
            "The compressed length n of every record, Sin frames first (uint32).")
        .def_property_readonly("sin", [](py::object self) { return StackOver(self, self.cast<ArmViewContent&>().sin); })
        .def_property_readonly("white", [](py::object self) { return StackOver(self, self.cast<ArmViewContent&>().white); })
        .def("__repr__", [](ArmViewContent& v) {
            return "<grabsystem.ArmView " + std::to_string(v.header.sinFrameCount) + " Sin + " +
                   std::to_string(v.header.whiteFrameCount) + " white, " + std::to_string(v.header.width) + " x " +
                   std::to_string(v.header.height) + ", " + std::to_string(v.header.camCount) + " cameras>";
        });

    py::class_<GrabSystem::CDebugPackageInfoP>(m, "PackageRecord", "One run of frames of one camera in a package.")
        .def_readonly("jump_idx", &GrabSystem::CDebugPackageInfoP::JumpIdx)
        .def_readonly("width", &GrabSystem::CDebugPackageInfoP::Width)
        .def_readonly("height", &GrabSystem::CDebugPackageInfoP::Height)
        .def_readonly("frame_count", &GrabSystem::CDebugPackageInfoP::FrameCount)
        .def_readonly("cam_idx", &GrabSystem::CDebugPackageInfoP::CamIdx)
        .def_readonly("group_idx", &GrabSystem::CDebugPackageInfoP::GroupIdx)
        .def("__repr__", [](const GrabSystem::CDebugPackageInfoP& r) {
            return "<grabsystem.PackageRecord cam " + std::to_string(r.CamIdx) + " group " + std::to_string(r.GroupIdx) +
                   ", " + std::to_string(r.FrameCount) + " x " + std::to_string(r.Width) + " x " + std::to_string(r.Height) + ">";
        });

    py::class_<PackageContent>(m, "Package",
                               "A debug package of either form, decrypted and decompressed. `frames[i]`\n"
                               "is run i's (frame_count, height, width) uint8 array, sharing memory with\n"
                               "this object.")
        .def_readonly("general", &PackageContent::general, "True for the general form (LZ4 frames, project file).")
        .def_readonly("version", &PackageContent::version)
        .def_readonly("jump_idx", &PackageContent::jumpIdx, "The image package's jump index (0 for the general form).")
        .def_property_readonly("records",
                               [](PackageContent& p) {
                                   std::vector<GrabSystem::CDebugPackageInfoP> records;
                                   for (const auto& run : p.runs) records.push_back(run.info);
                                   return records;
                               })
        .def_property_readonly("frames",
                               [](py::object self) {
                                   py::list frames;
                                   for (const auto& run : self.cast<PackageContent&>().runs) frames.append(StackOver(self, run.frames));
                                   return frames;
                               })
        .def_property_readonly(
            "project_file",
            [](PackageContent& p) -> py::object {
                if (!p.hasProjectFile) return py::none();
                return py::bytes(reinterpret_cast<const char*>(p.projectFile.data), p.projectFile.size);
            },
            "The project file's bytes (a copy), or None.")
        .def("__repr__", [](PackageContent& p) {
            return std::string("<grabsystem.Package ") + (p.general ? "general" : "image") + " v" + std::to_string(p.version) +
                   ", " + std::to_string(p.runs.size()) + " runs>";
        });

    m.def("read_arm_view", [](const std::string& path) { return Read<ArmViewContent>(path, GrabSystem::capture::ReadArmView); },
          py::arg("path"),
          "Reads and decompresses one .armraw view. Raises FileError for a file that does not\n"
          "hold exactly its header's records, or a frame that does not decompress.");
    m.def("read_package", [](const std::string& path) { return Read<PackageContent>(path, GrabSystem::capture::ReadPackage); },
          py::arg("path"),
          "Reads a debug package of either form (its first word picks it). Raises FileError\n"
          "for a file that does not account for its bytes exactly.");
    m.def("write_image_package", &WriteImagePackage, py::arg("path"), py::arg("runs"), py::arg("jump_idx") = 0,
          "Writes an image package through the library's CDebugImgPackageP. `runs` is a list\n"
          "of (frames, cam_idx, group_idx) with frames a (count, height, width) uint8 array;\n"
          "all runs of one size and count, as the format places frames by that rule: runs it\n"
          "cannot place raise ValueError and nothing is written. Raises FileError naming the\n"
          "file and the cause when it does not go into place whole (nothing of it is left).");
    m.def("write_general_package", &WriteGeneralPackage, py::arg("path"), py::arg("runs"), py::arg("project_file") = py::none(),
          "Writes a general package through the library's CDebugPackageP: `runs` is a list of\n"
          "(frames, cam_idx, group_idx, jump_idx), each frame LZ4-compressed as grabsys does;\n"
          "`project_file` (bytes) goes first when given. Raises FileError on a failed write.");
}

}  // namespace grabsys_py
