#include "grabsystem/preview/arm_sheet.h"

#include <cstdlib>
#include <map>
#include <utility>

#include "grabsystem/arm/arm_tree.h"
#include "grabsystem/platform/toolkit/win_helper.h"
#include "grabsystem/preview/compose.h"

namespace GrabSystem {
namespace preview {

namespace {

// A folder of the tree as the sheet shows it.
struct Folder {
    std::string name;                     // "CAM0P"
    std::map<int64_t, uint32_t> sin;      // image number -> Sin frame; later frames win, as in the tree
    int64_t white = -1;
};

FrameRef Ref(const capture::FrameStack& stack, uint32_t i, std::string name) {
    FrameRef f;
    f.pixels = stack.Frame(i);
    f.width = stack.width;
    f.height = stack.height;
    f.name = std::move(name);
    return f;
}

}  // namespace

bool ArmRows(const capture::ArmViewContent& view, int viewIndex, const std::string& root, uint32_t cellWidth,
             std::vector<Row>& rows, std::string& error) {
    const ArmTree tree = LayOutArmTree(view.header, viewIndex, root);
    if (!tree.complete) {
        error = "arm view: " + tree.error;
        return false;
    }
    std::vector<Folder> folders;
    std::map<std::string, size_t> known;
    for (const ArmTreeFrame& f : tree.frames) {
        auto it = known.find(f.folder);
        if (it == known.end()) {
            it = known.emplace(f.folder, folders.size()).first;
            folders.push_back(Folder{"CAM" + Num(f.camera) + (f.p ? "P" : "Q"), {}, -1});
        }
        Folder& folder = folders[it->second];
        if (f.white)
            folder.white = f.frame - view.sin.count;
        else
            folder.sin[f.number] = f.frame;
    }
    uint64_t cells = 0;
    for (const Folder& folder : folders) cells += folder.sin.size() + (folder.white >= 0 ? 1 : 0);
    if (TooManyCells(cells, cellWidth, error)) return false;
    for (const Folder& folder : folders) {
        Row row;
        std::vector<int64_t> numbers;
        for (const auto& [number, frame] : folder.sin) {
            numbers.push_back(number);
            row.frames.push_back(Ref(view.sin, frame, "IMG" + Num(number)));
        }
        if (folder.white >= 0) row.frames.push_back(Ref(view.white, static_cast<uint32_t>(folder.white), "IMGW"));
        std::string images = Ranges(numbers);
        if (folder.white >= 0) images += images.empty() ? "W" : ", W";
        row.label.push_back(Label{{"VIEW " + Num(viewIndex), folder.name, "IMG " + images}});
        row.tag = folder.name.substr(3);
        rows.push_back(std::move(row));
    }
    return true;
}

int ViewOfPath(const std::string& path) {
    const std::string stem = DrasselSpace::CWinHelper::GetFileNameWithoutExtension(path);
    char* end = nullptr;
    const long v = std::strtol(stem.c_str(), &end, 10);
    return !stem.empty() && end != nullptr && *end == '\0' && v >= INT32_MIN && v <= INT32_MAX ? static_cast<int>(v)
                                                                                                : -1;
}

Status RenderArmViewSheet(const capture::ArmViewContent& view, int viewIndex, const SheetOptions& options,
                          Sheet& sheet) {
    std::string error;
    if (!CheckOptions(options, error)) return Status::InvalidArgument("", error);
    std::vector<Row> rows;
    if (ArmRows(view, viewIndex, options.treeRoot, options.thumbWidth, rows, error) &&
        Compose(rows, options.thumbWidth, options, sheet, error))
        return Status::OK();
    return Status::Corruption("", error);
}

}  // namespace preview
}  // namespace GrabSystem
