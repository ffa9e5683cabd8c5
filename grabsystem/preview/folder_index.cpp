// The index of a folder of view files: a row per view, each holding the
// first frame by number and the white frame of every folder of its tree.
#include <algorithm>
#include <deque>

#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/platform/toolkit/win_helper.h"
#include "grabsystem/platform/tracking_env.h"
#include "grabsystem/preview/arm_sheet.h"
#include "grabsystem/preview/compose.h"
#include "grabsystem/preview/thumbnail.h"

namespace GrabSystem {
namespace preview {

Status RenderFolderSheet(const std::string& directory, const SheetOptions& options, Sheet& sheet,
                         std::vector<Status>* unreadable, platform::Env* env) {
    if (unreadable != nullptr) unreadable->clear();
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument(directory, error);
    std::vector<int> views;
    {
        platform::TrackingEnv listing(platform::Env::Or(env));
        ArmImageExtractor extractor;
        extractor.SetEnv(&listing);
        extractor.ParseArmRawFile(directory, views);
        if (!listing.ok()) return listing.status();
    }
    if (views.empty()) return Status::NotFound(directory, "no .armraw files named by a view number");
    std::sort(views.begin(), views.end());
    if (views.size() > kMaxSheetSide / kLineHeight)
        return Status::InvalidArgument(directory,
                                       Num(static_cast<int64_t>(views.size())) + " views: more rows than a sheet can hold");
    const std::string prefix = DrasselSpace::CWinHelper::WithTrailingSeparator(directory, '/');
    std::vector<Row> rows;
    std::deque<std::vector<uint8_t>> thumbs;  // the index keeps thumbnails, not views
    for (int v : views) {
        capture::ArmViewContent view;
        std::string why;
        std::vector<Row> viewRows;
        Row index;
        const std::string path = prefix + Num(v) + ".armraw";
        Status read = capture::ReadArmView(path, view, env);
        if (read.ok() && !ArmRows(view, v, options.treeRoot, options.thumbWidth, viewRows, why))
            read = Status::Corruption(path, why);
        if (!read.ok()) {
            // Words, so that a label too narrow for the cause drops words, not
            // parts of numbers.
            index.label.push_back(Label{Words("VIEW " + Num(v) + ": " + read.cause()), " "});
            if (unreadable != nullptr) {
                const std::string cause = "view " + Num(v) + ": " + read.cause();
                unreadable->push_back(read.IsIOError()    ? Status::IOError(read.subject(), cause)
                                      : read.IsNotFound() ? Status::NotFound(read.subject(), cause)
                                                          : Status::Corruption(read.subject(), cause));
            }
            rows.push_back(std::move(index));
            continue;
        }
        const OneViewArmImageDataHeader& h = view.header;
        index.label.push_back(Label{{"VIEW " + Num(v), Num(h.camCount) + " CAMERAS",
                                     Num(h.sinDimA) + " X " + Num(h.sinDimB) + " X " + Num(h.sinDimC),
                                     Num(h.sinFrameCount) + " SIN + " + Num(h.whiteFrameCount) + " W",
                                     Num(h.width) + " X " + Num(h.height)}});
        for (const Row& folderRow : viewRows) {
            std::vector<const FrameRef*> picked{&folderRow.frames.front()};
            if (folderRow.frames.size() > 1 && folderRow.frames.back().name == "IMGW")
                picked.push_back(&folderRow.frames.back());
            for (const FrameRef* f : picked) {
                FrameRef small = *f;
                small.name = folderRow.tag + " " + f->name.substr(3);
                uint32_t tw = 0, th = 0;
                thumbs.emplace_back();
                if (!MakeThumb(*f, options.thumbWidth, thumbs.back(), tw, th, small.stats))
                    return Status::IOError(directory, "out of memory for a thumbnail");
                small.measured = true;
                small.pixels = thumbs.back().data();
                small.width = tw;
                small.height = th;
                index.frames.push_back(small);
            }
        }
        rows.push_back(std::move(index));
        Grid grid;
        if (!Layout(rows, options.thumbWidth, options.perRow, grid, error)) return Status::InvalidArgument(directory, error);
    }
    if (!Compose(rows, options.thumbWidth, options, sheet, error)) return Status::InvalidArgument(directory, error);
    return Status::OK();
}

}  // namespace preview
}  // namespace GrabSystem
