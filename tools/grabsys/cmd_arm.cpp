// grabsys arm list / arm extract.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;

// The folder as the library joins it: a trailing separator so that a view
// file is <dir><view>.armraw.
std::string AsSource(std::string dir) {
    if (!dir.empty() && dir.back() != '/' && dir.back() != '\\') dir += '\\';
    return dir;
}

bool ReadHeader(const std::string& path, OneViewArmImageDataHeader& header, uint64_t& size) {
    BinaryReader reader;
    if (reader.Open(path.c_str()) == 0) return false;
    size = reader.Remaining();
    return reader.ReadByteArray(reinterpret_cast<unsigned char*>(&header), sizeof header) == sizeof header;
}

int CheckSources(const std::vector<std::string>& dirs) {
    if (dirs.empty() || dirs.size() > 3) return Fail("give one to three folders of .armraw files");
    for (const std::string& dir : dirs)
        if (!DrasselSpace::FileToolP::IsDirectoryExists(dir)) return Fail(dir + ": no such folder");
    return 0;
}

}  // namespace

int RunArmList(const std::vector<std::string>& dirs, const Output& output) {
    if (int code = CheckSources(dirs)) return code;
    ArmImageExtractor extractor;
    int status = 0;
    for (const std::string& dir : dirs) {
        std::vector<int> views;
        const bool clean = extractor.ParseArmRawFile(dir, views);
        std::sort(views.begin(), views.end());
        std::cout << dir << ": " << views.size() << " view" << (views.size() == 1 ? "" : "s") << "\n";
        if (!clean) {
            status = Fail(views.empty() ? dir + ": no .armraw files"
                                        : dir + ": some .armraw files are not named by a view number");
        }
        if (output.quiet) continue;
        for (int view : views) {
            OneViewArmImageDataHeader header;
            uint64_t size = 0;
            const std::string path = AsSource(dir) + std::to_string(view) + ".armraw";
            if (!ReadHeader(path, header, size)) {
                std::cout << "  view " << view << ": shorter than its 1024-byte header (" << size << " bytes)\n";
                continue;
            }
            std::cout << "  view " << view << ": " << header.sinFrameCount << " Sin + " << header.whiteFrameCount
                      << " white frames, " << header.width << " x " << header.height << ", " << header.camCount
                      << " camera" << (header.camCount == 1 ? "" : "s") << " (" << header.sinDimA << " x "
                      << header.sinDimB << " x " << header.sinDimC << "), " << Megabytes(size) << "\n";
        }
    }
    return status;
}

int RunArmExtract(const std::vector<std::string>& dirs, const std::string& outDir, int mode, unsigned jobs,
                  const Output& output) {
    if (int code = CheckSources(dirs)) return code;
    if (!DrasselSpace::FileToolP::CreateDirectoryRecursively(outDir))
        return Fail(outDir + ": cannot create the output folder");
    const std::string probe = AsSource(outDir) + ".grabsys_write_test";
    unsigned char byte = 0;
    if (!DrasselSpace::FileToolP::SaveDataToFile(probe, &byte, 1))
        return Fail(outDir + ": the output folder is not writable");
    std::error_code ec;
    std::filesystem::remove(NativePath(probe), ec);

    // Every (source, view) to do, in order.
    struct Item {
        size_t source;
        int view;
    };
    std::vector<Item> items;
    ArmImageExtractor lister;
    for (size_t s = 0; s < dirs.size(); ++s) {
        std::vector<int> views;
        if (!lister.ParseArmRawFile(dirs[s], views) && views.empty()) Fail(dirs[s] + ": no .armraw files");
        for (int v : views) items.push_back({s, v});
    }
    if (items.empty()) return Fail("nothing to extract");

    jobs = std::max(1u, std::min<unsigned>(jobs, static_cast<unsigned>(items.size())));
    Progress progress("extracting views", items.size(), output);
    std::vector<std::vector<char>> failed(jobs, std::vector<char>(items.size(), 0));
    const auto start = std::chrono::steady_clock::now();
    // Each worker has its own extractor and every jobs-th view.
    auto work = [&](unsigned worker) {
        ArmImageExtractor extractor;
        for (size_t i = worker; i < items.size(); i += jobs) {
            OutputOneViewArmImageParm parm;
            parm.views[0] = {items[i].view};
            parm.inputDirs[0] = AsSource(dirs[items[i].source]);
            parm.outputDir = AsSource(outDir);
            parm.mode = mode;
            std::vector<int> failedViews[1];
            extractor.OutputOneViewArmImages(parm, failedViews, 1);
            if (!failedViews[0].empty()) failed[worker][i] = 1;
            progress.Add();
        }
    };
    std::vector<std::thread> workers;
    for (unsigned w = 1; w < jobs; ++w) workers.emplace_back(work, w);
    work(0);
    for (auto& t : workers) t.join();
    progress.Finish();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    std::vector<std::vector<int>> failedPerSource(dirs.size());
    size_t failedCount = 0;
    for (size_t i = 0; i < items.size(); ++i)
        for (unsigned w = 0; w < jobs; ++w)
            if (failed[w][i]) {
                failedPerSource[items[i].source].push_back(items[i].view);
                ++failedCount;
            }
    if (!output.quiet) {
        std::cout << "extracted " << items.size() - failedCount << " of " << items.size() << " views from "
                  << dirs.size() << " source" << (dirs.size() == 1 ? "" : "s") << " into " << outDir << " in "
                  << seconds << " s (" << jobs << " job" << (jobs == 1 ? "" : "s") << ")\n";
    }
    int status = 0;
    for (size_t s = 0; s < dirs.size(); ++s) {
        if (failedPerSource[s].empty()) continue;
        std::sort(failedPerSource[s].begin(), failedPerSource[s].end());
        std::string list;
        for (int v : failedPerSource[s]) list += (list.empty() ? "" : ", ") + std::to_string(v);
        status = Fail(dirs[s] + ": views " + list +
                      " failed (damaged or unreadable .armraw files; files written for them before the damage stay)");
    }
    return status;
}

}  // namespace grabsys
