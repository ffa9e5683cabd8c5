// A sheet as a picture file any viewer opens: PNG (through libpng) where
// the library is built with it, BMP (24-bit) where it is not (the Windows
// build).
#pragma once

#include <cstdint>
#include <vector>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/preview/contact_sheet.h"

namespace GrabSystem {
namespace preview {

// ".png" or ".bmp": the kind of file EncodeSheet makes in this build.
GRABSYSTEM_EXPORT const char* SheetFileExtension();

// The file's bytes into `bytes`; false when the sheet cannot be encoded
// (an empty sheet, or memory that runs out).
GRABSYSTEM_EXPORT bool EncodeSheet(const Sheet& sheet, std::vector<uint8_t>& bytes);

}  // namespace preview
}  // namespace GrabSystem
