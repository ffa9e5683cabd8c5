// Archives spread over many processes (grabsystem.dask): what a view's or a
// package's head says, read without the rest of the file, and the
// extraction and export of one file at a time, each telling which files it
// wrote whole and which it did not.
#include <pybind11/stl.h>

#include <algorithm>
#include <cstdlib>

#include "common.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/debug_package/debug_package_exporter.h"
#include "grabsystem/format/arm_view.h"
#include "grabsystem/format/binary_io.h"
#include "grabsystem/format/package.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace grabsys_py {
namespace {

namespace format = GrabSystem::format;
using GrabSystem::platform::Env;

// Reads a file's head in steps, never more than the file holds.
class Head {
public:
    explicit Head(const std::string& path) {
        bool opened = false;
        {
            py::gil_scoped_release release;
            opened = m_reader.Open(path.c_str()) != 0;
            if (opened) m_fileBytes = m_reader.Remaining();
        }
        if (!opened) Fail(path, m_reader.status().cause());
    }
    // Up to `bytes` more bytes (fewer at the end of the file).
    format::Bytes More(size_t bytes) {
        const size_t start = m_bytes.size();
        m_bytes.resize(start + bytes);
        m_bytes.resize(start + m_reader.ReadByteArray(m_bytes.data() + start, bytes));
        return All();
    }
    format::Bytes All() const { return format::Bytes(m_bytes.data(), m_bytes.size()); }
    uint64_t FileBytes() const { return m_fileBytes; }

private:
    BinaryReader m_reader;
    uint64_t m_fileBytes = 0;
    std::vector<unsigned char> m_bytes;
};

py::dict ReadArmHeader(const std::string& path) {
    Head head(path);
    format::ArmViewSummary summary;
    // Only the header is there: the records are walked to none.
    const format::Status status = format::SummarizeArmView(head.More(format::kArmHeaderBytes), summary);
    if (status != format::Status::kOk) Fail(path, std::string("arm view: ") + format::Describe(status) + " header");
    const GrabSystem::OneViewArmImageDataHeader& h = summary.header;
    const int tableSize = h.version < 2 ? format::kArmIdentityCameras : static_cast<int>(format::kArmCameraTableBytes);
    if (h.camCount < 0 || h.camCount > tableSize)
        Fail(path, "arm view: camera count " + std::to_string(h.camCount) + " outside 0.." + std::to_string(tableSize));
    std::vector<int> cameras;
    for (int c = 0; c < h.camCount; ++c) cameras.push_back(h.version < 2 ? c : h.camTable[c]);
    py::dict d;
    d["version"] = h.version;
    d["width"] = h.width;
    d["height"] = h.height;
    d["sin_frame_count"] = h.sinFrameCount;
    d["white_frame_count"] = h.whiteFrameCount;
    d["cam_count"] = h.camCount;
    d["sin_dims"] = py::make_tuple(h.sinDimA, h.sinDimB, h.sinDimC);
    d["cameras"] = cameras;
    d["file_bytes"] = head.FileBytes();
    return d;
}

py::dict ReadPackageHead(const std::string& path) {
    Head head(path);
    if (!format::HoldsPackageHead(head.More(format::kPackageHeadBytes))) Fail(path, "too short to be a debug package");
    py::dict d;
    std::vector<GrabSystem::CDebugPackageInfoP> records;
    const bool image = format::IsImagePackageVersion(format::DecodeImagePackageHead(head.All()).version);
    if (image) {
        const format::ImagePackageHead h = format::DecodeImagePackageHead(head.All());
        if (h.count == 0) Fail(path, "image package: no records");
        const uint64_t end = h.bytes + static_cast<uint64_t>(h.count) * format::kImagePackageRecordBytes;
        if (end > head.FileBytes()) Fail(path, "image package: the file ends inside its " + std::to_string(h.count) + " records");
        const format::Bytes bytes = head.More(static_cast<size_t>(end) - head.All().size);
        for (uint32_t i = 0; i < h.count; ++i) {
            const GrabSystem::CDebugImgPackageInfoP r = format::DecodeImagePackageRecord(
                bytes.Sub(h.bytes + static_cast<size_t>(i) * format::kImagePackageRecordBytes, format::kImagePackageRecordBytes));
            // The head's jump index is every run's, as read_package gives it.
            records.push_back(GrabSystem::CDebugPackageInfoP{h.jumpIdx, r.Width, r.Height, r.FrameCount, r.CamIdx, r.GroupIdx});
        }
        d["version"] = h.version;
        d["jump_idx"] = h.jumpIdx;
        d["project_file"] = false;
    } else {
        const format::GeneralPackageHead h = format::DecodeGeneralPackageHead(head.All());
        const uint64_t end = format::GeneralPackageDataOffset(h.count);
        if (end > head.FileBytes()) Fail(path, "general package: the file ends inside its " + std::to_string(h.count) + " records");
        format::GeneralPackageSummary summary;
        const format::Status status = format::SummarizeGeneralPackage(head.More(static_cast<size_t>(end) - head.All().size), summary);
        if (status != format::Status::kOk) Fail(path, std::string("general package: ") + format::Describe(status));
        records = summary.records;
        d["version"] = h.version;
        d["jump_idx"] = 0;
        d["project_file"] = h.flag == 1;
    }
    d["general"] = !image;
    d["records"] = records;
    d["file_bytes"] = head.FileBytes();
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

// Why a package the exporter refused does not load, as the strict reader
// sees it.
std::string PackageCause(const std::string& path, Env* env) {
    GrabSystem::capture::PackageContent content;
    const GrabSystem::Status status = GrabSystem::capture::ReadPackage(path, content, env);
    if (!status.ok()) return status.cause();
    return "the exporter cannot load it as a package of the list's form (the first file's)";
}

// A general package's load writes its project file and expects the folder,
// as the tool's drive root has it.
void MakeProjectFolder(Env* env) {
    const std::string project = GrabSystem::CDebugPackageP::kProjectFilePath;
    env->CreateDirectories(project.substr(0, project.find_last_of("\\/")));
}

std::vector<std::string> ExportPackage(const std::string& path, const py::object& position, const std::string& first,
                                       bool check) {
    const bool alone = position.is_none();
    const unsigned index = alone ? 0 : position.cast<unsigned>();
    std::vector<std::string> files = Recorded(path, [&](Env* env, std::string& cause) {
        MakeProjectFolder(env);
        // One entry of ExprotPackage: the list's first file's version picks
        // the form, the position (none for a package alone) the folders. A
        // package that does not load exports nothing, alone or in a list.
        unsigned version = 0;
        {
            BinaryReader reader(env);
            if (reader.Open((alone || first.empty() ? path : first).c_str()) != 0) version = reader.ReadUInt();
        }
        GrabSystem::CDebugPackageExporterP exporter;
        exporter.SetEnv(env);
        if (format::IsImagePackageVersion(version)) {
            if (!exporter.DebugImgPackage->LoadDebugPackage(path)) {
                cause = PackageCause(path, env);
                return false;
            }
            if (alone)
                exporter.DebugImgPackage->ExportDebugImg();
            else
                exporter.DebugImgPackage->ExportDebugImg(index);
            return true;
        }
        if (!exporter.DebugPackage->LoadDebugPackage(path)) {
            cause = PackageCause(path, env);
            return false;
        }
        // The exporter does not consult this; a user must hear of frames
        // that were never written.
        if (alone ? exporter.DebugPackage->ImportDebugImg() : exporter.DebugPackage->ImportDebugImg(index)) return true;
        cause = std::string("the export stopped at a frame that does not decompress") +
                (alone ? "" : " as the export of several packages reads its frames (each from the first block's length)") +
                "; the frames before it were written";
        return false;
    });
    if (check) CheckInput(path, files, "the export", GrabSystem::capture::ReadPackage);
    return files;
}

std::vector<std::string> ImportProjectFile(const std::string& path) {
    return Recorded(path, [&](Env* env, std::string& cause) {
        MakeProjectFolder(env);
        GrabSystem::CDebugPackageP package;
        package.SetEnv(env);
        if (package.LoadDebugPackage(path)) return true;
        cause = PackageCause(path, env);
        return false;
    });
}

std::vector<std::string> ExtractView(const std::string& path, const std::string& outputDir, int mode, bool check) {
    // The extractor's own rule for a view file: <number>.armraw, read back as
    // <folder>\<atoi(number)>.armraw.
    const std::string stem = DrasselSpace::CWinHelper::GetFileNameWithoutExtension(path);
    if (DrasselSpace::CWinHelper::GetFileExtension(path) != ".armraw" || !DrasselSpace::StringToolP::IsNumber(stem))
        Fail(path, "not a view file: its name is not <view number>.armraw");
    const size_t cut = path.find_last_of("\\/");
    GrabSystem::OutputOneViewArmImageParm parm;
    parm.inputDirs[0] = cut == std::string::npos ? std::string(".\\") : path.substr(0, cut + 1);
    parm.views[0] = {std::atoi(stem.c_str())};
    parm.outputDir = outputDir;
    parm.mode = mode;
    std::vector<std::string> files = Recorded(path, [&](Env* env, std::string& cause) {
        GrabSystem::ArmImageExtractor extractor;
        extractor.SetEnv(env);
        std::vector<int> failed[1];
        extractor.OutputOneViewArmImages(parm, failed, 1);
        if (extractor.GetCounters().extracted[0] == 1) return true;
        GrabSystem::capture::ArmViewContent view;
        const GrabSystem::Status read = GrabSystem::capture::ReadArmView(path, view, env);
        cause = read.cause();
        if (read.ok()) {
            cause = failed[0].empty() ? "the extractor skipped it (its folder or the output folder is missing)"
                                      : "the extractor could not write the view";
        }
        return false;
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
    m.def("import_project_file", &ImportProjectFile, py::arg("path"),
          "Loads a general package and so writes its project file (D:\\vormex\\importTmp.fpz\n"
          "under the drive root), nothing else. Returns the files written.");
}

}  // namespace grabsys_py
