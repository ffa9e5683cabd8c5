// Debug packages written from frames in memory through the system's own
// package classes (CDebugImgPackageP, CDebugPackageP), so that what they
// write is byte for byte what the scanner writes: for programs that have
// frames rather than a grab session (grabsys package create, the Python
// module).
//
// The package goes into place only when every byte is written; the Env
// given (the default when null) sees every write, so a TrackingEnv names
// the file and the cause of a failed one. Requests the format cannot hold
// are refused before anything is written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/package.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace capture {

// One run: its record and its frames, each Width x Height 8-bit pixels
// (FrameCount of them; the frames vector's size is the count written).
struct FrameRun {
    CDebugPackageInfoP info;
    std::vector<const uint8_t*> frames;
};

// The image form, with the head's jump index (the runs' own are not
// stored). Invalid argument, naming the run, when the runs do not tile the
// data area as the format places frames (frame j of run i at (FrameCount
// of run i x i + j) x its frame bytes): give every run one size and count,
// or write a general package. `dataBytes` (when given) receives the size of
// the data area.
GRABSYSTEM_EXPORT Status WriteImagePackage(const std::string& path, const std::vector<FrameRun>& runs,
                                           uint8_t jumpIdx, platform::Env* env = nullptr,
                                           uint64_t* dataBytes = nullptr);

// The general form: the project file first when given, then every frame as
// one LZ4 block (acceleration 3, as the scanner compresses). Not supported
// for a project file or frames beyond what a package can stage (1 GiB) or
// LZ4 can take.
GRABSYSTEM_EXPORT Status WriteGeneralPackage(const std::string& path, const std::vector<FrameRun>& runs,
                                             const format::Bytes* projectFile, platform::Env* env = nullptr,
                                             uint64_t* dataBytes = nullptr);

}  // namespace capture
}  // namespace GrabSystem
