// Image files to and from numpy: raw, BMP, float and double raw, and
// flat-field table streams, through the library's image classes.
#include <pybind11/stl.h>

#include <cstring>
#include <memory>

#include "common.h"
#include "grabsystem/capture/ffc_file.h"
#include "grabsystem/capture/image_file.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/env.h"

namespace grabsys_py {
namespace {

using GrabSystem::IImgP;
using VormexDataStructure::eImgFileFormat;

// The pixel type of each image kind as numpy sees it.
enum class Kind { kU8, kU16, kU32, kF32, kF64, kFfc };

struct Image {
    std::unique_ptr<IImgP> img;
    Kind kind = Kind::kU8;
};

template <typename T>
py::array PixelsOf(const py::object& owner, IImgP& img) {
    const uint32_t h = img.GetHeight(), w = img.GetWidth(), c = img.GetChCnt();
    const uint64_t bytes = static_cast<uint64_t>(h) * w * c * sizeof(T);
    // A geometry the buffer cannot back (a kept buffer, memory mode 2) gets
    // no view: the array would reach past the image's memory.
    if (bytes > img.GetMemSize() || (bytes != 0 && img.GetData() == nullptr))
        throw py::value_error("the image's geometry describes more bytes than its memory holds");
    const T* data = static_cast<const T*>(img.GetData());
    if (c == 1) return ArrayOver<T>(owner, data, {h, w});
    return ArrayOver<T>(owner, data, {h, w, c});
}

py::array Pixels(const py::object& self) {
    Image& image = self.cast<Image&>();
    switch (image.kind) {
        case Kind::kU8: return PixelsOf<uint8_t>(self, *image.img);
        case Kind::kU16:
        case Kind::kFfc: return PixelsOf<uint16_t>(self, *image.img);
        case Kind::kU32: return PixelsOf<uint32_t>(self, *image.img);
        case Kind::kF32: return PixelsOf<float>(self, *image.img);
        case Kind::kF64: return PixelsOf<double>(self, *image.img);
    }
    return py::array();
}

std::unique_ptr<IImgP> Make(Kind kind) {
    switch (kind) {
        case Kind::kU8: return std::make_unique<GrabSystem::CImg8P>();
        case Kind::kU16: return std::make_unique<GrabSystem::CImg16P>();
        case Kind::kU32: return std::make_unique<GrabSystem::CImg32P>();
        case Kind::kF32: return std::make_unique<GrabSystem::CImgFloatP>();
        case Kind::kF64: return std::make_unique<GrabSystem::CImgDoubleP>();
        case Kind::kFfc: return std::make_unique<GrabSystem::CFFCTableP>();
    }
    return nullptr;
}

// The image a reader of the library gives, and its pixel type as numpy
// sees it.
template <typename Reader>
Image Read(const std::string& path, Reader read) {
    Image image;
    CallFiles files;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = read(&files, image.img);
    }
    if (!status.ok()) Fail(path, status);
    RaiseFailures(files);
    image.img->SetEnv(nullptr);
    IImgP* img = image.img.get();
    image.kind = dynamic_cast<GrabSystem::CImgDoubleP*>(img) != nullptr  ? Kind::kF64
                 : dynamic_cast<GrabSystem::CImgFloatP*>(img) != nullptr ? Kind::kF32
                 : img->GetBytePerCh() == 2                              ? Kind::kU16
                 : img->GetBytePerCh() == 4                              ? Kind::kU32
                                                                         : Kind::kU8;
    return image;
}

Image ReadImage(const std::string& path) {
    return Read(path, [&](GrabSystem::platform::Env* env, std::unique_ptr<IImgP>& img) {
        return GrabSystem::capture::ReadImageFile(path, img, env);
    });
}

Image ReadFloatRaw(const std::string& path, const py::object& dtype) {
    const uint32_t valueBytes =
        dtype.is_none() ? 0 : py::dtype::from_args(dtype).is(py::dtype::of<double>()) ? 8 : 4;
    return Read(path, [&](GrabSystem::platform::Env* env, std::unique_ptr<IImgP>& img) {
        return GrabSystem::capture::ReadValueRawFile(path, valueBytes, img, env);
    });
}

std::vector<Image> ReadFfcTables(const std::string& path) {
    std::vector<std::unique_ptr<GrabSystem::CFFCTableP>> read;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = GrabSystem::capture::ReadFfcTables(path, read);
    }
    if (!status.ok()) Fail(path, status);
    std::vector<Image> tables;
    for (auto& table : read) {
        Image image;
        image.kind = Kind::kFfc;
        image.img = std::move(table);
        tables.push_back(std::move(image));
    }
    return tables;
}

