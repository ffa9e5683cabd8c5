// CMemBlockP: the record of one piece of memory (or of a whole region).
//
// A plain value: copying it copies the description, never the memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

class CMemBlockMngP;
class IChunkDataP;

// Where a chunk's memory comes from.
enum eMemBlockSource : int32_t {
    eMemSrcNew = 0,     // the general heap, allocated and freed by the chunk
    eMemSrcAssign = 1,  // a buffer that the caller owns and hands over with its size
    eMemSrcMng = 2,     // a CMemBlockMngP
};

class GRABSYSTEM_EXPORT CMemBlockP {
public:
    CMemBlockP() = default;
    // All fields; time stamp now.
    CMemBlockP(void* address, size_t size, IChunkDataP* chunk, eMemBlockSource source, CMemBlockMngP* manager);
    // Address and size, time stamp now, the rest zero.
    CMemBlockP(void* address, size_t size);
    // Source and manager, the rest zero.
    CMemBlockP(eMemBlockSource source, CMemBlockMngP* manager);

    // Copies address, size, time stamp and chunk; keeps source and manager.
    void Set(const CMemBlockP& other);
    // Address, size, chunk; time stamp now.
    void Set(void* address, size_t size, IChunkDataP* chunk);
    void Set(void* address, size_t size, IChunkDataP* chunk, unsigned int stamp);

    void* address = nullptr;
    uint64_t size = 0;
    uint32_t timeStamp = 0;
    eMemBlockSource source = eMemSrcNew;
    CMemBlockMngP* manager = nullptr;
    IChunkDataP* chunk = nullptr;
};

}  // namespace GrabSystem
