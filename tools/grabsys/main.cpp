// grabsys: the command-line face of the GrabSystem library.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>

#include "arm_demo.h"
#include "cli_common.h"
#include "commands.h"
#include "grab_demo.h"
#include "grabsystem/platform/device/device_manager.h"
#include "package_demo.h"

namespace {

int RunDemo(grabsys::GrabDemoOptions grab, grabsys::ArmDemoOptions arm, grabsys::PackageDemoOptions packages,
            std::string outDir, const grabsys::Output& output) {
    namespace fs = std::filesystem;
    std::error_code ec;
    if (outDir.empty())
        outDir = (fs::temp_directory_path() / ("grabsys_demo_" + std::to_string(std::random_device{}()))).string();
    fs::create_directories(outDir, ec);
    if (!fs::is_directory(outDir, ec)) return grabsys::Fail(outDir + ": cannot create the output folder");
    outDir = fs::absolute(outDir).string();
    grab.outputDir = arm.outputDir = packages.outputDir = outDir;
    packages.cameras = arm.cameras;

    std::ostringstream quiet;
    std::ostream& out = output.quiet ? static_cast<std::ostream&>(quiet) : std::cout;
    std::vector<grabsys::StageSummary> summary;
    out << "Device memory: " << Zentrik::CDeviceManager::Describe() << "\n\n";
    bool ok = grabsys::RunGrabDemo(grab, out, summary);
    if (!ok) grabsys::Fail("demo: frames were corrupted on the grab path");
    out << "\n";
    if (!grabsys::RunArmDemo(arm, out, summary)) ok = !grabsys::Fail("demo: arm frames did not come back as captured");
    out << "\n";
    if (!grabsys::RunPackageDemo(packages, out, summary))
        ok = !grabsys::Fail("demo: package frames did not come back as bundled");

    std::cout << "\n" << std::left << std::setw(24) << "stage" << std::right << std::setw(8) << "frames" << std::setw(12)
              << "MB in" << std::setw(12) << "MB out" << std::setw(8) << "ratio" << std::setw(10) << "MB/s"
              << "  files\n";
    for (const auto& s : summary) {
        std::ostringstream mbOut, ratio;
        mbOut << std::fixed << std::setprecision(1) << s.bytesOut / 1048576.0;
        ratio << std::fixed << std::setprecision(2) << static_cast<double>(s.bytesIn) / static_cast<double>(s.bytesOut);
        std::cout << std::left << std::setw(24) << s.stage << std::right << std::setw(8) << s.frames << std::fixed
                  << std::setprecision(1) << std::setw(12) << s.bytesIn / 1048576.0 << std::setw(12)
                  << (s.bytesOut ? mbOut.str() : "-") << std::setw(8) << (s.bytesOut ? ratio.str() : "-") << std::setw(10)
                  << std::setprecision(0) << (s.seconds > 0 ? s.bytesIn / 1048576.0 / s.seconds : 0.0) << "  "
                  << s.where << "\n";
        std::cout.unsetf(std::ios::fixed);
    }
    std::cout << (ok ? "all frames verified bit for bit" : "VERIFICATION FAILED") << "\n";
    return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"grabsys - camera frame pools, arm images and debug packages of the GrabSystem library"};
    app.require_subcommand(1);
    grabsys::Output output;
    app.add_flag("-q,--quiet", output.quiet, "Print only errors and results, no progress");
    app.add_flag("-v,--verbose", output.verbose, "Also print the library's timing log lines on stderr");
    app.footer("Run 'grabsys <command> --help' for a command's options and an example.");

    // ---- demo
    grabsys::GrabDemoOptions grab;
    grabsys::ArmDemoOptions arm;
    grabsys::PackageDemoOptions packages;
    std::string demoOut;
    CLI::App* demo = app.add_subcommand("demo", "Simulate a scan with no scanner: grab path, arm files, packages; verify every frame");
    demo->add_option("--cameras", arm.cameras, "Cameras")->check(CLI::Range(1u, 8u))->capture_default_str();
    demo->add_option("--views", arm.views, "Arm views captured")->check(CLI::Range(1u, 1000u))->capture_default_str();
    demo->add_option("--width", grab.width, "Grab frame width in pixels")->check(CLI::Range(1u, 65535u))->capture_default_str();
    demo->add_option("--height", grab.height, "Grab frame height in pixels")->check(CLI::Range(1u, 65535u))->capture_default_str();
    demo->add_option("--arm-width", arm.width, "Width of the arm frames")->check(CLI::Range(16u, 65535u))->capture_default_str();
    demo->add_option("--arm-height", arm.height, "Height of the arm frames")->check(CLI::Range(16u, 65535u))->capture_default_str();
    demo->add_option("--row-gap", grab.rowGap, "Padding bytes after each camera row")->check(CLI::Range(0u, 4096u))->capture_default_str();
    demo->add_option("--frames", grab.frames, "Frames pushed per pool mode")->check(CLI::Range(1u, 1000000u))->capture_default_str();
    demo->add_option("--chunks", grab.chunks, "Images in the pool")->check(CLI::Range(1u, 64u))->capture_default_str();
    demo->add_option("--camera-fps", grab.cameraFps, "Camera frame rate; 0 pushes as fast as possible")->check(CLI::Range(0.0, 10000.0))->capture_default_str();
    demo->add_option("--consumer-ms", grab.consumerMs, "Simulated work per consumed frame, in ms")->check(CLI::Range(0u, 10000u))->capture_default_str();
    demo->add_option("--saved-frames", grab.savedFrames, "Grabbed frames saved as raw and BMP and loaded back")->capture_default_str();
    demo->add_option("--package-frames", packages.frames, "Frames per camera in each package")->check(CLI::Range(1u, 1000u))->capture_default_str();
    demo->add_option("-o,--out", demoOut, "Folder for everything the demo writes (default: a new temporary folder)");
    demo->footer("Example:\n  grabsys demo --cameras 2 --views 3 --frames 120 -o /tmp/demo");

