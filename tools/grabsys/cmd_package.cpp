// grabsys package create / package export.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;
namespace fs = std::filesystem;

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

}  // namespace

int RunPackageCreate(const PackageCreateOptions& o, const Output& output) {
    std::error_code ec;
    if (!fs::is_directory(o.from, ec)) return Fail(o.from + ": no such folder");
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(o.from, ec)) {
        std::string ext = entry.path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (entry.is_regular_file() && ext == ".bmp") names.push_back(entry.path().string());
    }
    if (names.empty()) return Fail(o.from + ": no .bmp files");
    std::sort(names.begin(), names.end(), NaturalLess);
    if (!o.general && o.jump > 255) return Fail("--jump: an image package holds jump indices up to 255");

    std::vector<Frame> frames;
    unsigned width = 0, height = 0;
    Progress progress("reading frames", names.size(), output);
    for (const std::string& name : names) {
        unsigned char* px = nullptr;
        unsigned w = 0, h = 0;
        DrasselSpace::ePixelFormatP format{};
        if (!DrasselSpace::ImageIOToolP::LoadBMP(name.c_str(), px, w, h, format))
            return Fail(name + ": not a readable BMP file");
        std::unique_ptr<unsigned char[]> owned(px);
        if (format != DrasselSpace::ePixelFormatGray8) return Fail(name + ": not an 8-bit grey BMP");
        if (frames.empty()) {
            width = w;
            height = h;
        } else if (w != width || h != height) {
            return Fail(name + ": " + std::to_string(w) + " x " + std::to_string(h) + ", but the first frame is " +
                        std::to_string(width) + " x " + std::to_string(height));
        }
        frames.push_back({name, std::move(owned)});
        progress.Add();
    }
    progress.Finish();
    const uint64_t frameBytes = uint64_t{width} * height;
    if (frameBytes * frames.size() > UINT32_MAX) return Fail("the frames exceed the 4 GB a package can hold");

    // Written beside the target, renamed over it only when complete.
    const std::string partial = o.output + ".part";
    bool saved = false;
    uint64_t dataBytes = 0;
    if (!o.general) {
        CDebugImgPackageP pkg;
        CDebugImgPackageInfoP run;
        run.Width = width;
        run.Height = height;
        run.FrameCount = static_cast<uint32_t>(frames.size());
        run.CamIdx = o.camera;
        run.GroupIdx = o.group;
        pkg.AddPackageInfo(run);
        pkg.SetJumpIdx(static_cast<unsigned char>(o.jump));
        pkg.CreatePackageBuffer();
        for (size_t i = 0; i < frames.size(); ++i) pkg.AddData(0, frames[i].pixels.get(), static_cast<unsigned>(i));
        dataBytes = pkg.BufferSize;
        saved = pkg.SaveDebugPackage(partial);
    } else {
        std::unique_ptr<CDebugPackageP> pkg(new CDebugPackageP);
        pkg->InitialPackageBuffer();
        CDebugPackageInfoP run;
        run.JumpIdx = o.jump;
        run.Width = width;
        run.Height = height;
        run.FrameCount = static_cast<uint32_t>(frames.size());
        run.CamIdx = o.camera;
        run.GroupIdx = o.group;
        pkg->AddPackageInfo(run);
        if (!o.project.empty()) {
            unsigned char* project = nullptr;
            unsigned long long size = 0;
            if (!DrasselSpace::FileToolP::LoadDataFromFile(o.project, project, size))
                return Fail(o.project + ": cannot read the project file");
            std::unique_ptr<unsigned char[]> owned(project);
            if (size > INT32_MAX || !pkg->AddData(0, project, 0, static_cast<int>(size)))
                return Fail(o.project + ": the project file is too large for a package");
        }
        std::vector<unsigned char> block(static_cast<size_t>(DrasselSpace::CLZ4CompressorP::GetCompressBound(static_cast<int>(frameBytes))));
        for (const Frame& f : frames) {
            const int n = DrasselSpace::CLZ4CompressorP::CompressRaw(f.pixels.get(), static_cast<int>(frameBytes),
                                                                     block.data(), static_cast<int>(block.size()), 3);
            if (n == 0 || !pkg->AddData(0, block.data(), 0, n)) return Fail("the frames exceed the 1 GiB a package can stage");
        }
        pkg->AllocateDebugImgBuffer();
        dataBytes = pkg->GetDataSize();
        saved = pkg->SaveDebugPackage(partial, !o.project.empty());
    }
    std::error_code renameError;
    if (saved) fs::rename(partial, o.output, renameError);
    if (!saved || renameError) {
        fs::remove(partial, ec);
        return Fail(o.output + ": cannot write the package (" +
                    (renameError ? renameError.message() : std::string("the file cannot be created")) + "); nothing was written");
    }
    if (!output.quiet) {
        std::cout << "wrote " << (o.general ? "general" : "image") << " package " << o.output << ": " << frames.size()
                  << " frames of " << width << " x " << height << ", camera " << o.camera << ", group " << o.group
                  << ", jump " << o.jump << ", data " << Megabytes(dataBytes)
                  << (o.project.empty() ? "" : ", with project file " + o.project) << "\n";
    }
    return 0;
}

int RunPackageExport(const std::vector<std::string>& files, const std::string& root, const Output& output) {
    if (files.empty()) return Fail("give at least one package file");
    for (const std::string& file : files) {
        BinaryReader reader;
        if (reader.Open(file.c_str()) == 0) return Fail(file + ": cannot open the package");
        if (reader.Remaining() < 12) return Fail(file + ": too short to be a debug package");
    }
    std::error_code ec;
    fs::create_directories(root, ec);
    if (!fs::is_directory(root, ec)) return Fail(root + ": cannot create the drive root");
    UseDriveRoot(fs::absolute(root).string());
    // A general package writes its project file into D:\vormex, which the
    // library expects to exist, as it does on a scanner workstation.
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\vormex");

    CDebugPackageExporterP exporter;
    const bool ok = exporter.ExprotPackage(files);
    const fs::path tree = NativePath("D://ImgTest//CamImgInput");
    std::map<std::string, size_t> folders;
    if (fs::is_directory(tree, ec))
        for (const auto& entry : fs::recursive_directory_iterator(tree, ec))
            if (entry.is_regular_file()) ++folders[fs::relative(entry.path().parent_path(), tree).generic_string()];
    if (!output.quiet) {
        std::cout << "tree under " << tree.string() << ":\n";
        for (const auto& [folder, count] : folders) std::cout << "  " << folder << ": " << count << " BMP files\n";
        if (exporter.GetProjectFileSize() != 0)
            std::cout << "project file " << NativePath(CDebugPackageP::kProjectFilePath) << ": "
                      << exporter.GetProjectFileSize() << " bytes\n";
    }
    if (!ok)
        return Fail("a package failed to load (damaged, truncated or not a debug package)" +
                    std::string(files.size() > 1 ? "; packages exported before it stay in the tree" : ""));
    return 0;
}

}  // namespace grabsys
