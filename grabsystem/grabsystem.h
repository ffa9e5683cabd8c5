// GrabSystem: the image and buffer layer of a camera-based scanner.
// Include this header to get every public class of the library.
#pragma once

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/image/img.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/memory/chunk_data.h"
#include "grabsystem/memory/chunk_pool_ctrl.h"
#include "grabsystem/memory/mem_block.h"
#include "grabsystem/memory/mem_block_mng.h"
#include "grabsystem/platform/data_structure/data_structure.h"
#include "grabsystem/platform/device/device_manager.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/binary_io.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/image_io_tool.h"
#include "grabsystem/platform/toolkit/win_helper.h"
#include "grabsystem/pool/img_pool_ctrl.h"
#include "grabsystem/pool/pool_ctrl.h"
#include "grabsystem/pool/pool_node.h"
