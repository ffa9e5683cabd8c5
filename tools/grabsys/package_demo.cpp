#include "package_demo.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <vector>

#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;

std::vector<unsigned char> CameraFrame(const PackageDemoOptions& o, uint32_t cam, uint32_t frame) {
    std::vector<unsigned char> px(size_t{o.width} * o.height);
    for (uint32_t y = 0; y < o.height; ++y)
        for (uint32_t x = 0; x < o.width; ++x)
            px[size_t{y} * o.width + x] = static_cast<unsigned char>((x / 8 + y / 8 + frame * 5 + cam * 40) % 200 + 20);
    return px;
}

bool SameAsBmp(GrabSystem::platform::Env* env, const std::vector<unsigned char>& frame, const std::string& path) {
    CImg8P back;
    back.SetEnv(env);
    return back.LoadFile(path.c_str()) && back.GetMemSize() == frame.size() &&
           std::memcmp(back.GetData(), frame.data(), frame.size()) == 0;
}

// Compares every frame with the exported tree; `jump` shifts the numbers.
uint64_t CountMatches(GrabSystem::platform::Env* env, const PackageDemoOptions& o, uint32_t jump, uint64_t& wrong) {
    uint64_t same = 0;
    for (uint32_t cam = 0; cam < o.cameras; ++cam)
        for (uint32_t f = 0; f < o.frames; ++f) {
            const std::string path = format::ExportFramePath(format::ExportFolder(cam, ""), jump + f);
            SameAsBmp(env, CameraFrame(o, cam, f), path) ? ++same : ++wrong;
        }
    return same;
}

}  // namespace

bool RunPackageDemo(const PackageDemoOptions& o, GrabSystem::platform::Env* env, std::ostream& out,
                    std::vector<StageSummary>& summary) {
    const std::string dir = o.outputDir + "/packages/";
    DrasselSpace::FileToolP::CreateDirectoryRecursively(dir, env);
    out << "Debug packages: " << o.cameras << " cameras x " << o.frames << " frames of " << o.width << " x "
        << o.height << "\n";

    // One run per camera, in both forms: the image package of raw frames,
    // the general package of LZ4 frames after a project file, jump index 3.
    std::vector<std::vector<unsigned char>> pixels;
    std::vector<capture::FrameRun> runs(o.cameras);
    uint64_t plain = 0;
    for (uint32_t cam = 0; cam < o.cameras; ++cam) {
        runs[cam].info = CDebugPackageInfoP{3, o.width, o.height, o.frames, cam, 0};
        for (uint32_t f = 0; f < o.frames; ++f) pixels.push_back(CameraFrame(o, cam, f));
    }
    for (size_t i = 0; i < pixels.size(); ++i) {
        runs[i / o.frames].frames.push_back(pixels[i].data());
        plain += pixels[i].size();
    }
    const bool imageSaved = capture::WriteImagePackage(dir + "image.dbg", runs, 0, env).ok();
    const std::string project = "<vormex-project scan='demo' cameras='" + std::to_string(o.cameras) + "'/>";
    const format::Bytes projectFile(reinterpret_cast<const uint8_t*>(project.data()), project.size());
    uint64_t generalData = 0;
    const bool generalSaved =
        capture::WriteGeneralPackage(dir + "general.dbg", runs, &projectFile, env, &generalData).ok();
    if (!imageSaved || !generalSaved) {
        out << "  a package could not be saved under " << dir << "\n";
        return false;
    }

    // Export each through the exporter and compare the tree.
    uint64_t wrong = 0;
    CDebugPackageExporterP exporter;
    exporter.SetEnv(env);
    exporter.SetExportThreads(o.threads);
    const auto t0 = std::chrono::steady_clock::now();
    const bool imageExported = exporter.ExprotPackage({dir + "image.dbg"});
    const double imageSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const uint64_t imageSame = CountMatches(env, o, 0, wrong);
    const auto t1 = std::chrono::steady_clock::now();
    const bool generalExported = exporter.ExprotPackage({dir + "general.dbg"});
    const double generalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t1).count();
    const uint64_t frames = uint64_t{o.cameras} * o.frames;
    std::error_code ec;
    const std::string tree = NativePath(format::kExportTreeRoot);
    summary.push_back({"image package export", frames, plain, std::filesystem::file_size(NativePath(dir + "image.dbg"), ec), imageSeconds, tree});
    summary.push_back({"general package export", frames, plain, std::filesystem::file_size(NativePath(dir + "general.dbg"), ec), generalSeconds, tree});
    const uint64_t generalSame = CountMatches(env, o, 3, wrong);

    unsigned char* projectBack = nullptr;
    unsigned long long projectSize = 0;
    const bool projectOk = DrasselSpace::FileToolP::LoadDataFromFile(CDebugPackageP::kProjectFilePath, projectBack, projectSize, env) &&
                           std::string(reinterpret_cast<char*>(projectBack), projectSize) == project;
    delete[] projectBack;

    out << "  image package:   " << imageSame << " frames exported and identical (" << (imageExported ? "ok" : "FAILED")
        << ")\n";
    out << "  general package: " << generalSame << " frames exported and identical, LZ4 " << std::fixed
        << std::setprecision(2) << static_cast<double>(plain) / static_cast<double>(generalData) << ":1 ("
        << (generalExported ? "ok" : "FAILED") << "), project file " << exporter.GetProjectFileSize() << " bytes "
        << (projectOk ? "identical" : "DIFFERS") << "\n";
    out.unsetf(std::ios::fixed);
    out << "  files: " << dir << " and " << tree << "\n";
    return imageExported && generalExported && projectOk && wrong == 0;
}

}  // namespace grabsys
