// Copying a padded camera frame into packed memory (internal).
#pragma once

#include <cstddef>

namespace GrabSystem {
namespace platform {

// Copies `rows` rows of `rowBytes` bytes, the source rows `srcStride` bytes
// apart, to `dst` back to back. A whole frame too large for the caches is
// written past them (non-temporal stores), as memcpy does with one large
// block: row-sized copies would otherwise read every destination line into
// the cache before overwriting it, which halves the throughput. The bytes
// written are the same either way; dst and src must not overlap.
void CopyRows(void* dst, const void* src, size_t rowBytes, size_t rows, size_t srcStride);

}  // namespace platform
}  // namespace GrabSystem
