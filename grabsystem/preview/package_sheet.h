// The sheet of a debug package (contact_sheet.h's RenderPackageSheet), for
// the file sheet that reads packages by name.
#pragma once

#include <string>

#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/preview/contact_sheet.h"

namespace GrabSystem {
namespace preview {

// False, with the cause, for a package past the sheet's limits.
bool PackageSheet(const capture::PackageContent& package, const SheetOptions& options, Sheet& sheet,
                  std::string& error);

}  // namespace preview
}  // namespace GrabSystem
