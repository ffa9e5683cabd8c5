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

template <typename Renderer>
py::array Render(const std::string& path, const SheetOptions& options, Renderer render) {
    auto sheet = std::make_unique<Sheet>();
    std::string error;
    bool ok = false;
    {
        py::gil_scoped_release release;
        ok = render(path, options, *sheet, error);
    }
    if (!ok) Fail(path, error);
    // A folder sheet is made even when some views cannot be read: their
    // rows say why, and so does a warning.
    if (!error.empty()) PyErr_WarnEx(PyExc_UserWarning, (path + ": " + error).c_str(), 1);
    return ToArray(std::move(sheet));
}

}  // namespace

void BindPreview(py::module_& m) {
    m.def(
        "contact_sheet",
        [](const std::string& path, uint32_t thumbWidth, uint32_t perRow, uint32_t imageWidth, bool labels) {
            return Render(path, Options(thumbWidth, perRow, imageWidth, labels), GrabSystem::preview::RenderFileSheet);
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
            return Render(directory, Options(thumbWidth, perRow, 480, labels), GrabSystem::preview::RenderFolderSheet);
        },
        py::arg("directory"), py::arg("thumb_width") = 96, py::arg("per_row") = 13, py::arg("labels") = true,
        "The index sheet of a folder of .armraw files (`grabsys preview --index`): one row per\n"
        "view. Views that cannot be read keep a row that names the cause, with a UserWarning;\n"
        "FileError when the folder holds no view.");
}

}  // namespace grabsys_py