// An image of `kind` holding a copy of `pixels` ((h, w) or (h, w, c)).
template <typename T>
std::unique_ptr<IImgP> FromArray(Kind kind, const py::handle& pixels, const py::handle& info, const char* what) {
    auto a = Contiguous<T>(pixels, what, 2, 3);
    const auto channels = a.ndim() == 3 ? a.shape(2) : 1;
    if (channels < 1 || channels > 255) throw py::value_error(std::string(what) + ": 1 to 255 channels");
    if (a.shape(0) > UINT32_MAX || a.shape(1) > UINT32_MAX) throw py::value_error(std::string(what) + ": too large");
    std::unique_ptr<IImgP> img = Make(kind);
    if (!img->SetSize(static_cast<uint32_t>(a.shape(1)), static_cast<uint32_t>(a.shape(0)),
                      static_cast<uint8_t>(channels), false))
        throw std::bad_alloc();
    const uint64_t bytes = static_cast<uint64_t>(a.size()) * sizeof(T);
    if (bytes > img->GetMemSize()) throw py::value_error(std::string(what) + ": too large for one image");
    if (bytes != 0) std::memcpy(img->GetData(), a.data(), static_cast<size_t>(bytes));
    ApplyInfo(info, img->GetInfo());
    return img;
}

void WriteImage(const std::string& path, const py::array& pixels, const std::string& format, const py::object& info) {
    eImgFileFormat fmt = VormexDataStructure::eImgFmtRaw;
    if (format == "bmp") {
        fmt = VormexDataStructure::eImgFmtBmp;
    } else if (format != "raw") {
        throw py::value_error("format: 'raw' or 'bmp'");
    }
    std::unique_ptr<IImgP> img;
    const py::dtype dt = pixels.dtype();
    if (dt.is(py::dtype::of<uint8_t>())) {
        img = FromArray<uint8_t>(Kind::kU8, pixels, info, "pixels");
    } else if (fmt == VormexDataStructure::eImgFmtBmp) {
        throw py::value_error("pixels: BMP files hold uint8 pixels");
    } else if (dt.is(py::dtype::of<uint16_t>())) {
        img = FromArray<uint16_t>(Kind::kU16, pixels, info, "pixels");
    } else if (dt.is(py::dtype::of<uint32_t>())) {
        img = FromArray<uint32_t>(Kind::kU32, pixels, info, "pixels");
    } else {
        throw py::type_error("pixels: uint8, uint16 or uint32 (float images: write_float_raw)");
    }
    if (fmt == VormexDataStructure::eImgFmtBmp && img->GetChCnt() != 1 && img->GetChCnt() != 3 && img->GetChCnt() != 4)
        throw py::value_error("pixels: BMP files hold 1, 3 or 4 channels");
    CallFiles files;
    img->SetEnv(&files);
    {
        py::gil_scoped_release release;
        img->SaveFile(path.c_str(), fmt);  // true once the path is given: the account says what happened
    }
    RaiseFailures(files);
}

void WriteFloatRaw(const std::string& path, const py::array& pixels, std::tuple<double, double> resolution,
                   const py::object& info) {
    std::unique_ptr<IImgP> img;
    const bool isDouble = pixels.dtype().is(py::dtype::of<double>());
    if (isDouble) {
        img = FromArray<double>(Kind::kF64, pixels, info, "pixels");
    } else if (pixels.dtype().is(py::dtype::of<float>())) {
        img = FromArray<float>(Kind::kF32, pixels, info, "pixels");
    } else {
        throw py::type_error("pixels: float32 or float64");
    }
    img->GetResolution().dY = std::get<0>(resolution);
    img->GetResolution().dZ = std::get<1>(resolution);
    CallFiles files;
    img->SetEnv(&files);
    bool written = false;
    {
        py::gil_scoped_release release;
        written = isDouble ? static_cast<GrabSystem::CImgDoubleP&>(*img).SaveToRaw(path)
                           : static_cast<GrabSystem::CImgFloatP&>(*img).SaveToRaw(path);
    }
    RaiseFailures(files);
    if (!written) Fail(path, "the image cannot be laid out as a float raw file");
}

