// grabsys arm list / arm extract.
#include <algorithm>
#include <atomic>
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
std::string AsSource(const std::string& dir) { return DrasselSpace::CWinHelper::WithTrailingSeparator(dir); }

int RunArmList(const ArmOptions& o, const Output& output) {
    CommandFiles files(output);
    ArmImageExtractor extractor;
    extractor.SetEnv(&files);
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
            capture::ArmHead head;
            const Status read = capture::ReadArmHead(AsSource(dir) + std::to_string(view) + ".armraw", head, &files);
            const OneViewArmImageDataHeader& header = head.header;
            if (!read.ok() && head.fileBytes < format::kArmHeaderBytes) {
                std::cout << "  view " << view << ": shorter than its " << format::kArmHeaderBytes << "-byte header ("
                          << head.fileBytes << " bytes)\n";
                continue;
            }
            if (!read.ok()) {
                std::cout << "  view " << view << ": " << read.cause() << "\n";
                continue;
            }
            std::cout << "  view " << view << ": " << header.sinFrameCount << " Sin + " << header.whiteFrameCount
                      << " white frames, " << header.width << " x " << header.height << ", " << header.camCount
                      << " camera" << (header.camCount == 1 ? "" : "s") << " (" << header.sinDimA << " x "
                      << header.sinDimB << " x " << header.sinDimC << "), " << MiB(head.fileBytes) << "\n";
        }
    }
    return ReportFiles(files) != 0 ? 1 : status;
}

int RunArmExtract(const ArmOptions& o, const Output& output) {
    CommandFiles files(output);
    const Status root = files.CreateDirectories(o.outDir);
    if (!root.ok()) return Fail("output folder " + root.ToString());

    OutputOneViewArmImageParm parm;
    parm.outputDir = AsSource(o.outDir);
    parm.mode = o.mode;
    uint64_t total = 0;
    ArmImageExtractor extractor;
    extractor.SetEnv(&files);
    for (size_t s = 0; s < o.dirs.size(); ++s) {
        std::vector<int>& views = parm.views[s];
        const size_t before = files.Failures().size();
        // A folder that cannot be listed says why among the files' failures.
        if (!extractor.ParseArmRawFile(o.dirs[s], views) && views.empty() && files.Failures().size() == before)
            Fail(o.dirs[s] + ": no .armraw files");
        std::sort(views.begin(), views.end());
        parm.inputDirs[s] = AsSource(o.dirs[s]);
        total += views.size();
    }
    if (total == 0) {
        ReportFiles(files);
        return Fail("nothing to extract");
    }

    // The extractor shares the views of each source out to its threads; the
    // bar follows its counters, which may be read while it works.
    extractor.SetExtractThreads(static_cast<int>(o.jobs));
    std::vector<int> failedPerSource[3];
    const auto start = std::chrono::steady_clock::now();
    {
        Progress progress("extracting views", total, output);
        std::atomic<bool> done{false};
        std::thread ticker([&] {
            uint64_t shown = 0;
            while (!done) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                const ExtractCounters c = extractor.GetCounters();
                uint64_t now = 0;
                for (int s = 0; s < 3; ++s) now += c.extracted[s] + c.failed[s];
                if (now > shown) progress.Add(now - shown);
                shown = std::max(shown, now);
            }
        });
        extractor.OutputOneViewArmImages(parm, failedPerSource, static_cast<unsigned char>(o.dirs.size()));
        done = true;
        ticker.join();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    // Views the system counts as extracted may still have lost files: they
    // are not counted as extracted here.
    const ExtractCounters c = extractor.GetCounters();
    uint64_t failedCount = 0, incomplete = 0;
    for (size_t s = 0; s < 3; ++s) {
        failedCount += c.failed[s];
        incomplete += c.filesFailed[s];
    }
    if (!output.quiet) {
        const int threads = extractor.GetExtractThreads();
        std::cout << "extracted " << total - failedCount - incomplete << " of " << total << " views from "
                  << o.dirs.size() << " source" << (o.dirs.size() == 1 ? "" : "s") << " into " << o.outDir << " in "
                  << seconds << " s (" << threads << " thread" << (threads == 1 ? "" : "s") << ")";
        if (incomplete != 0) std::cout << "; " << incomplete << " view" << (incomplete == 1 ? "" : "s") << " with files not written";
        std::cout << "\n";
    }
    int status = ReportFiles(files);
    // The extractor says only which views failed; the strict reader says
    // why, naming the file. A view it reads whole failed for its folders.
    for (size_t s = 0; s < o.dirs.size(); ++s) {
        std::sort(failedPerSource[s].begin(), failedPerSource[s].end());
        for (int v : failedPerSource[s]) {
            const std::string path = parm.inputDirs[s] + std::to_string(v) + ".armraw";
            capture::ArmViewContent view;
            const Status read = capture::ReadArmView(path, view, ToolEnv());
            status = Fail(NativePath(path) + ": " +
                          (read.ok() ? "view " + std::to_string(v) + " failed: its folders under the output could not be made"
                                     : read.cause() + " (view " + std::to_string(v) +
                                           " failed; files written for it before that stay)"));
        }
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
    extract->add_option("-j,--jobs", o->jobs, "Threads extracting views at once (the extractor's own)")->check(CLI::Range(1u, 64u))->capture_default_str();
    extract->footer("Example:\n  grabsys arm extract /data/scan01/armraw /data/scan02/armraw -o /data/bmp --jobs 2");
    RunWhenParsed(extract, run, [o, &output] { return RunArmExtract(*o, output); });
}

}  // namespace grabsys
