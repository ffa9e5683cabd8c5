#include "grabsystem/capture/package_writer.h"

#include <algorithm>
#include <climits>
#include <memory>

#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/debug_package/debug_package.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"

namespace GrabSystem {
namespace capture {

namespace {

uint64_t RunBytes(const CDebugPackageInfoP& r) { return uint64_t{r.Width} * r.Height * r.FrameCount; }

// Run i lies at [FrameCount x i x frameBytes, FrameCount x (i + 1) x
// frameBytes) of a data area of the runs' summed bytes: the package holds
// the runs exactly when these spans stay inside the area and do not
// overlap, which (their lengths summing to the area) is when they tile it.
// Anything else would overwrite frames or lose them.
Status CheckPlacement(const std::string& path, const std::vector<FrameRun>& runs) {
    uint64_t area = 0;
    for (const FrameRun& r : runs) area += RunBytes(r.info);
    if (area > UINT32_MAX) return Status::InvalidArgument(path, "the runs hold more than the 4 GiB an image package holds");
    struct Span {
        uint64_t start, end;
        size_t run;
    };
    std::vector<Span> spans;
    for (size_t i = 0; i < runs.size(); ++i) {
        const uint64_t bytes = RunBytes(runs[i].info);
        if (bytes != 0) spans.push_back({bytes * i, bytes * (i + 1), i});
    }
    std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
    uint64_t reached = 0;
    for (const Span& s : spans) {
        if (s.start < reached || s.end > area)
            return Status::InvalidArgument(
                path, "run " + std::to_string(s.run) +
                          " does not fit the image package's frame placement (frame j of run i goes to (frames of run "
                          "i x i + j) x its frame bytes): give every run one size and one frame count, or write a "
                          "general package");
        reached = s.end;
    }
    return Status::OK();
}

Status CheckRuns(const std::string& path, const std::vector<FrameRun>& runs) {
    if (runs.empty()) return Status::InvalidArgument(path, "a package holds at least one run");
    for (size_t i = 0; i < runs.size(); ++i)
        if (runs[i].frames.size() != runs[i].info.FrameCount)
            return Status::InvalidArgument(path, "run " + std::to_string(i) + " has " +
                                                     std::to_string(runs[i].frames.size()) + " frames, its record " +
                                                     std::to_string(runs[i].info.FrameCount));
    return Status::OK();
}

// The save's answer says only whether the file could be created; the Env
// the package writes through says whether it was written.
Status Saved(const std::string& path, bool created) {
    return created ? Status::OK() : Status::IOError(path, "the package cannot be created");
}

}  // namespace

Status WriteImagePackage(const std::string& path, const std::vector<FrameRun>& runs, uint8_t jumpIdx,
                         platform::Env* env, uint64_t* dataBytes) {
    Status checked = CheckRuns(path, runs);
    if (checked.ok()) checked = CheckPlacement(path, runs);
    if (!checked.ok()) return checked;
    CDebugImgPackageP pkg;
    pkg.SetEnv(env);
    for (const FrameRun& r : runs)
        pkg.AddPackageInfo(CDebugImgPackageInfoP{r.info.Width, r.info.Height, r.info.FrameCount, r.info.CamIdx, r.info.GroupIdx});
    pkg.SetJumpIdx(jumpIdx);
    pkg.CreatePackageBuffer();
    for (size_t r = 0; r < runs.size(); ++r)
        for (size_t f = 0; f < runs[r].frames.size(); ++f)
            pkg.AddData(static_cast<unsigned>(r), const_cast<uint8_t*>(runs[r].frames[f]), static_cast<unsigned>(f));
    if (dataBytes != nullptr) *dataBytes = pkg.BufferSize;
    return Saved(path, pkg.SaveDebugPackage(path));
}

Status WriteGeneralPackage(const std::string& path, const std::vector<FrameRun>& runs, const format::Bytes* projectFile,
                           platform::Env* env, uint64_t* dataBytes) {
    const Status checked = CheckRuns(path, runs);
    if (!checked.ok()) return checked;
    // Its staging area reserves 4 GiB of address space: not on the stack.
    auto pkg = std::make_unique<CDebugPackageP>();
    pkg->SetEnv(env);
    pkg->InitialPackageBuffer();
    for (const FrameRun& r : runs) pkg->AddPackageInfo(r.info);
    if (projectFile != nullptr &&
        (projectFile->size > INT32_MAX ||
         !pkg->AddData(0, const_cast<uint8_t*>(projectFile->data), 0, static_cast<int>(projectFile->size))))
        return Status::NotSupported(path, "the project file is too large for a package");
    std::vector<unsigned char> block;
    for (const FrameRun& r : runs) {
        const uint64_t frameBytes = uint64_t{r.info.Width} * r.info.Height;
        const int bound = frameBytes > INT32_MAX
                              ? 0
                              : DrasselSpace::CLZ4CompressorP::GetCompressBound(static_cast<int>(frameBytes));
        if (bound == 0 && !r.frames.empty()) return Status::NotSupported(path, "a frame too large for LZ4");
        block.resize(static_cast<size_t>(bound));
        for (const uint8_t* frame : r.frames) {
            const int n = DrasselSpace::CLZ4CompressorP::CompressRaw(frame, static_cast<int>(frameBytes), block.data(),
                                                                     bound, 3);
            if (n == 0 || !pkg->AddData(0, block.data(), 0, n))
                return Status::NotSupported(path, "the frames exceed the 1 GiB a package can stage");
        }
    }
    pkg->AllocateDebugImgBuffer();
    if (dataBytes != nullptr) *dataBytes = pkg->GetDataSize();
    return Saved(path, pkg->SaveDebugPackage(path, projectFile != nullptr));
}

}  // namespace capture
}  // namespace GrabSystem
