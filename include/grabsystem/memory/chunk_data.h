// IChunkDataP: a pool node that owns one block of bytes.
//
// The memory comes from the heap, from a caller's buffer, or from a memory
// block manager (see eMemBlockSource). Optionally a chunk also holds a
// device-side buffer; when it exists it is the chunk's data address, and it
// is host-addressable. Every image is a chunk; chunk pools fill chunks with
// camera frames.
//
// A chunk is not thread-safe; its pool's mutex covers PushData when called
// through the pool. A heap buffer is owned and freed by the chunk; a
// caller's buffer stays the caller's; a manager's piece goes back to the
// manager on release.
#pragma once

#include <cstddef>
#include <memory>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/memory/mem_block.h"
#include "grabsystem/pool/pool_node.h"

namespace GrabSystem {

class GRABSYSTEM_EXPORT IChunkDataP : public IPoolNodeP {
public:
    IChunkDataP();
    ~IChunkDataP() override;

    // Chooses where the memory comes from, releasing the current memory when
    // the source (or the manager) changes. eMemSrcAssign takes a caller's
    // buffer `p` of `size` bytes (both must be non-zero); eMemSrcMng takes
    // the manager as `p` and allocates nothing yet; eMemSrcNew ignores both.
    // False, changing nothing, for invalid arguments or an unknown source.
    // The move happens even when the release fails (a discharged manager
    // keeps its piece); moving to the heap forgets any address left over,
    // since the heap source would free it.
    bool SetMemSource(eMemBlockSource src, void* p, size_t size);
    const eMemBlockSource& GetMemSource() const { return m_block->source; }

    // Releases the current memory if it has a size, then takes `size` bytes
    // from the source. A caller's buffer succeeds only for a size strictly
    // smaller than the recorded one, which the release has just set to 0:
    // callers that assign a buffer use SetMemSource, not AllocMemory. With
    // `device`, a device buffer of `size` bytes is also made (its own result
    // is not part of the answer).
    bool AllocMemory(size_t size, bool device);
    // Gives the memory back to its source; false only for a manager's chunk
    // whose manager refuses the piece, or that has no manager or holds no
    // piece (a manager refuses a null address); then nothing changes. The
    // device buffer is always freed.
    bool ReleaseMemory();

    size_t GetMemSize() const { return static_cast<size_t>(m_block->size); }
    // The device buffer if there is one, else the host memory.
    void* GetData() { return m_device != nullptr ? m_device : m_block->address; }
    // The address under which a GPU reads the device buffer (see
    // Zentrik::CDeviceManager); null without a device buffer, or where host
    // memory stands in for device memory.
    void* GetDevicePointer();

    // Copies `rows` rows of `rowBytes` bytes from `src` into the host memory,
    // skipping `rowGap` padding bytes after each source row. The destination
    // is packed. False, copying nothing, when the chunk is smaller than
    // rowBytes x rows (a size_t product, which wraps: without padding the
    // wrapped count is copied in one piece), or, with padding, when the
    // product overflows. Never writes past the chunk.
    bool PushData(void* src, size_t rowBytes, size_t rows, size_t rowGap);

    // Copies another chunk's bytes, reallocating this one to its size when
    // the sizes differ; true. When this chunk could not be made as large,
    // the copy stops at its end.
    bool DuplicateFromChunk(IChunkDataP& other);

protected:
    bool _AllocMemNew(size_t size);
    bool _ReleaseMemNew();
    bool _AllocMemAssign(size_t size);
    bool _ReleaseMemAssign();
    bool _AllocMemMng(size_t size);
    bool _ReleaseMemMng();

private:
    void _ReleaseDevice();

    std::unique_ptr<CMemBlockP> m_block;
    void* m_device = nullptr;
};

}  // namespace GrabSystem
