// One capture file at a time, for jobs that spread a capture's files over
// processes (grabsystem.dask): each call writes exactly what the system's
// own run over the whole list writes for that file, through the Env given
// (the default when null), and answers with a Status naming the file and
// why it failed.
#pragma once

#include <string>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace capture {

// Makes the folder a general package's load writes its project file into
// (CDebugPackageP::kProjectFilePath), as a scanner workstation has it.
GRABSYSTEM_EXPORT Status MakeProjectFileFolder(platform::Env* env = nullptr);

// One entry of CDebugPackageExporterP::ExprotPackage: the package at
// `path` alone (position < 0) into Cam<c> folders, or as entry `position`
// of a list whose first file is `first` into Cam<c>_<position>; the first
// file's version word picks the form for every entry, as the exporter
// picks it. Makes the project file's folder first. Corruption when the
// package does not load as that form (the strict reader's cause), or a
// general package's frames stop at one that does not decompress (the
// frames before it are written).
GRABSYSTEM_EXPORT Status ExportOnePackage(const std::string& path, int position, const std::string& first,
                                          platform::Env* env = nullptr);

// Loads a general package and so writes its project file, nothing else.
GRABSYSTEM_EXPORT Status ImportProjectFile(const std::string& path, platform::Env* env = nullptr);

// One view file, named <view number>.armraw, extracted into `outputDir` as
// ArmImageExtractor extracts it from its folder (mode as there). Corruption
// when the name is not a view's, the strict reader refuses the file, or the
// extractor fails the view.
GRABSYSTEM_EXPORT Status ExtractViewFile(const std::string& path, const std::string& outputDir, int mode,
                                         platform::Env* env = nullptr);

}  // namespace capture
}  // namespace GrabSystem
