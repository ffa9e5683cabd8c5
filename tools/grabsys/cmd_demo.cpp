// grabsys demo: a scan simulated with no scanner, every frame verified.
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>

#include "arm_demo.h"
#include "commands.h"
#include "grab_demo.h"
#include "grabsystem/grabsystem.h"
#include "package_demo.h"

namespace grabsys {

using GrabSystem::Status;

namespace {

struct DemoOptions {
    GrabDemoOptions grab;
    CameraDemoOptions camera;
    ArmDemoOptions arm;
    PackageDemoOptions packages;
    std::string outDir;
};

void PrintSummary(const std::vector<StageSummary>& summary) {
    std::cout << "\n" << std::left << std::setw(24) << "stage" << std::right << std::setw(8) << "frames" << std::setw(12)
              << "MiB in" << std::setw(12) << "MiB out" << std::setw(8) << "ratio" << std::setw(10) << "MiB/s"
              << "  files\n";
    for (const auto& s : summary) {
        std::ostringstream out, ratio;
        out << std::fixed << std::setprecision(1) << InMiB(s.bytesOut);
        ratio << std::fixed << std::setprecision(2) << static_cast<double>(s.bytesIn) / static_cast<double>(s.bytesOut);
        std::cout << std::left << std::setw(24) << s.stage << std::right << std::setw(8) << s.frames << std::fixed
                  << std::setprecision(1) << std::setw(12) << InMiB(s.bytesIn) << std::setw(12)
                  << (s.bytesOut ? out.str() : "-") << std::setw(8) << (s.bytesOut ? ratio.str() : "-") << std::setw(10)
                  << std::setprecision(0) << (s.seconds > 0 ? InMiB(s.bytesIn) / s.seconds : 0.0) << "  " << s.where
                  << "\n";
        std::cout.unsetf(std::ios::fixed);
    }
}

int RunDemo(DemoOptions o, const Output& output) {
    namespace fs = std::filesystem;
    std::error_code ec;
    if (o.outDir.empty())
        o.outDir = (fs::temp_directory_path() / ("grabsys_demo_" + std::to_string(std::random_device{}()))).string();
    const Status made = ToolEnv()->CreateDirectories(o.outDir);
    if (!made.ok()) return Fail(made.ToString());
    o.outDir = fs::absolute(o.outDir, ec).string();
    // The packages' drive paths map into the output folder.
    UseDriveRoot(o.outDir);
    CommandFiles files(output);
    o.grab.outputDir = o.arm.outputDir = o.packages.outputDir = o.outDir;
    o.packages.cameras = o.arm.cameras;
    o.packages.threads = o.arm.threads;

    std::ostringstream quiet;
    std::ostream& out = output.quiet ? static_cast<std::ostream&>(quiet) : std::cout;
    std::vector<StageSummary> summary;
    out << "Device memory: " << Zentrik::CDeviceManager::Describe() << "\n\n";
    bool ok = RunGrabDemo(o.grab, &files, out, summary);
    if (!ok) Fail("demo: frames were corrupted on the grab path, or their files were not written");
    out << "\n";
    if (o.camera.frames != 0 && !RunCameraDemo(o.camera, out, summary))
        ok = !Fail("demo: the camera stage failed (see above)");
    out << "\n";
    if (!RunArmDemo(o.arm, &files, out, summary)) ok = !Fail("demo: arm frames did not come back as captured");
    out << "\n";
    if (!RunPackageDemo(o.packages, &files, out, summary)) ok = !Fail("demo: package frames did not come back as bundled");

    PrintSummary(summary);
    if (ReportFiles(files) != 0) ok = false;
    std::cout << (ok ? "all frames verified bit for bit" : "VERIFICATION FAILED") << "\n";
    return ok ? 0 : 1;
}

}  // namespace

void RegisterDemo(CLI::App& app, const Output& output, Runner& run) {
    auto o = std::make_shared<DemoOptions>();
    CLI::App* demo = app.add_subcommand("demo", "Simulate a scan with no scanner: grab path, arm files, packages; verify every frame");
    demo->add_option("--cameras", o->arm.cameras, "Cameras")->check(CLI::Range(1u, 8u))->capture_default_str();
    demo->add_option("--views", o->arm.views, "Arm views captured")->check(CLI::Range(1u, 1000u))->capture_default_str();
    demo->add_option("--width", o->grab.width, "Grab frame width in pixels")->check(CLI::Range(1u, 65535u))->capture_default_str();
    demo->add_option("--height", o->grab.height, "Grab frame height in pixels")->check(CLI::Range(1u, 65535u))->capture_default_str();
    demo->add_option("--threads", o->arm.threads, "Threads compressing each arm view, extracting the views and exporting the image package")->check(CLI::Range(1, 64))->capture_default_str();
    demo->add_option("--arm-width", o->arm.width, "Width of the arm frames")->check(CLI::Range(16u, 65535u))->capture_default_str();
    demo->add_option("--arm-height", o->arm.height, "Height of the arm frames")->check(CLI::Range(16u, 65535u))->capture_default_str();
    demo->add_option("--row-gap", o->grab.rowGap, "Padding bytes after each camera row")->check(CLI::Range(0u, 4096u))->capture_default_str();
    demo->add_option("--frames", o->grab.frames, "Frames pushed per pool mode")->check(CLI::Range(1u, 1000000u))->capture_default_str();
    demo->add_option("--camera-frames", o->camera.frames, "Frames grabbed from the simulated camera (0: no camera stage)")->check(CLI::Range(0u, 1000000u))->capture_default_str();
    demo->add_option("--camera-width", o->camera.width, "Width of the simulated camera's frames")->check(CLI::Range(1u, 2048u))->capture_default_str();
    demo->add_option("--camera-height", o->camera.height, "Height of the simulated camera's frames")->check(CLI::Range(1u, 2048u))->capture_default_str();
    demo->add_option("--chunks", o->grab.chunks, "Images in the pool")->check(CLI::Range(1u, 64u))->capture_default_str();
    demo->add_option("--camera-fps", o->grab.cameraFps, "Camera frame rate; 0 pushes as fast as possible")->check(CLI::Range(0.0, 10000.0))->capture_default_str();
    demo->add_option("--consumer-ms", o->grab.consumerMs, "Simulated work per consumed frame, in ms")->check(CLI::Range(0u, 10000u))->capture_default_str();
    demo->add_option("--saved-frames", o->grab.savedFrames, "Grabbed frames saved as raw and BMP and loaded back")->check(CLI::Range(0u, 1000000u))->capture_default_str();
    demo->add_option("--package-frames", o->packages.frames, "Frames per camera in each package")->check(CLI::Range(1u, 1000u))->capture_default_str();
    demo->add_option("-o,--out", o->outDir, "Folder for everything the demo writes (default: a new temporary folder)");
    demo->footer("Example:\n  grabsys demo --cameras 2 --views 3 --frames 120 -o /tmp/demo");
    RunWhenParsed(demo, run, [o, &output] { return RunDemo(*o, output); });
}

}  // namespace grabsys
