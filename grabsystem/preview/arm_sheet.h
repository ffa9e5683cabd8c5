// The rows of an arm view's sheet: one per folder of the tree the view
// extracts to (arm_tree.h), in the order the view's frames first reach it,
// holding the frames the tree keeps there under their file names. The
// sheet of one view and the folder index are drawn from these rows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/preview/layout.h"

namespace GrabSystem {
namespace preview {

// A row's frames: its Sin frames in image-number order (a number written
// twice shows the frame written last, as the tree keeps it), named
// "IMG<k>", then its white frame, "IMGW". The tree is laid out under
// `root`; the label names the folder below it. False, with the cause, for
// a view the extractor has no tree for, or a sheet of too many cells.
bool ArmRows(const capture::ArmViewContent& view, int viewIndex, const std::string& root, uint32_t cellWidth,
             std::vector<Row>& rows, std::string& error);

// The view number a view file's name gives (<number>.armraw), or -1.
int ViewOfPath(const std::string& path);

}  // namespace preview
}  // namespace GrabSystem