void WriteFfcTables(const std::string& path, const std::vector<py::array>& tables, const py::object& infos) {
    std::vector<std::unique_ptr<IImgP>> images;
    for (size_t i = 0; i < tables.size(); ++i) {
        const py::object info = infos.is_none() ? py::object(py::none()) : py::object(infos[py::int_(i)]);
        images.push_back(FromArray<uint16_t>(Kind::kFfc, tables[i], info, "tables"));
    }
    std::vector<GrabSystem::CFFCTableP*> ffc;
    for (auto& image : images) ffc.push_back(static_cast<GrabSystem::CFFCTableP*>(image.get()));
    CallFiles files;
    GrabSystem::Status status;
    {
        py::gil_scoped_release release;
        status = GrabSystem::capture::WriteFfcTables(path, ffc, &files);
    }
    RaiseFailures(files);
    if (!status.ok()) Fail(path, status);
}

}  // namespace

void BindFiles(py::module_& m) {
    py::class_<Image>(m, "Image",
                      "An image read from a file. `pixels` is a view of the image's own memory\n"
                      "((height, width) or (height, width, channels)); `info` its information block.")
        .def_property_readonly("pixels", &Pixels, "The pixels, sharing memory with this object.")
        .def_property_readonly("info", [](Image& i) { return InfoToDict(i.img->GetInfo()); },
                               "The information block as a dict (geometry, camera, frame attribute, ...).")
        .def_property_readonly("width", [](Image& i) { return i.img->GetWidth(); })
        .def_property_readonly("height", [](Image& i) { return i.img->GetHeight(); })
        .def_property_readonly("channels", [](Image& i) { return i.img->GetChCnt(); })
        .def("__repr__", [](Image& i) {
            return "<grabsystem.Image " + std::to_string(i.img->GetWidth()) + " x " + std::to_string(i.img->GetHeight()) +
                   " x " + std::to_string(i.img->GetChCnt()) + ">";
        });

    m.def("read_image", &ReadImage, py::arg("path"),
          "Reads a raw or BMP image file (with its information block) through the library's\n"
          "image classes: uint8, uint16 or uint32 pixels as the raw file's depth says, uint8\n"
          "for BMP. Raises FileError for a file that is missing, damaged or cut short.");
    m.def("read_float_raw", &ReadFloatRaw, py::arg("path"), py::arg("dtype") = py::none(),
          "Reads a float or double raw file; the value size is inferred from the file's\n"
          "length unless `dtype` names it. info['resolution'] holds the stored y and z.\n"
          "Raises FileError when the values do not fill the header's geometry exactly.");
    m.def("read_ffc_tables", &ReadFfcTables, py::arg("path"),
          "Reads every flat-field table of a stream, in order: a list of Images of uint16.\n"
          "Raises FileError at the first damaged table.");
    m.def("write_image", &WriteImage, py::arg("path"), py::arg("pixels"), py::arg("format") = "raw",
          py::arg("info") = py::none(),
          "Writes an image as the library does (pixels, then the information block):\n"
          "format 'raw' for uint8/uint16/uint32 pixels, 'bmp' for uint8 with 1, 3 or 4\n"
          "channels. `info` sets descriptive fields: cam_idx, frame_attr, status,\n"
          "resolution (x, y, z), img_alignment, cad_alignment, proc_log [(tag, msg)].\n"
          "Raises FileError when the file does not go into place whole.");
    m.def("write_float_raw", &WriteFloatRaw, py::arg("path"), py::arg("pixels"),
          py::arg("resolution") = std::make_tuple(10.0, 10.0), py::arg("info") = py::none(),
          "Writes float32 or float64 pixels as the library's float or double raw file;\n"
          "`resolution` is the stored (y, z). Raises FileError on a failed write.");
    m.def("write_ffc_tables", &WriteFfcTables, py::arg("path"), py::arg("tables"), py::arg("infos") = py::none(),
          "Writes uint16 tables one after another as a flat-field stream; `infos` is an\n"
          "optional list of info dicts, one per table. Raises FileError on a failed write.");
}

}  // namespace grabsys_py
