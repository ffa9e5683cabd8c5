// grabsys package create / package export.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "commands.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;
namespace fs = std::filesystem;

struct CreateOptions {
    std::string from;     // folder of 8-bit BMP files
    std::string output;   // package file to write
    bool general = false;
    std::string project;  // optional project file (general form)
    unsigned camera = 0;
    unsigned group = 0;
    unsigned jump = 0;
};

struct ExportOptions {
    std::vector<std::string> files;
    std::string root = ".";
    int jobs = 1;
};

// img2.bmp before img10.bmp: runs of digits compare as numbers.
bool NaturalLess(const std::string& a, const std::string& b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (std::isdigit(static_cast<unsigned char>(a[i])) && std::isdigit(static_cast<unsigned char>(b[j]))) {
            size_t ei = i, ej = j;
            while (ei < a.size() && std::isdigit(static_cast<unsigned char>(a[ei]))) ++ei;
            while (ej < b.size() && std::isdigit(static_cast<unsigned char>(b[ej]))) ++ej;
            const std::string na = a.substr(i, ei - i), nb = b.substr(j, ej - j);
            if (na.size() != nb.size()) return na.size() < nb.size();
            if (na != nb) return na < nb;
            i = ei;
            j = ej;
        } else {
            if (a[i] != b[j]) return a[i] < b[j];
            ++i;
            ++j;
        }
    }
    return a.size() - i < b.size() - j;
}

struct Frame {
    std::string path;
    std::unique_ptr<unsigned char[]> pixels;
};

// The frames of the folder's BMP files in natural name order; an empty list
// after Fail has reported why.
std::vector<Frame> ReadFrames(platform::TrackingEnv& files, const std::string& from, unsigned& width,
                              unsigned& height, const Output& output) {
    std::vector<std::string> listed, names;
    const Status listing = files.ListFiles(from, &listed);
    if (!listing.ok()) {
        Fail(listing.ToString());
        return {};
    }
    for (const std::string& name : listed) {
        std::string ext = DrasselSpace::CWinHelper::GetFileExtension(name);
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (ext == ".bmp") names.push_back((fs::path(from) / name).string());
    }
    if (names.empty()) {
        Fail(from + ": no .bmp files");
        return {};
    }
    std::sort(names.begin(), names.end(), NaturalLess);

    std::vector<Frame> frames;
    Progress progress("reading frames", names.size(), output);
    for (const std::string& name : names) {
        unsigned char* px = nullptr;
        unsigned w = 0, h = 0;
        DrasselSpace::ePixelFormatP format{};
        const size_t before = files.Failures().size();
        const bool loaded = DrasselSpace::ImageIOToolP::LoadBMP(name.c_str(), px, w, h, format, &files);
        std::unique_ptr<unsigned char[]> owned(px);
        std::string problem;
        if (!loaded && files.Failures().size() != before)
            problem = files.Failures().back().cause();
        else if (!loaded)
            problem = "not a readable BMP file";
        else if (format != DrasselSpace::ePixelFormatGray8)
            problem = "not an 8-bit grey BMP";
        else if (!frames.empty() && (w != width || h != height))
            problem = std::to_string(w) + " x " + std::to_string(h) + ", but the first frame is " +
                      std::to_string(width) + " x " + std::to_string(height);
        if (!problem.empty()) {
            Fail(name + ": " + problem);
            return {};
        }
        width = w;
        height = h;
        frames.push_back({name, std::move(owned)});
        progress.Add();
    }
    return frames;
}

int RunPackageCreate(const CreateOptions& o, const Output& output) {
    CommandFiles files(output);
    unsigned width = 0, height = 0;
    const std::vector<Frame> frames = ReadFrames(files, o.from, width, height, output);
    if (frames.empty()) return 1;
    capture::FrameRun run;
    run.info.JumpIdx = o.jump;
    run.info.Width = width;
    run.info.Height = height;
    run.info.FrameCount = static_cast<uint32_t>(frames.size());
    run.info.CamIdx = o.camera;
    run.info.GroupIdx = o.group;
    for (const Frame& f : frames) run.frames.push_back(f.pixels.get());
    uint64_t dataBytes = 0;
    Status written;
    if (!o.general) {
        written = capture::WriteImagePackage(o.output, {run}, static_cast<uint8_t>(o.jump), &files, &dataBytes);
    } else {
        std::unique_ptr<unsigned char[]> project;
        uint64_t projectBytes = 0;
        if (!o.project.empty()) {
            const Status read = files.ReadFile(o.project, project, projectBytes);
            if (!read.ok()) {
                ReportFiles(files);
                return Fail(o.project + ": cannot read the project file");
            }
        }
        const format::Bytes projectFile(project.get(), static_cast<size_t>(projectBytes));
        written = capture::WriteGeneralPackage(o.output, {run}, o.project.empty() ? nullptr : &projectFile, &files,
                                               &dataBytes);
    }
    // The package goes into place only whole; the files' account says why
    // it did not.
    if (ReportFiles(files) != 0) return 1;
    if (!written.ok()) return Fail(written.ToString());
    if (!output.quiet) {
        std::cout << "wrote " << (o.general ? "general" : "image") << " package " << o.output << ": " << frames.size()
                  << " frames of " << width << " x " << height << ", camera " << o.camera << ", group " << o.group
                  << ", jump " << o.jump << ", data " << MiB(dataBytes)
                  << (o.project.empty() ? "" : ", with project file " + o.project) << "\n";
    }
    return 0;
}

