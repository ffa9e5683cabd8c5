#include "grabsystem/memory/mem_block.h"

#include "grabsystem/platform/os/os.h"

namespace GrabSystem {

CMemBlockP::CMemBlockP(void* address_, size_t size_, IChunkDataP* chunk_, eMemBlockSource source_,
                       CMemBlockMngP* manager_)
    : address(address_),
      size(size_),
      timeStamp(platform::GetTickMs()),
      source(source_),
      manager(manager_),
      chunk(chunk_) {}

CMemBlockP::CMemBlockP(void* address_, size_t size_)
    : address(address_), size(size_), timeStamp(platform::GetTickMs()) {}

CMemBlockP::CMemBlockP(eMemBlockSource source_, CMemBlockMngP* manager_) : source(source_), manager(manager_) {}

void CMemBlockP::Set(const CMemBlockP& other) {
    address = other.address;
    size = other.size;
    timeStamp = other.timeStamp;
    chunk = other.chunk;
}

void CMemBlockP::Set(void* address_, size_t size_, IChunkDataP* chunk_) {
    Set(address_, size_, chunk_, platform::GetTickMs());
}

void CMemBlockP::Set(void* address_, size_t size_, IChunkDataP* chunk_, unsigned int stamp) {
    address = address_;
    size = size_;
    chunk = chunk_;
    timeStamp = stamp;
}

}  // namespace GrabSystem
