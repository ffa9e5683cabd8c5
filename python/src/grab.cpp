// The grab path from Python: the image pool, the arm output manager, the
// extractor and the package export.
#include <pybind11/stl.h>

#include <memory>

#include "common.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/arm/arm_image_output_mng.h"
#include "grabsystem/camera/camera_counters.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/debug_package/debug_package_exporter.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/memory/mem_block.h"
#include "grabsystem/platform/env.h"

namespace grabsys_py {
namespace {

using GrabSystem::IImgP;

// ------------------------------------------------------------ image pool

// A pool over a region it owns; the region outlives the pool's images.
class ImagePool {
public:
    ImagePool(unsigned count, uint32_t width, uint32_t height, unsigned bits, bool ring, unsigned poolId, int cam)
    {
        if (bits != 8 && bits != 16 && bits != 32) throw py::value_error("bits: 8, 16 or 32");
        if (count == 0 || width == 0 || height == 0) throw py::value_error("count, width and height: at least 1");
        m_frameBytes = static_cast<uint64_t>(width) * height * (bits / 8);
        if (m_frameBytes * count > SIZE_MAX / 2) throw std::bad_alloc();
        m_region.reset(new uint8_t[static_cast<size_t>(m_frameBytes * count)]);
        m_pool = std::make_unique<GrabSystem::CImgPoolCtrlP>(static_cast<unsigned char>(poolId), nullptr,
                                                             ring ? GrabSystem::ePoolRing : GrabSystem::ePoolNormal,
                                                             static_cast<unsigned char>(bits));
        GrabSystem::CMemBlockP block(m_region.get(), static_cast<size_t>(m_frameBytes * count));
        m_pool->AssignMemoryBlock(block);
        m_pool->SetDefaultMemSize(static_cast<size_t>(m_frameBytes));
        m_pool->SetImgDefaultConfig(static_cast<GrabSystem::eCamIdx>(cam), VormexDataStructure::eMemModeFixed,
                                    VormexDataStructure::ImgSize(width, height, 1, static_cast<uint8_t>(bits)),
                                    VormexDataStructure::ImgRes());
        if (!m_pool->Add(count)) throw std::bad_alloc();
    }
    // The pool goes before the region its images point into.
    ~ImagePool() { m_pool.reset(); }

    bool Push(const py::buffer& frame, unsigned frameAttr, py::object rowBytes, py::object rows, py::object rowGap) {
        const py::buffer_info b = frame.request();
        size_t nRowBytes = 0, nRows = 0, gap = 0;
        const bool explicitLayout = !rowBytes.is_none() || !rows.is_none() || !rowGap.is_none();
        if (explicitLayout) {
            // A flat buffer, laid out as the caller says; it must hold it all.
            if (rowBytes.is_none() || rows.is_none()) throw py::value_error("row_bytes and rows go together");
            nRowBytes = rowBytes.cast<size_t>();
            nRows = rows.cast<size_t>();
            gap = rowGap.is_none() ? 0 : rowGap.cast<size_t>();
            bool contiguous = true;
            py::ssize_t expect = b.itemsize;
            for (py::ssize_t d = b.ndim - 1; d >= 0; --d) {
                contiguous = contiguous && (b.shape[d] == 1 || b.strides[d] == expect);
                expect *= b.shape[d];
            }
            if (!contiguous) throw py::value_error("frame: a contiguous buffer when the layout is given");
            const uint64_t have = static_cast<uint64_t>(b.size) * b.itemsize;
            const uint64_t need = nRows == 0 ? 0 : (nRows - 1) * static_cast<uint64_t>(nRowBytes + gap) + nRowBytes;
            if (need > have) throw py::value_error("frame: the buffer is shorter than rows x (row_bytes + row_gap)");
        } else {
            // Rows from the first axis; the row gap is what the first
            // stride leaves after a row (a crop of a wider frame).
            if (b.ndim < 2 || b.ndim > 3) throw py::value_error("frame: (rows, width) or (rows, width, channels)");
            py::ssize_t inner = b.itemsize;
            for (py::ssize_t d = b.ndim - 1; d >= 1; --d) {
                if (b.strides[d] != inner) throw py::value_error("frame: each row must be contiguous");
                inner *= b.shape[d];
            }
            if (b.strides[0] < inner) throw py::value_error("frame: rows may not overlap");
            nRowBytes = static_cast<size_t>(inner);
            nRows = static_cast<size_t>(b.shape[0]);
            gap = static_cast<size_t>(b.strides[0] - inner);
        }
        py::gil_scoped_release release;
        return m_pool->PushImg(b.ptr, nRowBytes, nRows, gap, frameAttr);
    }