int RunPackageExport(const ExportOptions& o, const Output& output) {
    {
        CommandFiles heads(output);
        for (const std::string& file : o.files) {
            const Status head = capture::CheckPackageHead(file, &heads);
            if (!head.ok()) return Fail(head.ToString());
        }
    }
    const Status root = ToolEnv()->CreateDirectories(o.root);
    if (!root.ok()) return Fail(root.ToString());
    std::error_code ec;
    UseDriveRoot(fs::absolute(o.root, ec).string());

    CommandFiles files(output);
    CDebugPackageExporterP exporter;
    exporter.SetEnv(&files);
    exporter.SetExportThreads(o.jobs);
    const bool ok = exporter.ExprotPackage(o.files);
    const fs::path tree = NativePath(format::kExportTreeRoot);
    std::map<std::string, size_t> folders;
    // A tree that is not there lists nothing.
    for (const auto& entry : fs::recursive_directory_iterator(tree, ec))
        if (entry.is_regular_file()) ++folders[fs::relative(entry.path().parent_path(), tree).generic_string()];
    if (!output.quiet) {
        std::cout << "tree under " << tree.string() << ":\n";
        for (const auto& [folder, count] : folders) std::cout << "  " << folder << ": " << count << " BMP files\n";
        if (exporter.GetProjectFileSize() != 0)
            std::cout << "project file " << NativePath(CDebugPackageP::kProjectFilePath) << ": "
                      << exporter.GetProjectFileSize() << " bytes\n";
        std::cout << files.FilesWritten() << " files written, " << files.FilesFailed() << " failed\n";
    }
    if (!ok) {
        ReportFiles(files);
        return Fail("a package failed to load (damaged, truncated, unreadable or not a debug package)" +
                    std::string(o.files.size() > 1 ? "; packages exported before it stay in the tree" : ""));
    }
    // The system exports a damaged package as far as it reads it, and says
    // so only when it cannot load it at all: the strict reader names the
    // damage.
    std::vector<Status> damaged;
    for (const std::string& file : o.files) {
        capture::PackageContent content;
        const Status checked = capture::ReadPackage(file, content, &files);
        if (checked.IsCorruption()) damaged.push_back(checked);
    }
    int status = ReportFiles(files);
    for (const Status& d : damaged) status = Fail(d.ToString() + " (exported as far as the system reads it)");
    return status;
}

// The image form keeps the jump index in a byte (SetJumpIdx); the general
// form takes any. Checked when the whole command line is read, so that
// --general may come after --jump.
CLI::Validator JumpFor(const CLI::Option* general) {
    const CLI::Range imageJump(0u, unsigned{std::numeric_limits<unsigned char>::max()});
    return CLI::Validator(
        [general, imageJump](std::string& value) {
            const std::string error = general->count() != 0 ? std::string() : imageJump(value);
            return error.empty() ? error : error + " (an image package; --general takes more)";
        },
        "");
}

}  // namespace

void RegisterPackage(CLI::App& app, const Output& output, Runner& run) {
    CLI::App* package = app.add_subcommand("package", "Debug packages: bundles of frames with an encrypted data area");
    package->require_subcommand(1);
    package->footer("Examples:\n  grabsys package create --from frames/ -o cam0.dbg --camera 0\n  grabsys package export cam0.dbg --root /tmp/replay");

    auto ex = std::make_shared<ExportOptions>();
    CLI::App* exportCmd = package->add_subcommand("export", std::string("Export packages into the ") + format::kExportTreeRoot + " tree");
    exportCmd->add_option("FILE", ex->files, "Package files; several go to Cam<c>_<i> folders")->required()->check(CLI::ExistingFile);
#ifdef _WIN32
    // Windows paths are real: the export writes to drive D: itself.
    exportCmd->add_option("--root", ex->root, "Ignored on Windows, where D: is the real drive")->capture_default_str();
#else
    exportCmd->add_option("--root", ex->root, "Folder that stands for the drive root (D: is <root>/D)")->capture_default_str();
#endif
    exportCmd->add_option("-j,--jobs", ex->jobs, "Threads writing an image package's frames (a general package uses one)")->check(CLI::Range(1, 64))->capture_default_str();
    exportCmd->footer("Example:\n  grabsys package export capture.dbg --root /tmp/replay --jobs 2");
    RunWhenParsed(exportCmd, run, [ex, &output] { return RunPackageExport(*ex, output); });

    auto cr = std::make_shared<CreateOptions>();
    CLI::App* create = package->add_subcommand("create", "Build a package from a folder of 8-bit BMP files");
    create->add_option("--from", cr->from, "Folder of 8-bit grey BMP files of one size (natural name order)")->required()->check(CLI::ExistingDirectory);
    create->add_option("-o,--out", cr->output, "Package file to write")->required();
    CLI::Option* general = create->add_flag("--general", cr->general, "Write the general form (LZ4 frames, optional project file)");
    create->add_option("--project", cr->project, "Project file to lead the data area (general form)")->check(CLI::ExistingFile)->needs(general);
    create->add_option("--camera", cr->camera, "Camera index of the run")->capture_default_str();
    create->add_option("--group", cr->group, "Group index of the run")->capture_default_str();
    create->add_option("--jump", cr->jump, "Jump index (image form: at most 255)")->check(JumpFor(general))->capture_default_str();
    create->footer("Examples:\n  grabsys package create --from frames/ -o cam0.dbg --camera 0\n"
                   "  grabsys package create --from frames/ -o scan.dbg --general --project scan.fpz --jump 3");
    RunWhenParsed(create, run, [cr, &output] { return RunPackageCreate(*cr, output); });
}

}  // namespace grabsys
