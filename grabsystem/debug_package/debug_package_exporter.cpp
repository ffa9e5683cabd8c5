#include "grabsystem/debug_package/debug_package_exporter.h"

#include "grabsystem/format/binary_io.h"
#include "grabsystem/format/package.h"

namespace GrabSystem {

CDebugPackageExporterP::CDebugPackageExporterP()
    : DebugPackage(new CDebugPackageP), DebugImgPackage(new CDebugImgPackageP) {}

CDebugPackageExporterP::~CDebugPackageExporterP() = default;

void CDebugPackageExporterP::SetExportThreads(int n) {
    if (DebugImgPackage) DebugImgPackage->SetExportThreads(n);
}

void CDebugPackageExporterP::SetEnv(platform::Env* env) {
    m_env = env;
    if (DebugPackage) DebugPackage->SetEnv(env);
    if (DebugImgPackage) DebugImgPackage->SetEnv(env);
}

unsigned long long CDebugPackageExporterP::GetProjectFileSize() const {
    return DebugPackage ? DebugPackage->GetProjectFileSize() : 0;
}

bool CDebugPackageExporterP::ExprotPackage(std::vector<std::string> paths) {
    if (!DebugPackage || !DebugImgPackage || paths.empty()) return false;
    unsigned version = 0;
    {
        BinaryReader reader(m_env);
        if (reader.Open(paths[0].c_str()) != 0) version = reader.ReadUInt();
        reader.Close();
    }
    const bool imageForm = format::IsImagePackageVersion(version);

    if (paths.size() > 1) {
        for (size_t i = 0; i < paths.size(); ++i) {
            if (paths[i].empty()) return false;
            const auto index = static_cast<unsigned>(i);
            if (imageForm) {
                if (!DebugImgPackage->LoadDebugPackage(paths[i])) return false;
                DebugImgPackage->ExportDebugImg(index);
            } else {
                if (!DebugPackage->LoadDebugPackage(paths[i])) return false;
                DebugPackage->ImportDebugImg(index);
            }
        }
        return true;
    }

    if (paths[0].empty()) return false;
    if (imageForm) {
        const bool loaded = DebugImgPackage->LoadDebugPackage(paths[0]);
        DebugImgPackage->ExportDebugImg();
        return loaded;
    }
    const bool loaded = DebugPackage->LoadDebugPackage(paths[0]);
    DebugPackage->ImportDebugImg();
    return loaded;
}

}  // namespace GrabSystem