    GrabSystem::CImgPoolCtrlP& Pool() { return *m_pool; }
    uint64_t FrameBytes() const { return m_frameBytes; }

private:
    uint64_t m_frameBytes = 0;
    std::unique_ptr<uint8_t[]> m_region;
    std::unique_ptr<GrabSystem::CImgPoolCtrlP> m_pool;
};

// An image the consumer holds; it keeps its pool (and so the memory) alive.
struct PoolImage {
    py::object pool;
    IImgP* img;
    uint64_t serial;
    bool released = false;
};

py::array PoolPixels(const py::object& self) {
    PoolImage& p = self.cast<PoolImage&>();
    const uint32_t h = p.img->GetHeight(), w = p.img->GetWidth();
    switch (p.img->GetBytePerCh()) {
        case 2: return ArrayOver<uint16_t>(self, static_cast<const uint16_t*>(p.img->GetData()), {h, w});
        case 4: return ArrayOver<uint32_t>(self, static_cast<const uint32_t*>(p.img->GetData()), {h, w});
        default: return ArrayOver<uint8_t>(self, static_cast<const uint8_t*>(p.img->GetData()), {h, w});
    }
}

// ------------------------------------------------------------ arm output

// Hands a view of the caller's arrays to the manager: the images borrow the
// arrays' memory, so nothing is copied before LZ4 reads it.
int AddView(GrabSystem::CArmImageOutputMng& mng, const std::string& path, int viewIdx, const py::handle& sinFrames,
            const py::handle& whiteFrames, const std::vector<int>& cameras, std::tuple<int, int, int> dims) {
    const auto sin = Contiguous<uint8_t>(sinFrames, "sin", 3, 3);
    const auto white = Contiguous<uint8_t>(whiteFrames, "white", 3, 3);
    const int a = std::get<0>(dims), b = std::get<1>(dims), c = std::get<2>(dims);
    if (a < 1 || b < 1 || c < 1) throw py::value_error("sin_dims: three counts of at least 1");
    if (cameras.empty() || cameras.size() > 8) throw py::value_error("cameras: 1 to 8 camera indexes");
    if (static_cast<uint64_t>(cameras.size()) * a * b * c != static_cast<uint64_t>(sin.shape(0)))
        throw py::value_error("sin: cameras x A x B x C frames");
    if (white.shape(0) != 0 && (white.shape(1) != sin.shape(1) || white.shape(2) != sin.shape(2)))
        throw py::value_error("white: frames of the Sin frames' size");
    if (sin.shape(1) > UINT32_MAX || sin.shape(2) > UINT32_MAX) throw py::value_error("sin: frames too large");
    const auto height = static_cast<uint32_t>(sin.shape(1)), width = static_cast<uint32_t>(sin.shape(2));
    const size_t frameBytes = static_cast<size_t>(width) * height;

    std::vector<std::unique_ptr<GrabSystem::CImg8P>> owned;
    auto borrow = [&](const uint8_t* pixels) {
        owned.push_back(std::make_unique<GrabSystem::CImg8P>());
        GrabSystem::CImg8P& img = *owned.back();
        img.SetMemMode(VormexDataStructure::eMemModeFixed);
        if (frameBytes != 0) img.SetMemSource(GrabSystem::eMemSrcAssign, const_cast<uint8_t*>(pixels), frameBytes);
        img.SetSize(width, height, 1, false);
        return static_cast<IImgP*>(&img);
    };
    std::vector<IImgP*> sinImages, whiteImages;
    for (py::ssize_t i = 0; i < sin.shape(0); ++i) sinImages.push_back(borrow(sin.data() + frameBytes * i));
    for (py::ssize_t i = 0; i < white.shape(0); ++i) whiteImages.push_back(borrow(white.data() + frameBytes * i));
    std::vector<GrabSystem::eCamIdx> camIdxs;
    for (int cam : cameras) camIdxs.push_back(static_cast<GrabSystem::eCamIdx>(cam));

    auto view = std::make_unique<GrabSystem::COneViewArmImageData>(viewIdx);
    view->SetSinImages(sinImages, camIdxs, a, b, c);
    view->SetWhitePatternImage(whiteImages);
    view->SetOutputFileFullPath(path);
    CallFiles files;
    view->SetEnv(&files);
    GrabSystem::eAddOneViewImageRlt result = GrabSystem::eAddRltNoMemory;
    {
        py::gil_scoped_release release;
        result = mng.AddOneViewImages(view.get());
    }
    // Only a view that went through is the manager's to destroy.
    if (result == GrabSystem::eAddRltOk) view.release();
    RaiseFailures(files);
    return result;
}

void SetMaxBlocks(GrabSystem::CArmImageOutputMng& mng, int count) {
    // Zero blocks would make every add wait for ever with the GIL released
    // and no one to free a block.
    if (count == 0) throw py::value_error("max_blocks: 0 would make add_view wait for ever");
    mng.SetMaxMemoryPoolDataCount(count);
}

// ------------------------------------------------------------ extractor

py::list Extract(GrabSystem::ArmImageExtractor& extractor, const std::string& outputDir, const py::list& sources, int mode) {
    if (sources.size() > 3) throw py::value_error("sources: up to three (input_dir, views)");
    GrabSystem::OutputOneViewArmImageParm parm;
    for (size_t i = 0; i < sources.size(); ++i) {
        const auto source = sources[i].cast<std::tuple<std::string, std::vector<int>>>();
        parm.inputDirs[i] = std::get<0>(source);
        parm.views[i] = std::get<1>(source);
    }
    parm.outputDir = outputDir;
    parm.mode = mode;
    std::vector<int> failed[3];
    // Views that fail for their input are the answer; files that fail to be
    // read or written are errors.
    CallFiles files;
    extractor.SetEnv(&files);
    {
        py::gil_scoped_release release;
        extractor.OutputOneViewArmImages(parm, failed, static_cast<unsigned char>(sources.size()));
    }
    extractor.SetEnv(nullptr);
    RaiseFailures(files);
    py::list result;
    for (size_t i = 0; i < sources.size(); ++i) result.append(py::cast(failed[i]));
    return result;
}

void ExportPackages(const std::vector<std::string>& paths, int threads) {
    if (paths.empty()) throw py::value_error("paths: at least one package");
    GrabSystem::CDebugPackageExporterP exporter;
    exporter.SetExportThreads(threads);
    CallFiles files;
    exporter.SetEnv(&files);
    bool exported = false;
    {
        py::gil_scoped_release release;
        exported = exporter.ExprotPackage(paths);
    }
    RaiseFailures(files);
    // Name the package that does not load, or that the system exported only
    // as far as it reads it, and why.
    for (const std::string& path : paths) {
        GrabSystem::capture::PackageContent content;
        const GrabSystem::Status status = GrabSystem::capture::ReadPackage(path, content);
        if (!exported ? !status.ok() : status.IsCorruption()) Fail(path, status);
    }
    if (!exported) Fail(paths.front(), "the export failed");
}

}  // namespace

GrabSystem::CImgPoolCtrlP& PoolOf(const py::handle& imagePool) { return imagePool.cast<ImagePool&>().Pool(); }

void BindGrab(py::module_& m) {
    py::class_<PoolImage>(m, "PoolImage",
                          "An image taken from an ImagePool by serial. `pixels` views the pool's memory\n"
                          "(no copy); call release() when done so the image can take a frame again.")
        .def_readonly("serial", &PoolImage::serial)
        .def_property_readonly("frame_attr", [](PoolImage& p) { return p.img->GetInfo().frameAttr; })
        .def_property_readonly("pixels", &PoolPixels)
        .def("release",
             [](PoolImage& p) {
                 if (p.released) return;
                 p.released = true;
                 p.img->ReleaseUsingStatus();
             },
             "Gives the image back to its pool; harmless twice. A released image's pixels may\n"
             "be overwritten by the next push.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](PoolImage& p, py::args) {
            if (!p.released) p.img->ReleaseUsingStatus();
            p.released = true;
        });

