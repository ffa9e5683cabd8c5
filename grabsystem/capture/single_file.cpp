#include "grabsystem/capture/single_file.h"

#include <cstdlib>
#include <vector>

#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/debug_package/debug_package_exporter.h"
#include "grabsystem/format/binary_io.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {
namespace capture {

namespace {

// Why a package the exporter refused does not load, as the strict reader
// sees it.
Status PackageRefused(const std::string& path, platform::Env* env) {
    PackageContent content;
    const Status status = ReadPackage(path, content, env);
    if (!status.ok()) return Status::Corruption(path, status.cause());
    return Status::Corruption(path, "the exporter cannot load it as a package of the list's form (the first file's)");
}

}  // namespace

Status MakeProjectFileFolder(platform::Env* env) {
    const std::string project = CDebugPackageP::kProjectFilePath;
    return platform::Env::Or(env)->CreateDirectories(project.substr(0, project.find_last_of("\\/")));
}

Status ExportOnePackage(const std::string& path, int position, const std::string& first, platform::Env* env) {
    MakeProjectFileFolder(env);
    const bool alone = position < 0;
    const auto index = static_cast<unsigned>(position);
    // A package that does not load exports nothing, alone or in a list.
    unsigned version = 0;
    {
        BinaryReader reader(env);
        if (reader.Open((alone || first.empty() ? path : first).c_str()) != 0) version = reader.ReadUInt();
    }
    CDebugPackageExporterP exporter;
    exporter.SetEnv(env);
    if (format::IsImagePackageVersion(version)) {
        if (!exporter.DebugImgPackage->LoadDebugPackage(path)) return PackageRefused(path, env);
        if (alone)
            exporter.DebugImgPackage->ExportDebugImg();
        else
            exporter.DebugImgPackage->ExportDebugImg(index);
        return Status::OK();
    }
    if (!exporter.DebugPackage->LoadDebugPackage(path)) return PackageRefused(path, env);
    // The exporter does not consult this; a caller must hear of frames that
    // were never written.
    if (alone ? exporter.DebugPackage->ImportDebugImg() : exporter.DebugPackage->ImportDebugImg(index)) return Status::OK();
    return Status::Corruption(
        path, std::string("the export stopped at a frame that does not decompress") +
                  (alone ? "" : " as the export of several packages reads its frames (each from the first block's length)") +
                  "; the frames before it were written");
}

Status ImportProjectFile(const std::string& path, platform::Env* env) {
    MakeProjectFileFolder(env);
    CDebugPackageP package;
    package.SetEnv(env);
    return package.LoadDebugPackage(path) ? Status::OK() : PackageRefused(path, env);
}

Status ExtractViewFile(const std::string& path, const std::string& outputDir, int mode, platform::Env* env) {
    // The extractor's own rule for a view file: <number>.armraw, read back as
    // <folder>\<atoi(number)>.armraw.
    const std::string stem = DrasselSpace::CWinHelper::GetFileNameWithoutExtension(path);
    if (DrasselSpace::CWinHelper::GetFileExtension(path) != ".armraw" || !DrasselSpace::StringToolP::IsNumber(stem))
        return Status::Corruption(path, "not a view file: its name is not <view number>.armraw");
    const size_t cut = path.find_last_of("\\/");
    OutputOneViewArmImageParm parm;
    parm.inputDirs[0] = cut == std::string::npos ? std::string(".\\") : path.substr(0, cut + 1);
    parm.views[0] = {std::atoi(stem.c_str())};
    parm.outputDir = outputDir;
    parm.mode = mode;
    ArmImageExtractor extractor;
    extractor.SetEnv(env);
    std::vector<int> failed[1];
    extractor.OutputOneViewArmImages(parm, failed, 1);
    if (extractor.GetCounters().extracted[0] == 1) return Status::OK();
    ArmViewContent view;
    const Status read = ReadArmView(path, view, env);
    if (!read.ok()) return Status::Corruption(path, read.cause());
    return Status::Corruption(path, failed[0].empty()
                                        ? "the extractor skipped it (its folder or the output folder is missing)"
                                        : "the extractor could not write the view");
}

}  // namespace capture
}  // namespace GrabSystem