    // ---- arm
    CLI::App* armCmd = app.add_subcommand("arm", "Per-view .armraw files of an arm capture");
    armCmd->require_subcommand(1);
    armCmd->footer("Examples:\n  grabsys arm list /data/scan01/armraw\n  grabsys arm extract /data/scan01/armraw -o /data/bmp --jobs 2");
    std::vector<std::string> armDirs;
    CLI::App* armList = armCmd->add_subcommand("list", "List the views of up to three folders of .armraw files");
    armList->add_option("DIR", armDirs, "Folders of .armraw files")->required()->expected(1, 3);
    armList->footer("Example:\n  grabsys arm list /data/scan01/armraw");
    std::string armOut;
    int mode = 1;
    unsigned jobs = 1;
    CLI::App* armExtract = armCmd->add_subcommand("extract", "Extract the views into a BMP tree (Cam<c>P|Q\\<view>\\img<k>.bmp)");
    armExtract->add_option("DIR", armDirs, "Folders of .armraw files")->required()->expected(1, 3);
    armExtract->add_option("-o,--out", armOut, "Root of the BMP tree")->required();
    armExtract->add_option("--mode", mode, "1: Sin and white frames, 2: white only, 3: Sin only")->check(CLI::IsMember({1, 2, 3}))->capture_default_str();
    armExtract->add_option("-j,--jobs", jobs, "Views extracted at once, each worker with its own extractor")->check(CLI::Range(1u, 64u))->capture_default_str();
    armExtract->footer("Example:\n  grabsys arm extract /data/scan01/armraw /data/scan02/armraw -o /data/bmp --jobs 2");

    // ---- package
    CLI::App* packageCmd = app.add_subcommand("package", "Debug packages: bundles of frames with an encrypted data area");
    packageCmd->require_subcommand(1);
    packageCmd->footer("Examples:\n  grabsys package create --from frames/ -o cam0.dbg --camera 0\n  grabsys package export cam0.dbg --root /tmp/replay");
    std::vector<std::string> packageFiles;
    std::string root = ".";
    CLI::App* packageExport = packageCmd->add_subcommand("export", "Export packages into the D://ImgTest//CamImgInput tree");
    packageExport->add_option("FILE", packageFiles, "Package files; several go to Cam<c>_<i> folders")->required();
#ifdef _WIN32
    // Windows paths are real: the export writes to drive D: itself.
    packageExport->add_option("--root", root, "Ignored on Windows, where D: is the real drive")->capture_default_str();
#else
    packageExport->add_option("--root", root, "Folder that stands for the drive root (D: is <root>/D)")->capture_default_str();
#endif
    packageExport->footer("Example:\n  grabsys package export capture.dbg --root /tmp/replay");
    grabsys::PackageCreateOptions create;
    CLI::App* packageCreate = packageCmd->add_subcommand("create", "Build a package from a folder of 8-bit BMP files");
    packageCreate->add_option("--from", create.from, "Folder of 8-bit grey BMP files of one size (natural name order)")->required();
    packageCreate->add_option("-o,--out", create.output, "Package file to write")->required();
    packageCreate->add_flag("--general", create.general, "Write the general form (LZ4 frames, optional project file)");
    packageCreate->add_option("--project", create.project, "Project file to lead the data area (general form)");
    packageCreate->add_option("--camera", create.camera, "Camera index of the run")->capture_default_str();
    packageCreate->add_option("--group", create.group, "Group index of the run")->capture_default_str();
    packageCreate->add_option("--jump", create.jump, "Jump index (image form: at most 255)")->capture_default_str();
    packageCreate->footer("Examples:\n  grabsys package create --from frames/ -o cam0.dbg --camera 0\n"
                          "  grabsys package create --from frames/ -o scan.dbg --general --project scan.fpz --jump 3");

    // ---- info
    std::vector<std::string> infoFiles;
    bool json = false;
    CLI::App* info = app.add_subcommand("info", "Identify .armraw files, debug packages, raw and BMP images, print their headers");
    info->add_option("FILE", infoFiles, "Files to describe")->required();
    info->add_flag("--json", json, "One JSON array of objects, for scripts");
    info->footer("Example:\n  grabsys info 12.armraw capture.dbg frame.raw --json");

    // --quiet and --verbose work before or after the command.
    for (CLI::App* sub : {demo, armCmd, armList, armExtract, packageCmd, packageExport, packageCreate, info}) sub->fallthrough();

    CLI11_PARSE(app, argc, argv);
    grabsys::AttachLogger(output.verbose);

    if (demo->parsed()) return RunDemo(grab, arm, packages, demoOut, output);
    if (armList->parsed()) return grabsys::RunArmList(armDirs, output);
    if (armExtract->parsed()) return grabsys::RunArmExtract(armDirs, armOut, mode, jobs, output);
    if (packageExport->parsed()) return grabsys::RunPackageExport(packageFiles, root, output);
    if (packageCreate->parsed()) {
        if (!create.project.empty() && !create.general) return grabsys::Fail("--project needs --general");
        return grabsys::RunPackageCreate(create, output);
    }
    if (info->parsed()) return grabsys::RunInfo(infoFiles, json, output);
    return 0;
}
