// CDebugPackageExporterP: turns a list of debug package files into the BMP
// input tree (and, for general packages, the project file) in one call.
//
// The version word of the first file picks the form for the whole list:
// 1 or 2 the image package, anything else (0 for a file that cannot be
// opened) the general package. One file exports into "Cam<c>" folders;
// several into "Cam<c>_<list position>" folders.
//
// The exporter holds its two package objects, made at construction and
// reused for every call. Copying an exporter copies the two pointers: the
// copies share the package objects, and the last one to go releases them.
// Not thread-safe (nor are copies used from two threads at once).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/debug_package/debug_package.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

class GRABSYSTEM_EXPORT CDebugPackageExporterP {
public:
    CDebugPackageExporterP();
    virtual ~CDebugPackageExporterP();
    CDebugPackageExporterP(const CDebugPackageExporterP&) = default;
    CDebugPackageExporterP& operator=(const CDebugPackageExporterP&) = default;

    // False for an empty list or an empty path, and for a failed load; with
    // several files, those exported before a failure stay exported. With
    // one file, whatever the object holds is exported even after a failed
    // load (nothing, for a fresh object) and the load's result returned.
    bool ExprotPackage(std::vector<std::string> paths);

    // Threads that write an image package's frames (see
    // CDebugImgPackageP::SetExportThreads); 1, the default, exports on the
    // calling thread. A general package exports on the calling thread: each
    // frame there may keep bytes of the frame before it, and the first frame
    // that fails ends the export.
    void SetExportThreads(int n);

    // The Env both package objects and the exporter's own read go through
    // (not owned); null, the default, uses Env::Default().
    void SetEnv(platform::Env* env);

    // Size of the project file of the last general package loaded.
    unsigned long long GetProjectFileSize() const;

    std::shared_ptr<CDebugPackageP> DebugPackage;
    std::shared_ptr<CDebugImgPackageP> DebugImgPackage;

private:
    platform::Env* m_env = nullptr;
};

}  // namespace GrabSystem
