#include "grabsystem/platform/os/os.h"

namespace GrabSystem {
namespace platform {

int64_t FileSize(FILE* file) {
    if (file == nullptr) return -1;
    const int64_t here = FileTell(file);
    if (here < 0 || !FileSeek(file, 0, SEEK_END)) return -1;
    const int64_t size = FileTell(file);
    FileSeek(file, here, SEEK_SET);
    return size;
}

}  // namespace platform
}  // namespace GrabSystem
