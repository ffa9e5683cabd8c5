#include "grabsystem/preview/package_sheet.h"

#include <algorithm>

#include "grabsystem/preview/compose.h"

namespace GrabSystem {
namespace preview {

bool PackageSheet(const capture::PackageContent& package, const SheetOptions& options, Sheet& sheet,
                  std::string& error) {
    uint64_t cells = 0;
    for (const capture::PackageRun& run : package.runs) cells += run.frames.count;
    if (TooManyCells(cells, options.thumbWidth, error)) return false;
    if (package.runs.size() > kMaxSheetSide / kLineHeight) {
        error = Num(static_cast<int64_t>(package.runs.size())) + " runs: more rows than a sheet can hold";
        return false;
    }
    std::vector<Row> rows(1);
    Label title{{std::string(package.general ? "GENERAL" : "IMAGE") + " PACKAGE V" + Num(package.version),
                 Num(static_cast<int64_t>(package.runs.size())) + " RUNS"}};
    if (package.hasProjectFile)
        title.fields.push_back("PROJECT FILE " + Num(static_cast<int64_t>(package.projectFile.size)) + " BYTES");
    rows[0].label.push_back(title);
    for (size_t i = 0; i < package.runs.size(); ++i) {
        const capture::PackageRun& run = package.runs[i];
        Row row;
        std::vector<int64_t> numbers;
        for (uint32_t j = 0; j < run.frames.count; ++j) {
            // The export's own 32-bit rule, wrap included.
            const uint32_t number = run.info.FrameCount * run.info.GroupIdx + run.info.JumpIdx + j;
            numbers.push_back(number);
            FrameRef f;
            f.pixels = run.frames.Frame(j);
            f.width = run.frames.width;
            f.height = run.frames.height;
            f.name = "IMG" + Num(number);
            row.frames.push_back(f);
        }
        std::sort(numbers.begin(), numbers.end());
        row.label.push_back(Label{{"RUN " + Num(static_cast<int64_t>(i)), "CAM" + Num(run.info.CamIdx),
                                   "GROUP " + Num(run.info.GroupIdx), "JUMP " + Num(run.info.JumpIdx),
                                   Num(run.frames.width) + " X " + Num(run.frames.height), "IMG " + Ranges(numbers)}});
        rows.push_back(std::move(row));
    }
    return Compose(rows, options.thumbWidth, options, sheet, error);
}

Status RenderPackageSheet(const capture::PackageContent& package, const SheetOptions& options, Sheet& sheet) {
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument("", error);
    return PackageSheet(package, options, sheet, error) ? Status::OK() : Status::Corruption("", error);
}

}  // namespace preview
}  // namespace GrabSystem
