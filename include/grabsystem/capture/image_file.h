// Image files read into the library's image classes, after the checks that
// give a refusal its cause: what a caller that only wants an image and a
// reason (the previews, the Python module) would otherwise repeat.
//
// Reads go through the Env given (the default when null); the image keeps
// that Env. Every refusal is a Status naming the file: the file's own error
// when it cannot be opened or read, corruption with the cause when its
// bytes are not an image of the kind asked for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/image/img.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace capture {

// A BMP or raw image (file_kind.h tells them) in the image class of its
// depth: 8-bit for a BMP and raw images of up to 8 bits per channel, 16-bit
// up to 16, 32-bit up to 32. Refused: other kinds, a BMP whose layout cannot
// be read, a raw image whose header is damaged or whose pixels end early.
GRABSYSTEM_EXPORT Status ReadImageFile(const std::string& path, std::unique_ptr<IImgP>& image,
                                       platform::Env* env = nullptr);

// A float (valueBytes 4) or double (8) raw file into CImgFloatP or
// CImgDoubleP; with valueBytes 0, doubles when the values fill the header's
// geometry as 8-byte values, else floats. Refused when the file is shorter
// than its header or its values do not fill the geometry exactly.
GRABSYSTEM_EXPORT Status ReadValueRawFile(const std::string& path, uint32_t valueBytes, std::unique_ptr<IImgP>& image,
                                          platform::Env* env = nullptr);

}  // namespace capture
}  // namespace GrabSystem
