// Capture files read whole into memory: the per-view arm files and both
// forms of the debug package, decoded (decrypted, decompressed) into frames
// for programs that want pixels rather than a tree of BMP files: the
// preview sheets, the Python module, scripts.
//
// These readers are strict where the extractor and the exporters are
// lenient. A file that does not account for every byte exactly as its
// writer lays it out (a count that runs past the file, a frame that does
// not decompress to its width x height, bytes after the last record) is
// refused with a message that names the cause, and nothing of it is
// returned. Nothing is allocated that the file cannot fill: every frame's
// size is checked against what its bytes can decode to before memory is
// taken for it.
//
// Files are read through the Env the caller passes (Env::Default() when it
// is null), so the system's own paths ("D://...") map as they do for every
// other reader. Every refusal is a Status naming the file and the cause: an
// I/O error (or not found) when the file cannot be read, corruption when its
// bytes are not what its writer lays out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/format/arm_view.h"
#include "grabsystem/format/coding.h"
#include "grabsystem/format/package.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace capture {

// Frames of one size, packed one after another (count x height x width
// bytes, 8-bit grey); the bytes belong to whatever object holds the stack.
struct FrameStack {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t count = 0;
    const uint8_t* pixels = nullptr;

    uint64_t FrameBytes() const { return static_cast<uint64_t>(width) * height; }
    const uint8_t* Frame(uint32_t i) const { return pixels + FrameBytes() * i; }
};

// One ".armraw" view.
struct ArmViewContent {
    OneViewArmImageDataHeader header = {};
    // Camera index of each camera: the header's table, or 0..n-1 for a
    // version-1 header, which has none.
    std::vector<int> cameras;
    // n of every record in file order: the Sin frames', then the white ones'.
    std::vector<uint32_t> recordLengths;
    FrameStack sin;    // in file order: camera outermost, then A, B, C
    FrameStack white;  // one per camera
    // What sin and white point into.
    std::unique_ptr<uint8_t[]> storage;
};

// The file at `path`; `view` is left as it was on failure.
GRABSYSTEM_EXPORT Status ReadArmView(const std::string& path, ArmViewContent& view, platform::Env* env = nullptr);
// The same from bytes already in memory (the Status names no file).
GRABSYSTEM_EXPORT Status DecodeArmView(format::Bytes file, ArmViewContent& view);

// One run of a package: its record (for an image package the jump index
// is the head's, which all runs share) and its frames.
struct PackageRun {
    CDebugPackageInfoP info;
    FrameStack frames;
};

struct PackageContent {
    bool general = false;  // the general form (LZ4 blocks, project file)
    uint32_t version = 0;
    uint32_t jumpIdx = 0;  // the image package's head; 0 for the general form
    std::vector<PackageRun> runs;
    // The project file of a general package whose flag is 1.
    format::Bytes projectFile;
    bool hasProjectFile = false;
    // What the runs and the project file point into.
    std::unique_ptr<uint8_t[]> file;
    std::unique_ptr<uint8_t[]> frames;
};

// Either form, as its first word picks it (see format::IsImagePackageVersion).
// Image package frames are placed by the runs' uniform rule, as the export
// places them; a run the rule would put outside the data area is refused.
GRABSYSTEM_EXPORT Status ReadPackage(const std::string& path, PackageContent& package,
                                     platform::Env* env = nullptr);

}  // namespace capture
}  // namespace GrabSystem
