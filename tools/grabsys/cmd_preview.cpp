// grabsys preview: contact sheets of captures, packages and images.
#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "commands.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using namespace GrabSystem;

struct PreviewOptions {
    std::vector<std::string> inputs;
    std::string out;
    preview::SheetOptions sheet;
    bool noLabels = false;
    bool index = false;
};

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

// Sheets are PNG, or BMP in a build without libpng (Windows).
const std::string kSheetExtension = preview::SheetFileExtension();

std::string Stem(std::string path) {
    while (path.size() > 1 && IsSeparator(path.back())) path.pop_back();
    return DrasselSpace::CWinHelper::GetFileNameWithoutExtension(path);
}

// One sheet to write: what it shows, the stem its name derives from.
struct Job {
    std::string source;
    std::string stem;
    // The sheet, through the command's Env; `unreadable` takes the views an
    // index could not show.
    std::function<Status(platform::Env*, preview::Sheet&, std::vector<Status>& unreadable)> render;
};

// Where each job's sheet goes: -o itself for a single sheet named as a
// file; <dir>/<stem><ext> when -o is a folder (existing, or ending with a
// separator); else <-o without extension>-<stem><ext> beside it. Names that
// would repeat get -2, -3, ...
std::vector<std::string> OutputNames(platform::Env* env, const std::string& out, const std::vector<Job>& jobs) {
    const bool folder = IsSeparator(out.back()) || DrasselSpace::FileToolP::IsDirectoryExists(out, env);
    std::string base = out;
    const std::string ext = DrasselSpace::CWinHelper::GetFileExtension(out);
    if (!folder && !ext.empty()) base.resize(out.size() - ext.size());
    std::vector<std::string> names;
    if (jobs.size() == 1 && !folder) return {base + kSheetExtension};
    std::set<std::string> used;
    for (const Job& job : jobs) {
        const std::string start =
            folder ? DrasselSpace::CWinHelper::WithTrailingSeparator(out, '/') + job.stem : base + "-" + job.stem;
        std::string name = start + kSheetExtension;
        for (int n = 2; used.count(name) != 0; ++n) name = start + "-" + std::to_string(n) + kSheetExtension;
        used.insert(name);
        names.push_back(name);
    }
    return names;
}

int RunPreview(const PreviewOptions& o, const Output& output) {
    if (o.out.empty()) return Fail("-o: an empty name");
    CommandFiles files(output);
    preview::SheetOptions sheetOptions = o.sheet;
    sheetOptions.labels = !o.noLabels;
    int status = 0;
    std::vector<Job> jobs;
    for (const std::string& input : o.inputs) {
        if (!DrasselSpace::FileToolP::IsDirectoryExists(input, &files)) {
            jobs.push_back({input, Stem(input), [input, sheetOptions](platform::Env* env, preview::Sheet& s, std::vector<Status>&) {
                                return preview::RenderFileSheet(input, sheetOptions, s, env);
                            }});
            continue;
        }
        if (o.index) {
            jobs.push_back({input, Stem(input),
                            [input, sheetOptions](platform::Env* env, preview::Sheet& s, std::vector<Status>& unreadable) {
                                return preview::RenderFolderSheet(input, sheetOptions, s, &unreadable, env);
                            }});
            continue;
        }
        std::vector<int> views;
        ArmImageExtractor lister;
        lister.SetEnv(&files);
        lister.ParseArmRawFile(input, views);
        std::sort(views.begin(), views.end());
        if (views.empty()) status = Fail(input + ": no .armraw files named by a view number");
        for (int view : views) {
            const std::string path =
                DrasselSpace::CWinHelper::WithTrailingSeparator(input, '/') + std::to_string(view) + ".armraw";
            jobs.push_back({path, Stem(input) + "-" + std::to_string(view),
                            [path, sheetOptions](platform::Env* env, preview::Sheet& s, std::vector<Status>&) {
                                return preview::RenderFileSheet(path, sheetOptions, s, env);
                            }});
        }
    }
    if (jobs.empty()) return ReportFiles(files) != 0 ? 1 : status;
    const std::vector<std::string> names = OutputNames(&files, o.out, jobs);
    if (IsSeparator(o.out.back())) {
        const Status folder = files.CreateDirectories(o.out);
        if (!folder.ok()) return Fail(folder.ToString());
    }

    // Inputs that cannot be shown are named here; files that fail to be
    // read or written, by ReportFiles.
    Progress progress("rendering sheets", jobs.size(), output);
    for (size_t i = 0; i < jobs.size(); ++i) {
        preview::Sheet sheet;
        std::vector<Status> unreadable;
        const size_t before = files.Failures().size();
        const Status made = jobs[i].render(&files, sheet, unreadable);
        progress.Add();
        if (!made.ok()) {
            status = 1;
            if (files.Failures().size() == before) Fail(made.subject().empty() ? jobs[i].source + ": " + made.cause() : made.ToString());
            continue;
        }
        std::vector<uint8_t> bytes;
        if (!preview::EncodeSheet(sheet, bytes)) {
            status = Fail(names[i] + ": the sheet cannot be encoded");
            continue;
        }
        if (!files.WriteFile(names[i], bytes.data(), bytes.size()).ok()) {
            status = 1;
            continue;
        }
        // A folder index is written even when some views could not be read;
        // their rows say why, and so does one error line each.
        for (const Status& view : unreadable)
            if (!view.IsIOError() && !view.IsNotFound()) status = Fail(view.ToString());
        if (!output.quiet) {
            std::cout << "wrote " << names[i] << ": " << sheet.width << " x " << sheet.height << " from "
                      << jobs[i].source << "\n";
        }
    }
    if (ReportFiles(files) != 0) status = 1;
    return status;
}

}  // namespace

