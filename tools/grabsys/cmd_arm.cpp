// grabsys arm list / arm extract.
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>

#include "commands.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;

struct ArmOptions {
    std::vector<std::string> dirs;
    std::string outDir;
    int mode = 1;
    unsigned jobs = 1;
};

// The folder as the library joins it: a trailing separator so that a view
// file is <dir><view>.armraw.
std::string AsSource(std::string dir) {
    if (!dir.empty() && dir.back() != '/' && dir.back() != '\\') dir += '\\';
    return dir;
}

// The file's size and what its header says; false when the file holds less
// than a whole header.
bool ReadHeader(const std::string& path, OneViewArmImageDataHeader& header, uint64_t& size) {
    BinaryReader reader;
    if (reader.Open(path.c_str()) == 0) return false;
    size = reader.Remaining();
    std::vector<unsigned char> bytes(format::kArmHeaderBytes);
    const size_t got = reader.ReadByteArray(bytes.data(), bytes.size());
    bool complete = false;
    header = format::DecodeArmHeader(format::Bytes(bytes.data(), got), &complete);
    return complete;
}

int RunArmList(const ArmOptions& o, const Output& output) {
    ArmImageExtractor extractor;
    int status = 0;
    for (const std::string& dir : o.dirs) {
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
                std::cout << "  view " << view << ": shorter than its " << format::kArmHeaderBytes << "-byte header ("
                          << size << " bytes)\n";
                continue;
            }
            std::cout << "  view " << view << ": " << header.sinFrameCount << " Sin + " << header.whiteFrameCount
                      << " white frames, " << header.width << " x " << header.height << ", " << header.camCount
                      << " camera" << (header.camCount == 1 ? "" : "s") << " (" << header.sinDimA << " x "
                      << header.sinDimB << " x " << header.sinDimC << "), " << MiB(size) << "\n";
        }
    }
    return status;
}

int RunArmExtract(const ArmOptions& o, const Output& output) {
    if (!DrasselSpace::FileToolP::CreateDirectoryRecursively(o.outDir))
        return Fail(o.outDir + ": cannot create the output folder");
    const std::string probe = AsSource(o.outDir) + ".grabsys_write_test";
    unsigned char byte = 0;
    if (!DrasselSpace::FileToolP::SaveDataToFile(probe, &byte, 1))
        return Fail(o.outDir + ": the output folder is not writable");
    platform::Env::Default()->RemoveFile(probe);

    // Every (source, view) to do, in order.
    struct Item {
        size_t source;
        int view;
    };
    std::vector<Item> items;
    ArmImageExtractor lister;
    for (size_t s = 0; s < o.dirs.size(); ++s) {
        std::vector<int> views;
        if (!lister.ParseArmRawFile(o.dirs[s], views) && views.empty()) Fail(o.dirs[s] + ": no .armraw files");
        for (int v : views) items.push_back({s, v});
    }
    if (items.empty()) return Fail("nothing to extract");

    const unsigned jobs = std::min<unsigned>(o.jobs, static_cast<unsigned>(items.size()));
    std::vector<std::vector<char>> failed(jobs, std::vector<char>(items.size(), 0));
    const auto start = std::chrono::steady_clock::now();
    {
        Progress progress("extracting views", items.size(), output);
        // Each worker has its own extractor and every jobs-th view.
        auto work = [&](unsigned worker) {
            ArmImageExtractor extractor;
            for (size_t i = worker; i < items.size(); i += jobs) {
                OutputOneViewArmImageParm parm;
                parm.views[0] = {items[i].view};
                parm.inputDirs[0] = AsSource(o.dirs[items[i].source]);
                parm.outputDir = AsSource(o.outDir);
                parm.mode = o.mode;
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
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    std::vector<std::vector<int>> failedPerSource(o.dirs.size());
    size_t failedCount = 0;
    for (size_t i = 0; i < items.size(); ++i)
        for (unsigned w = 0; w < jobs; ++w)
            if (failed[w][i]) {
                failedPerSource[items[i].source].push_back(items[i].view);
                ++failedCount;
            }
    if (!output.quiet) {
        std::cout << "extracted " << items.size() - failedCount << " of " << items.size() << " views from "
                  << o.dirs.size() << " source" << (o.dirs.size() == 1 ? "" : "s") << " into " << o.outDir << " in "
                  << seconds << " s (" << jobs << " job" << (jobs == 1 ? "" : "s") << ")\n";
    }
    int status = 0;
    for (size_t s = 0; s < o.dirs.size(); ++s) {
        if (failedPerSource[s].empty()) continue;
        std::sort(failedPerSource[s].begin(), failedPerSource[s].end());
        std::string list;
        for (int v : failedPerSource[s]) list += (list.empty() ? "" : ", ") + std::to_string(v);
        status = Fail(o.dirs[s] + ": views " + list +
                      " failed (damaged or unreadable .armraw files; files written for them before the damage stay)");
    }
    return status;
}

}  // namespace

void RegisterArm(CLI::App& app, const Output& output, Runner& run) {
    auto o = std::make_shared<ArmOptions>();
    CLI::App* arm = app.add_subcommand("arm", "Per-view .armraw files of an arm capture");
    arm->require_subcommand(1);
    arm->footer("Examples:\n  grabsys arm list /data/scan01/armraw\n  grabsys arm extract /data/scan01/armraw -o /data/bmp --jobs 2");

    CLI::App* list = arm->add_subcommand("list", "List the views of up to three folders of .armraw files");
    list->add_option("DIR", o->dirs, "Folders of .armraw files")->required()->expected(1, 3)->check(CLI::ExistingDirectory);
    list->footer("Example:\n  grabsys arm list /data/scan01/armraw");
    RunWhenParsed(list, run, [o, &output] { return RunArmList(*o, output); });

    CLI::App* extract = arm->add_subcommand("extract", "Extract the views into a BMP tree (Cam<c>P|Q\\<view>\\img<k>.bmp)");
    extract->add_option("DIR", o->dirs, "Folders of .armraw files")->required()->expected(1, 3)->check(CLI::ExistingDirectory);
    extract->add_option("-o,--out", o->outDir, "Root of the BMP tree")->required();
    extract->add_option("--mode", o->mode, "1: Sin and white frames, 2: white only, 3: Sin only")->check(CLI::IsMember({1, 2, 3}))->capture_default_str();
    extract->add_option("-j,--jobs", o->jobs, "Views extracted at once, each worker with its own extractor")->check(CLI::Range(1u, 64u))->capture_default_str();
    extract->footer("Example:\n  grabsys arm extract /data/scan01/armraw /data/scan02/armraw -o /data/bmp --jobs 2");
    RunWhenParsed(extract, run, [o, &output] { return RunArmExtract(*o, output); });
}

}  // namespace grabsys
