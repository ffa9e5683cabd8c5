// Little-endian field I/O on C streams, shared by the record serialisers
// (internal, not installed). Every reader returns false at end of file and
// leaves its output unchanged.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace VormexDataStructure {
namespace io {

inline bool WriteBytes(FILE* f, const void* p, size_t n) { return n == 0 || std::fwrite(p, 1, n, f) == n; }
inline bool ReadBytes(FILE* f, void* p, size_t n) { return n == 0 || std::fread(p, 1, n, f) == n; }

template <typename T>
bool WriteLE(FILE* f, T value) {
    unsigned char b[sizeof(T)];
    uint64_t v = 0;
    std::memcpy(&v, &value, sizeof(T));
    for (size_t i = 0; i < sizeof(T); ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
    return WriteBytes(f, b, sizeof b);
}

template <typename T>
bool ReadLE(FILE* f, T& value) {
    unsigned char b[sizeof(T)];
    if (!ReadBytes(f, b, sizeof b)) return false;
    uint64_t v = 0;
    for (size_t i = 0; i < sizeof(T); ++i) v |= static_cast<uint64_t>(b[i]) << (8 * i);
    std::memcpy(&value, &v, sizeof(T));
    return true;
}

// Reads the version word of a record; only version 1 exists.
inline bool ReadVersion(FILE* f) {
    uint16_t version = 0;
    return ReadLE(f, version) && version == 1;
}

}  // namespace io
}  // namespace VormexDataStructure