    py::class_<ImagePool>(m, "ImagePool",
                          "A pool of `count` reusable images of width x height pixels of `bits` (8, 16 or 32)\n"
                          "over one region, as camera frames enter the system. push() copies a frame into\n"
                          "a free image (in ring mode, the oldest in use when none is free); get() finds\n"
                          "a pushed image by serial.")
        .def(py::init<unsigned, uint32_t, uint32_t, unsigned, bool, unsigned, int>(), py::arg("count"), py::arg("width"),
             py::arg("height"), py::arg("bits") = 8, py::arg("ring") = false, py::arg("pool_id") = 0, py::arg("cam_idx") = 0)
        .def("push", &ImagePool::Push, py::arg("frame"), py::arg("frame_attr") = 0, py::kw_only(),
             py::arg("row_bytes") = py::none(), py::arg("rows") = py::none(), py::arg("row_gap") = py::none(),
             "Copies a frame from any buffer-protocol object and pushes it with `frame_attr`.\n"
             "A 2-D or 3-D array gives rows and row bytes by its shape and the row gap by its\n"
             "first stride (a crop of a wider frame pushes as it is); a flat buffer needs\n"
             "row_bytes and rows (and row_gap, the padding after each source row). Returns\n"
             "False when no image can take the frame (see counters).")
        .def("get",
             [](py::object self, uint64_t serial) -> py::object {
                 IImgP* img = self.cast<ImagePool&>().Pool().GetImg(serial);
                 if (img == nullptr) return py::none();
                 return py::cast(PoolImage{self, img, serial});
             },
             py::arg("serial"), "The image in use with that serial, or None.")
        .def_property("next_serial", [](ImagePool& p) { return p.Pool().GetNextSerialNum(); },
                      [](ImagePool& p, uint64_t s) { p.Pool().SetNextSerialNum(s); },
                      "The serial the next push hands out.")
        .def_property_readonly("counters",
                               [](ImagePool& p) { return CountersDict(p.Pool().GetCounters(), GrabSystem::kPoolCounterFields); },
                               "pushed, refused_no_free_node, refused_too_large, overwritten, released,\n"
                               "max_in_use, bytes_copied: since the pool was made or last reset.")
        .def("reset_counters", [](ImagePool& p) { p.Pool().ResetCounters(); })
        .def_property_readonly("live_fps", [](ImagePool& p) { return p.Pool().GetLiveFps(); });

