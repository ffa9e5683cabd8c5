// What the parts of the Python module share: the exception, arrays over the
// library's buffers, the information block as a dict, and each call's
// account of its files.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <functional>
#include <string>
#include <vector>

#include "grabsystem/format/data_structure.h"
#include "grabsystem/pool/counter_fields.h"
#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/platform/status.h"
#include "grabsystem/platform/tracking_env.h"

namespace grabsys_py {

namespace py = pybind11;

// grabsystem.FileError, an OSError whose filename is the file and whose
// message names it and the cause.
[[noreturn]] void Fail(const std::string& path, const std::string& cause);
// FileError from a failed Status: its file (or `path` when it names none)
// and its cause.
[[noreturn]] void Fail(const std::string& path, const GrabSystem::Status& status);

// An array over memory that `owner` keeps alive: no copy. The array's base
// is `owner`, so the memory lives as long as any array over it.
template <typename T>
py::array ArrayOver(const py::object& owner, const T* data, std::vector<py::ssize_t> shape) {
    return py::array_t<T>(std::move(shape), data, owner);
}

// A C-contiguous array of T with `ndim` in [minDim, maxDim], converting only
// when the caller's array is not one already; ValueError otherwise.
template <typename T>
py::array_t<T, py::array::c_style> Contiguous(const py::handle& array, const char* what, int minDim, int maxDim) {
    auto a = py::array_t<T, py::array::c_style>::ensure(array);
    if (!a) throw py::type_error(std::string(what) + ": expected an array of " + py::str(py::dtype::of<T>()).cast<std::string>());
    if (a.ndim() < minDim || a.ndim() > maxDim)
        throw py::value_error(std::string(what) + ": expected " + std::to_string(minDim) + ".." + std::to_string(maxDim) +
                              " dimensions, got " + std::to_string(a.ndim()));
    return a;
}

// grabsystem.CameraError, an OSError whose camera and cause come from the
// status (ValueError for an argument that names no camera).
[[noreturn]] void Raise(const GrabSystem::Status& status);

// The pool inside a grabsystem.ImagePool (TypeError for anything else).
GrabSystem::CImgPoolCtrlP& PoolOf(const py::handle& imagePool);

// A counters struct as a dict, by its table of fields (counter_fields.h):
// each key with its count, or a tuple of counts for a per-source field.
inline py::object CountValue(uint64_t n) { return py::int_(n); }
inline py::object CountValue(const uint64_t (&n)[3]) { return py::make_tuple(n[0], n[1], n[2]); }
template <typename Counters, typename Value, size_t N>
py::dict CountersDict(const Counters& c, const GrabSystem::CounterField<Counters, Value> (&fields)[N]) {
    py::dict d;
    for (const auto& field : fields) d[field.key] = CountValue(c.*field.member);
    return d;
}

template <typename Counters, typename Value, size_t N>
py::list FieldNames(const GrabSystem::CounterField<Counters, Value> (&fields)[N]) {
    py::list names;
    for (const auto& field : fields) names.append(py::make_tuple(field.name, field.key));
    return names;
}

py::dict InfoToDict(const VormexDataStructure::CImgInfo& info);
// Sets the descriptive fields a dict names (camera, frame attribute,
// resolution, alignments, processing log, status); unknown keys are an error.
void ApplyInfo(const py::handle& dict, VormexDataStructure::CImgInfo& info);

// The account of one call's files: every object the call reads or writes
// with takes it (SetEnv). It wraps the module's Env (the process default,
// which set_drive_root maps) and leaves no incomplete file behind; calls on
// other threads keep accounts of their own.
class CallFiles : public GrabSystem::platform::TrackingEnv {
public:
    CallFiles();
};

// Raises FileError for the first file the call failed on (its path and
// cause, and how many more failed) when any did.
void RaiseFailures(const CallFiles& files);

void BindFiles(py::module_& m);
void BindCapture(py::module_& m);
void BindGrab(py::module_& m);
void BindPreview(py::module_& m);
void BindArchive(py::module_& m);
void BindCamera(py::module_& m);

}  // namespace grabsys_py
