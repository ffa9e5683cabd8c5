// What a view's or a package's head says, read without the rest of the
// file: for programs that plan work over many files before any is decoded
// (grabsys arm list, grabsystem.dask). Reads go through the Env given (the
// default when null) and never ask for more than the file holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/format/arm_view.h"
#include "grabsystem/format/package.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace capture {

struct ArmHead {
    OneViewArmImageDataHeader header = {};
    std::vector<int> cameras;  // the header's table, or 0..n-1 before version 2
    uint64_t fileBytes = 0;    // the whole file's size (set whenever the file opens)
};

// Corruption naming the file when it is shorter than its header, its
// version is one the format never had or its camera count does not fit the
// table; the file's own error when it cannot be read.
GRABSYSTEM_EXPORT Status ReadArmHead(const std::string& path, ArmHead& head, platform::Env* env = nullptr);

// The camera index of each camera of a header, or false with the cause
// when its count does not fit the table.
GRABSYSTEM_EXPORT bool CamerasOf(const OneViewArmImageDataHeader& header, std::vector<int>& cameras,
                                 std::string& error);

struct PackageHead {
    bool general = false;  // the form, as the exporter picks it by the first word
    uint32_t version = 0;
    uint32_t jumpIdx = 0;  // the image package's; 0 for the general form
    bool projectFile = false;  // the general package's flag
    // As ReadPackage gives them: an image package's runs carry the head's
    // jump index.
    std::vector<CDebugPackageInfoP> records;
    uint64_t fileBytes = 0;
};

// Corruption naming the file when it is too short for its head or its
// records (or an image package has none).
GRABSYSTEM_EXPORT Status ReadPackageHead(const std::string& path, PackageHead& head, platform::Env* env = nullptr);

// Whether the file holds at least the head of the form its first word
// picks, as the exporter needs before it loads anything: corruption naming
// the file when it is too short to be a package. The records and the data
// are not looked at.
GRABSYSTEM_EXPORT Status CheckPackageHead(const std::string& path, platform::Env* env = nullptr);

}  // namespace capture
}  // namespace GrabSystem
