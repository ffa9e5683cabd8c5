// The BMP tree one view extracts to: for each frame of the view, the folder
// and the file ArmImageExtractor writes it to and the image number in the
// name. Computed from the view's header alone; nothing is read or written.
// The extractor writes by it and the previews draw by it, so a preview can
// never number a frame otherwise than the tree has it.
//
//   <root>Cam<c><P|Q>\<view>\img<k>.bmp   Sin frames
//   <root>Cam<c>P\<view>\imgW.bmp          white-pattern frames
//
// The folders, in the order frames reach them: for each camera position,
// sinDimA passes of sinDimB groups (P for the first group of a pass, Q for
// the others), then one P folder per camera for the white frames; c is the
// camera's byte in the header's table (0..7 before version 2). Sin frame k
// of a group (k counting 0..|sinDimC| - 1) is numbered k, except in a folder
// whose whole path passes IsPFolder: there k is renumbered by
// PFrameNumber, so P folders start at 4. The root is part of that path, so
// a root that itself names Cam0P..Cam7P renumbers every folder, Q folders
// included.
//
// A view has no tree (complete is false, no frame placed) when its camera
// count passes 8 or it has Sin frames and a sinDimC of 0. A frame that runs
// past the folder list (more white frames than cameras, negative counts)
// has no place: the frames before it are placed, and complete is false.
// Counts below 1 make their loops run zero times. Every count is taken as
// the header gives it; the frame count is Sin + white in 32 bits, as the
// extractor counts the frames it decodes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "grabsystem/format/arm_view.h"
#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

struct ArmTreeFrame {
    uint32_t frame = 0;    // the frame's place in the file: Sin frames first, then white
    bool white = false;    // a white-pattern frame (imgW.bmp)
    int camera = 0;        // the camera's index, as the folder names it
    bool p = true;         // a P folder (else Q)
    int64_t number = 0;    // k of img<k>.bmp; 0 for a white frame
    std::string folder;    // root + "Cam<c><P|Q>\<view>\"
    std::string file;      // folder + "img<k>.bmp" or "imgW.bmp"
};

struct ArmTree {
    std::vector<ArmTreeFrame> frames;  // in file order
    bool complete = false;             // every frame of the view has its place
    std::string error;                 // why not, when it is not
};

// The tree of a view with index `viewIdx` under `root`, which is used as
// given (the extractor's root ends with "\").
GRABSYSTEM_EXPORT ArmTree LayOutArmTree(const OneViewArmImageDataHeader& header, int viewIdx,
                                        const std::string& root);

// Whether frames written into `folder` are renumbered: the path contains
// "Cam" + n + "P" for some n from 0 to 7, anywhere.
GRABSYSTEM_EXPORT bool IsPFolder(const std::string& folder);

// The number frame k of a group gets in such a folder: (k + 4) mod 12 for
// k from 0 to 11, and 0 for any other k.
GRABSYSTEM_EXPORT int PFrameNumber(int64_t k);

}  // namespace GrabSystem
