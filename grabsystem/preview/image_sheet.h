// The sheet of one image file (contact_sheet.h's RenderImageSheet), for
// the file sheet, which has identified the file already.
#pragma once

#include <string>

#include "grabsystem/capture/file_kind.h"
#include "grabsystem/preview/contact_sheet.h"

namespace GrabSystem {
namespace preview {

// The image at `path`, whose bytes are `file` and whose kind is `kind`
// (an image kind of file_kind.h), read through `env`.
Status ImageSheet(const std::string& path, format::Bytes file, capture::FileKind kind, const SheetOptions& options,
                  Sheet& sheet, platform::Env* env);

}  // namespace preview
}  // namespace GrabSystem
