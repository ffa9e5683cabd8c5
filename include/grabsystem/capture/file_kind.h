// What a file of the system is, told from its bytes: one answer for every
// program that has to tell (grabsys info, the previews, the Python module),
// so that they never take one file for different things.
//
// The bytes decide, in this order; the name decides only between kinds
// that could both read the file, and claims a file no content matches:
//
//   1. an ".armraw" name whose bytes hold an arm header    arm view
//   2. a BMP signature                                      BMP image
//   3. a raw image header (version 1 and a size record)     raw image
//   4. an information block closing the file                image of the block's format
//   5. a float or double raw header that accounts for the file's size exactly
//   6. an image, then a general package whose head, records and data area
//      are all there
//   7. an arm header whose records end where the file does  arm view
//   8. claims by name: ".armraw" an arm view, ".raw" or ".RAW" a raw image
//   9. claims by head: a package head whose version word names a form
//      (1 or 2 the image package, 3 the general one)
//  10. an arm header                                        arm view
//
// A claimed file (8, 9, 10) may well be damaged: reading it as that kind
// says why. Nothing here reads a file; the bytes are the caller's.
#pragma once

#include <cstdint>
#include <string>

#include "grabsystem/format/coding.h"
#include "grabsystem/format/data_structure.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace capture {

enum class FileKind {
    kUnknown,
    kArmView,
    kImagePackage,
    kGeneralPackage,
    kBmpImage,
    kRawImage,
    kInfoImage,  // another format's image with an information block (none a reader here takes)
    kFloatRaw,
    kDoubleRaw,
};

// `path` gives only the name's extension.
GRABSYSTEM_EXPORT FileKind IdentifyFile(const std::string& path, format::Bytes file);

// "arm view", "image package", "general package", "BMP", "raw", "image",
// "float raw", "double raw", "unknown".
GRABSYSTEM_EXPORT const char* FileKindName(FileKind kind);

// The name of an information block's file format: "raw", "flat-field
// table", "BMP", "JPEG", or "unknown".
GRABSYSTEM_EXPORT const char* ImageFormatName(VormexDataStructure::eImgFileFormat format);

// 4 for a float raw, 8 for a double raw whose version is 1 and whose values
// fill its width x height x channels exactly (none counts as neither); 0
// otherwise.
GRABSYSTEM_EXPORT uint32_t ValueRawBytes(format::Bytes file);

}  // namespace capture
}  // namespace GrabSystem
