// A sheet drawn from its rows: the grid laid out (layout.h), then each
// row's label lines and each cell's thumbnail and strip drawn onto a
// canvas (canvas.h). Every kind of sheet ends here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/preview/layout.h"

namespace GrabSystem {
namespace preview {

// `sheet` is left as it was on failure (the cause in `error`): a sheet past
// the limits, or memory that runs out.
bool Compose(const std::vector<Row>& rows, uint32_t cellWidth, const SheetOptions& options, Sheet& sheet,
             std::string& error);

}  // namespace preview
}  // namespace GrabSystem