    py::enum_<GrabSystem::eAddOneViewImageRlt>(m, "AddResult", "What ArmOutputManager.add_view did with a view.")
        .value("OK", GrabSystem::eAddRltOk)
        .value("NO_MEMORY", GrabSystem::eAddRltNoMemory)
        .value("COMPRESS_FAILED", GrabSystem::eAddRltCompressFailed);

    py::class_<GrabSystem::CArmImageOutputMng>(
        m, "ArmOutputManager",
        "Compresses views into reusable output blocks and writes one .armraw file per view,\n"
        "as the scanner does. compress_threads > 1 shares each view's frames among threads;\n"
        "the files are the same for any count.")
        .def(py::init([](int threads, int maxBlocks) {
                 auto mng = std::make_unique<GrabSystem::CArmImageOutputMng>();
                 mng->SetCompressThreads(threads);
                 SetMaxBlocks(*mng, maxBlocks);
                 return mng;
             }),
             py::arg("compress_threads") = 1, py::arg("max_blocks") = 3)
        .def_property("compress_threads", &GrabSystem::CArmImageOutputMng::GetCompressThreads,
                      &GrabSystem::CArmImageOutputMng::SetCompressThreads)
        .def_property("max_blocks", &GrabSystem::CArmImageOutputMng::GetMaxMemoryPoolDataCount, &SetMaxBlocks,
                      "Most output blocks kept (negative: no cap).")
        .def("add_view", &AddView, py::arg("path"), py::arg("view_idx"), py::arg("sin"), py::arg("white"),
             py::arg("cameras"), py::arg("sin_dims"),
             "Writes one view to `path`: `sin` is (cameras x A x B x C, height, width) uint8 in\n"
             "file order, `white` one frame per camera, `sin_dims` (A, B, C). The arrays are read\n"
             "in place. Returns AddResult.OK, or NO_MEMORY / COMPRESS_FAILED when the library\n"
             "refused the view (nothing written); raises FileError naming the file and the\n"
             "cause when it did not go into place whole (counters['save_failed'] counts it).")
        .def_property_readonly("counters",
                               [](GrabSystem::CArmImageOutputMng& m) {
                                   return CountersDict(m.GetCounters(), GrabSystem::kOutputCounterFields);
                               })
        .def("reset_counters", &GrabSystem::CArmImageOutputMng::ResetCounters)
        .def_property_readonly("block_count", &GrabSystem::CArmImageOutputMng::GetMemoryPoolSize);

