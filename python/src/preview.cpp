// Contact sheets as arrays: the sheets grabsys preview writes, in memory.
#include <pybind11/stl.h>

#include <memory>

#include "common.h"
#include "grabsystem/preview/contact_sheet.h"

namespace grabsys_py {
namespace {

using GrabSystem::preview::Sheet;
using GrabSystem::preview::SheetOptions;

SheetOptions Options(uint32_t thumbWidth, uint32_t perRow, uint32_t imageWidth, bool labels) {
    SheetOptions o;
    o.thumbWidth = thumbWidth;
    o.perRow = perRow;
    o.imageWidth = imageWidth;
    o.labels = labels;
    return o;
}

// The sheet's own pixels, handed to numpy with the sheet as their owner.
py::array ToArray(std::unique_ptr<Sheet> sheet) {
    const Sheet* s = sheet.get();
    py::capsule owner(sheet.release(), [](void* p) { delete static_cast<Sheet*>(p); });
    return ArrayOver<uint8_t>(owner, s->pixels.data(), {s->height, s->width, s->channels});
}

// `render(sheet, unreadable)` draws the sheet; views an index could not
// show come back in `unreadable`.
template <typename Renderer>
py::array Render(const std::string& path, Renderer render) {
    auto sheet = std::make_unique<Sheet>();
    std::vector<GrabSystem::Status> unreadable;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = render(*sheet, unreadable);
    }
    if (!status.ok()) Fail(path, status);
    // A folder sheet is made even when some views cannot be read: their
    // rows say why, and so does a warning each.
    for (const GrabSystem::Status& view : unreadable)
        if (PyErr_WarnEx(PyExc_UserWarning, view.ToString().c_str(), 1) != 0) throw py::error_already_set();
    return ToArray(std::move(sheet));
}

}  // namespace

void BindPreview(py::module_& m) {
    m.def(
        "contact_sheet",
        [](const std::string& path, uint32_t thumbWidth, uint32_t perRow, uint32_t imageWidth, bool labels) {
            const SheetOptions options = Options(thumbWidth, perRow, imageWidth, labels);
            return Render(path, [&](Sheet& sheet, std::vector<GrabSystem::Status>&) {
                return GrabSystem::preview::RenderFileSheet(path, options, sheet);
            });
        },
        py::arg("path"), py::arg("thumb_width") = 96, py::arg("per_row") = 13, py::arg("image_width") = 480,
        py::arg("labels") = true,
        "The contact sheet `grabsys preview` writes for one file, as a (height, width, 3) uint8\n"
        "RGB array: an .armraw view (one row per camera and group, Sin frames in image-number\n"
        "order, then the white frame, each with a strip of its mean and clipped share), a\n"
        "package (one row per run), or a raw, BMP or float image with its information block.\n"
        "Raises FileError when the file cannot be shown.");
    m.def(
        "folder_sheet",
        [](const std::string& directory, uint32_t thumbWidth, uint32_t perRow, bool labels) {
            const SheetOptions options = Options(thumbWidth, perRow, 480, labels);
            return Render(directory, [&](Sheet& sheet, std::vector<GrabSystem::Status>& unreadable) {
                return GrabSystem::preview::RenderFolderSheet(directory, options, sheet, &unreadable);
            });
        },
        py::arg("directory"), py::arg("thumb_width") = 96, py::arg("per_row") = 13, py::arg("labels") = true,
        "The index sheet of a folder of .armraw files (`grabsys preview --index`): one row per\n"
        "view. Views that cannot be read keep a row that names the cause, with a UserWarning;\n"
        "FileError when the folder holds no view.");
}

}  // namespace grabsys_py