void RegisterPreview(CLI::App& app, const Output& output, Runner& run) {
    auto o = std::make_shared<PreviewOptions>();
    CLI::App* cmd = app.add_subcommand(
        "preview", std::string("Contact sheets (") + kSheetExtension.substr(1) +
                       ") of .armraw views, folders of them, debug packages, raw, BMP and float raw images");
    cmd->add_option("FILE", o->inputs, "Files, or folders of .armraw files (one sheet per view, or --index)")
        ->required()
        ->check(CLI::ExistingPath);
    cmd->add_option("-o,--out", o->out,
                    std::string("The sheet's file for one sheet; with several, a folder (existing, or ending with "
                                "'/') receives <input stem>") +
                        kSheetExtension + ", and any other name N.ext gives N-<input stem>" + kSheetExtension +
                        " (a view of folder F: stem F-<view>)")
        ->required();
    cmd->add_option("-t,--thumb", o->sheet.thumbWidth, "Thumbnail width in pixels")
        ->check(CLI::Range(8u, 2048u))
        ->capture_default_str();
    cmd->add_option("-n,--per-row", o->sheet.perRow, "Thumbnails per line before a row wraps")
        ->check(CLI::Range(1u, 4096u))
        ->capture_default_str();
    cmd->add_option("--image-width", o->sheet.imageWidth, "Most pixels across a single image is shown at (never enlarged)")
        ->check(CLI::Range(8u, 8192u))
        ->capture_default_str();
    cmd->add_flag("--no-labels", o->noLabels, "Leave out all text (the layout stays the same)");
    cmd->add_flag("--index", o->index, "One index sheet per folder: a row per view, first frame and white frame of each camera and group");
    cmd->footer(std::string("Each row of a view's sheet is one folder of the extracted tree (Cam<c><P|Q>), frames in "
                            "image-number order,\nthen imgW; under each thumbnail: mean bar, clipped bar (blue at 0, "
                            "red at 255), name, mean and clipped %.\nAn input that fails prints one error line; the "
                            "others still get their sheets.\n\nExamples:\n  grabsys preview scan01/armraw/3.armraw -o "
                            "view3") +
                kSheetExtension + "\n  grabsys preview scan01/armraw -o sheets/ --thumb 64 --per-row 13\n"
                "  grabsys preview scan01/armraw --index -o index" + kSheetExtension +
                "\n  grabsys preview capture.dbg frame.raw depth.fraw -o sheet" + kSheetExtension);
    RunWhenParsed(cmd, run, [o, &output] { return RunPreview(*o, output); });
}

}  // namespace grabsys
