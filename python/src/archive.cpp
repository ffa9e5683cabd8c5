// Archives spread over many processes (grabsystem.dask): what a view's or a
// package's head says, read without the rest of the file, and the
// extraction and export of one file at a time, each telling which files it
// wrote whole and which it did not.
#include <pybind11/stl.h>

#include <algorithm>

#include "common.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/capture/heads.h"
#include "grabsystem/capture/single_file.h"
#include "grabsystem/platform/env.h"

namespace grabsys_py {
namespace {

using GrabSystem::platform::Env;

// What `read` gives of the file at `path`, read without the GIL; FileError
// naming `path` and the cause when it fails.
template <typename Head>
Head ReadHead(const std::string& path, GrabSystem::Status (*read)(const std::string&, Head&, Env*)) {
    Head head;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = read(path, head, nullptr);
    }
    if (!status.ok()) Fail(path, status.cause());
    return head;
}

py::dict ReadArmHeader(const std::string& path) {
    const auto head = ReadHead(path, GrabSystem::capture::ReadArmHead);
    const GrabSystem::OneViewArmImageDataHeader& h = head.header;
    py::dict d;
    d["version"] = h.version;
    d["width"] = h.width;
    d["height"] = h.height;
    d["sin_frame_count"] = h.sinFrameCount;
    d["white_frame_count"] = h.whiteFrameCount;
    d["cam_count"] = h.camCount;
    d["sin_dims"] = py::make_tuple(h.sinDimA, h.sinDimB, h.sinDimC);
    d["cameras"] = head.cameras;
    d["file_bytes"] = head.fileBytes;
    return d;
}

py::dict ReadPackageHead(const std::string& path) {
    const auto head = ReadHead(path, GrabSystem::capture::ReadPackageHead);
    py::dict d;
    d["version"] = head.version;
    d["jump_idx"] = head.jumpIdx;
    d["project_file"] = head.projectFile;
    d["general"] = head.general;
    d["records"] = head.records;
    d["file_bytes"] = head.fileBytes;
    return d;
}

// Runs `call` (false: the input failed, `cause` says why) without the GIL,
// with the Env it must do all its work through: a TrackingEnv of its own,
// so that other calls' files never count. The files written whole, or
// FileError naming `input` and what went wrong, every file that did not
// come out whole included.
std::vector<std::string> Recorded(const std::string& input, const std::function<bool(Env* env, std::string& cause)>& call) {
    CallFiles files;
    bool ok = false;
    std::string cause;
    {
        py::gil_scoped_release release;
        ok = call(&files, cause);
    }
    // The input's own failures (an open, a read) are the cause; the rest are
    // files of the output, each said once.
    const std::string native = files.NativePath(input);
    std::vector<std::string> outputs;
    for (const GrabSystem::Status& f : files.Failures()) {
        if (f.subject() == native) {
            if (cause.empty()) cause = f.cause();
        } else if (std::find(outputs.begin(), outputs.end(), f.ToString()) == outputs.end()) {
            outputs.push_back(f.ToString());
        }
    }
    if (!outputs.empty()) {
        std::string list;
        for (const std::string& f : outputs) list += (list.empty() ? "" : "; ") + f;
        cause += (cause.empty() ? "" : "; ") + std::to_string(files.FilesFailed()) + " file" + (files.FilesFailed() == 1 ? "" : "s") +
                 " not written whole: " + list;
    }
    if (!ok || !files.ok()) Fail(input, cause);
    return files.WholeFiles();
}

// The readers are strict where the extractor and the exporter are lenient: a
// file they refuse went out as far as the lenient side could read it (the
// rest zeros, or bytes of another frame), and its user must hear of that.
template <typename Content>
void CheckInput(const std::string& path, const std::vector<std::string>& files, const char* writer,
                GrabSystem::Status (*read)(const std::string&, Content&, Env*)) {
    Content content;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = read(path, content, nullptr);
    }
    if (!status.ok())
        Fail(path, status.cause() + "; damaged, yet " + writer + " wrote " + std::to_string(files.size()) + " file" +
                       (files.size() == 1 ? "" : "s") + " of what it could read");
}