    m.def("write_arm_view",
          [](const std::string& path, int viewIdx, const py::handle& sin, const py::handle& white,
             const std::vector<int>& cameras, std::tuple<int, int, int> dims, int threads) {
              GrabSystem::CArmImageOutputMng mng;
              mng.SetCompressThreads(threads);
              const int result = AddView(mng, path, viewIdx, sin, white, cameras, dims);
              if (result != GrabSystem::eAddRltOk) Fail(path, "the library refused the view (result " + std::to_string(result) + ")");
          },
          py::arg("path"), py::arg("view_idx"), py::arg("sin"), py::arg("white"), py::arg("cameras"), py::arg("sin_dims"),
          py::arg("compress_threads") = 1,
          "ArmOutputManager.add_view for one view, raising FileError unless it was written.");

    py::class_<GrabSystem::ArmImageExtractor>(m, "ArmExtractor",
                                              "Turns .armraw views back into the tree of BMP files the scanner's\n"
                                              "tools read (Cam<c><P|Q>/<view>/img<k>.bmp).")
        .def(py::init([](int threads) {
                 auto e = std::make_unique<GrabSystem::ArmImageExtractor>();
                 e->SetExtractThreads(threads);
                 return e;
             }),
             py::arg("threads") = 1)
        .def_property("threads", &GrabSystem::ArmImageExtractor::GetExtractThreads,
                      &GrabSystem::ArmImageExtractor::SetExtractThreads)
        .def("extract", &Extract, py::arg("output_dir"), py::arg("sources"), py::arg("mode") = 1,
             "Extracts the views of up to three sources, each (input_dir, [view, ...]), into\n"
             "output_dir; mode 1 all frames, 2 white only, 3 Sin only. Returns the failed views\n"
             "of each source, in the order given (a damaged view is an outcome here, not an\n"
             "error). Raises FileError, after the whole extraction, when a file could not be\n"
             "read or written (counters['files_failed'] counts the views it struck).")
        .def("parse_arm_raw_files",
             [](GrabSystem::ArmImageExtractor& e, const std::string& dir) {
                 std::vector<int> views;
                 CallFiles files;
                 e.SetEnv(&files);
                 const bool listed = e.ParseArmRawFile(dir, views);
                 e.SetEnv(nullptr);
                 RaiseFailures(files);
                 if (!listed) Fail(dir, "no .armraw files named by their view numbers");
                 return views;
             },
             py::arg("directory"), "The view index of every .armraw file in the folder, in listing order.")
        .def_property_readonly("counters", [](GrabSystem::ArmImageExtractor& e) {
            return CountersDict(e.GetCounters(), GrabSystem::kExtractCounterFields);
        });

    m.def(
        "counter_fields",
        [] {
            py::dict d;
            d["PoolCounters"] = FieldNames(GrabSystem::kPoolCounterFields);
            d["OutputCounters"] = FieldNames(GrabSystem::kOutputCounterFields);
            d["ExtractCounters"] = FieldNames(GrabSystem::kExtractCounterFields);
            d["CameraCounters"] = FieldNames(GrabSystem::camera::kCameraCounterFields);
            return d;
        },
        "The fields of each counters struct of the library, in order, as (C++ name, key) pairs:\n"
        "the keys of the `counters` dicts of ImagePool, ArmOutputManager, ArmExtractor and Camera.");
    m.def("export_packages", &ExportPackages, py::arg("paths"), py::arg("threads") = 1,
          "Exports debug packages to the BMP input tree under D://ImgTest//CamImgInput (see\n"
          "set_drive_root) through the library's ExprotPackage: one package into Cam<c>\n"
          "folders, several into Cam<c>_<i>. Raises FileError naming a package that does not\n"
          "load or was exported only in part (damaged, cut short), or the first file that\n"
          "could not be read or written, and its cause (files that failed are never left\n"
          "half written).");
}

}  // namespace grabsys_py
