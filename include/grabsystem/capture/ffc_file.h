// Files of flat-field tables: CFFCTableP streams (Append / Extract, one
// table after another) read and written as whole files through an Env,
// for callers that hold no FILE* (the Python module, scripts).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace capture {

// Every table of the file, in order, each extracted as CFFCTableP::Extract
// reads it. An error naming the file when it cannot be read, holds no table
// or a table is damaged or cut short; `tables` is left as it was then.
GRABSYSTEM_EXPORT Status ReadFfcTables(const std::string& path, std::vector<std::unique_ptr<CFFCTableP>>& tables,
                                       platform::Env* env = nullptr);

// The tables appended one after another as one whole file: it goes into
// place only when every byte is written, and the Status names the file and
// the cause otherwise.
GRABSYSTEM_EXPORT Status WriteFfcTables(const std::string& path, const std::vector<CFFCTableP*>& tables,
                                        platform::Env* env = nullptr);

}  // namespace capture
}  // namespace GrabSystem