// The Recorded form of a library call's Status: its cause names the input.
bool Done(const GrabSystem::Status& status, std::string& cause) {
    if (!status.ok()) cause = status.cause();
    return status.ok();
}

std::vector<std::string> ExportPackage(const std::string& path, const py::object& position, const std::string& first,
                                       bool check) {
    const unsigned entry = position.is_none() ? 0 : position.cast<unsigned>();
    if (entry > INT32_MAX) throw py::value_error("position: a list's entry, at most 2147483647");
    const int index = position.is_none() ? -1 : static_cast<int>(entry);
    std::vector<std::string> files = Recorded(path, [&](Env* env, std::string& cause) {
        return Done(GrabSystem::capture::ExportOnePackage(path, index, first, env), cause);
    });
    if (check) CheckInput(path, files, "the export", GrabSystem::capture::ReadPackage);
    return files;
}

std::vector<std::string> ImportProjectFile(const std::string& path) {
    return Recorded(path, [&](Env* env, std::string& cause) {
        return Done(GrabSystem::capture::ImportProjectFile(path, env), cause);
    });
}

std::vector<std::string> ExtractView(const std::string& path, const std::string& outputDir, int mode, bool check) {
    std::vector<std::string> files = Recorded(path, [&](Env* env, std::string& cause) {
        return Done(GrabSystem::capture::ExtractViewFile(path, outputDir, mode, env), cause);
    });
    if (check) CheckInput(path, files, "the extractor", GrabSystem::capture::ReadArmView);
    return files;
}

}  // namespace

void BindArchive(py::module_& m) {
    m.def("read_arm_header", &ReadArmHeader, py::arg("path"),
          "What an .armraw file's header says, reading only its 1024 bytes: version, width,\n"
          "height, sin_frame_count, white_frame_count, cam_count, sin_dims, cameras, and the\n"
          "file's size (file_bytes). Raises FileError for a file shorter than its header,\n"
          "an unknown version or a camera count the table cannot hold.");
    m.def("read_package_head", &ReadPackageHead, py::arg("path"),
          "What a debug package's head says, reading only the head and the records: general\n"
          "(the form, as the exporter picks it), version, jump_idx, project_file (the flag),\n"
          "records (PackageRecord, as read_package gives them) and file_bytes. Raises\n"
          "FileError for a file too short for its head or its records.");
    m.def("extract_view", &ExtractView, py::arg("path"), py::arg("output_dir"), py::arg("mode") = 1,
          py::arg("check") = true,
          "Extracts one <view>.armraw file into output_dir as ArmExtractor.extract does (the\n"
          "same tree, byte for byte) and returns the files it wrote. Raises FileError naming\n"
          "the file and the cause when the view fails, or naming every file that did not\n"
          "go into place whole. With `check`, the file is then read as read_arm_view reads\n"
          "it, and damage the extractor writes through (a last frame that does not\n"
          "decompress, bytes after the last record) raises FileError too.");
    m.def("export_package", &ExportPackage, py::arg("path"), py::arg("position") = py::none(), py::arg("first") = "",
          py::arg("check") = true,
          "Exports one package as export_packages does: alone (position None) into Cam<c>\n"
          "folders, or as entry `position` of a list whose first file is `first` (its version\n"
          "picks the form) into Cam<c>_<position>. Creates the project file's folder under\n"
          "the drive root, as grabsys does. Returns the files written (the project file\n"
          "among them); raises FileError as extract_view does, `check` with read_package.");
    m.def("temporary_file_name", &GrabSystem::platform::TemporaryFileName, py::arg("path"),
          "A fresh temporary name beside `path`, as the library names a file it writes whole\n"
          "before renaming it into place: <path>.tmp-<process id>-<n>.");
    m.def("is_temporary_file_name", &GrabSystem::platform::IsTemporaryFileName, py::arg("name"),
          "Whether a file name (without its folder) is such a temporary name: what a process\n"
          "killed between writing a file and renaming it leaves behind.");
    m.def("import_project_file", &ImportProjectFile, py::arg("path"),
          "Loads a general package and so writes its project file (D:\\vormex\\importTmp.fpz\n"
          "under the drive root), nothing else. Returns the files written.");
}

}  // namespace grabsys_py
