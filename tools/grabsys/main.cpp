// grabsys: the command-line face of the GrabSystem library.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>
#include <random>

#include "arm_demo.h"
#include "grab_demo.h"
#include "package_demo.h"

int main(int argc, char** argv) {
    CLI::App app{"grabsys - camera frame pools, arm images and debug packages of the GrabSystem library"};
    app.require_subcommand(1);

    grabsys::GrabDemoOptions grab;
    CLI::App* demo = app.add_subcommand("demo", "Run the built-in demonstration of the grab path; needs no input");
    demo->add_option("--width", grab.width, "Frame width in pixels")->check(CLI::Range(1u, 65535u))->capture_default_str();
    demo->add_option("--height", grab.height, "Frame height in pixels")->check(CLI::Range(1u, 65535u))->capture_default_str();
    demo->add_option("--row-gap", grab.rowGap, "Padding bytes after each camera row")->check(CLI::Range(0u, 4096u))->capture_default_str();
    demo->add_option("--frames", grab.frames, "Frames pushed per pool mode")->check(CLI::Range(1u, 1000000u))->capture_default_str();
    demo->add_option("--chunks", grab.chunks, "Images in the pool")->check(CLI::Range(1u, 64u))->capture_default_str();
    demo->add_option("--camera-fps", grab.cameraFps, "Camera frame rate; 0 pushes as fast as possible")->check(CLI::Range(0.0, 10000.0))->capture_default_str();
    demo->add_option("--consumer-ms", grab.consumerMs, "Simulated work per consumed frame, in ms")->check(CLI::Range(0u, 10000u))->capture_default_str();
    demo->add_option("--saved-frames", grab.savedFrames, "Frames saved as raw and BMP and loaded back")->capture_default_str();
    grabsys::ArmDemoOptions arm;
    demo->add_option("--views", arm.views, "Arm views captured")->check(CLI::Range(1u, 1000u))->capture_default_str();
    demo->add_option("--cameras", arm.cameras, "Cameras per view")->check(CLI::Range(1u, 8u))->capture_default_str();
    demo->add_option("--arm-width", arm.width, "Width of the arm frames")->check(CLI::Range(16u, 65535u))->capture_default_str();
    demo->add_option("--arm-height", arm.height, "Height of the arm frames")->check(CLI::Range(16u, 65535u))->capture_default_str();
    std::string outDir;
    demo->add_option("--out", outDir, "Folder for the files the demo writes (default: a new temporary folder)");
    demo->footer("Example:\n  grabsys demo --frames 120 --camera-fps 200 --consumer-ms 8");

    CLI11_PARSE(app, argc, argv);

    if (demo->parsed()) {
        std::error_code ec;
        if (outDir.empty())
            outDir = (std::filesystem::temp_directory_path() / ("grabsys_demo_" + std::to_string(std::random_device{}())))
                         .string();
        std::filesystem::create_directories(outDir, ec);
        if (ec || !std::filesystem::is_directory(outDir)) {
            std::cerr << "grabsys demo: cannot create the output folder " << outDir << ": " << ec.message() << "\n";
            return 1;
        }
        grab.outputDir = outDir;
        arm.outputDir = outDir;
        bool ok = grabsys::RunGrabDemo(grab, std::cout);
        if (!ok) std::cerr << "grabsys demo: frames were corrupted on the grab path\n";
        std::cout << "\n";
        if (!grabsys::RunArmDemo(arm, std::cout)) {
            std::cerr << "grabsys demo: arm frames did not come back as captured\n";
            ok = false;
        }
        std::cout << "\n";
        grabsys::PackageDemoOptions packages;
        packages.cameras = arm.cameras;
        packages.outputDir = outDir;
        if (!grabsys::RunPackageDemo(packages, std::cout)) {
            std::cerr << "grabsys demo: package frames did not come back as bundled\n";
            ok = false;
        }
        return ok ? 0 : 1;
    }
    return 0;
}
