// Fixed-width little-endian fields over byte spans: the one place where the
// system's file formats turn numbers into bytes and back (LevelDB's
// util/coding.h). Every codec of format/ reads and writes through these.
//
// Reader never reads outside the bytes it is given: a field that runs past
// the end reads the bytes that are there and zeros for the rest, as the
// system's readers have always delivered past a file's end, and marks the
// reader short. Writer never writes outside
// the buffer it is given: a field that does not fit is not written and marks
// the writer full.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace GrabSystem {
namespace format {

// A view of bytes that someone else owns (C++17 has no std::span).
struct Bytes {
    const uint8_t* data = nullptr;
    size_t size = 0;

    Bytes() = default;
    Bytes(const void* p, size_t n) : data(static_cast<const uint8_t*>(p)), size(p == nullptr ? 0 : n) {}

    // The bytes from `offset` on, at most `count` of them; empty past the end.
    Bytes Sub(uint64_t offset, uint64_t count = UINT64_MAX) const {
        if (offset >= size) return Bytes(data, 0);
        const uint64_t left = size - offset;
        return Bytes(data + offset, static_cast<size_t>(count < left ? count : left));
    }
};

template <typename T>
inline void PutFixed(uint8_t* p, T value) {
    uint64_t v = 0;
    std::memcpy(&v, &value, sizeof(T));
    for (size_t i = 0; i < sizeof(T); ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

template <typename T>
inline T GetFixed(const uint8_t* p) {
    uint64_t v = 0;
    for (size_t i = 0; i < sizeof(T); ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
    T value;
    std::memcpy(&value, &v, sizeof(T));
    return value;
}

inline uint32_t GetU32(const uint8_t* p) { return GetFixed<uint32_t>(p); }
inline void PutU32(uint8_t* p, uint32_t v) { PutFixed(p, v); }

class Reader {
public:
    explicit Reader(Bytes bytes) : m_bytes(bytes) {}

    template <typename T>
    T Fixed() {
        uint8_t field[sizeof(T)] = {};
        Copy(field, sizeof(T));
        return GetFixed<T>(field);
    }
    uint8_t U8() { return Fixed<uint8_t>(); }
    uint16_t U16() { return Fixed<uint16_t>(); }
    uint32_t U32() { return Fixed<uint32_t>(); }
    uint64_t U64() { return Fixed<uint64_t>(); }
    int32_t I32() { return Fixed<int32_t>(); }
    float F32() { return Fixed<float>(); }
    double F64() { return Fixed<double>(); }

    // `n` bytes into `out`; what lies past the end reads as zeros.
    void Copy(void* out, size_t n) {
        const size_t have = n < Remaining() ? n : Remaining();
        if (have != 0) std::memcpy(out, m_bytes.data + m_pos, have);
        if (have < n) {
            std::memset(static_cast<uint8_t*>(out) + have, 0, n - have);
            m_short = true;
        }
        m_pos += have;
    }
    // The next `n` bytes as a view (fewer at the end, which marks it short).
    Bytes Take(uint64_t n) {
        const Bytes part = m_bytes.Sub(m_pos, n);
        if (part.size < n) m_short = true;
        m_pos += part.size;
        return part;
    }
    void Skip(uint64_t n) { Take(n); }

    size_t Position() const { return m_pos; }
    size_t Remaining() const { return m_bytes.size - m_pos; }
    // Whether a field ran past the end.
    bool Short() const { return m_short; }

private:
    Bytes m_bytes;
    size_t m_pos = 0;
    bool m_short = false;
};

class Writer {
public:
    Writer(uint8_t* buffer, size_t capacity) : m_buffer(buffer), m_capacity(buffer == nullptr ? 0 : capacity) {}

    template <typename T>
    void Fixed(T value) {
        if (!Room(sizeof(T))) return;
        PutFixed(m_buffer + m_pos, value);
        m_pos += sizeof(T);
    }
    void U8(uint8_t v) { Fixed(v); }
    void U16(uint16_t v) { Fixed(v); }
    void U32(uint32_t v) { Fixed(v); }
    void U64(uint64_t v) { Fixed(v); }
    void I32(int32_t v) { Fixed(v); }
    void F32(float v) { Fixed(v); }
    void F64(double v) { Fixed(v); }
    void Raw(const void* data, size_t n) {
        if (n == 0 || !Room(n)) return;
        std::memcpy(m_buffer + m_pos, data, n);
        m_pos += n;
    }
    void Zeros(size_t n) {
        if (n == 0 || !Room(n)) return;
        std::memset(m_buffer + m_pos, 0, n);
        m_pos += n;
    }

    size_t Position() const { return m_pos; }
    // Whether a field did not fit (and was not written).
    bool Full() const { return m_full; }

private:
    bool Room(size_t n) {
        if (m_full || n > m_capacity - m_pos) {
            m_full = true;
            return false;
        }
        return true;
    }

    uint8_t* m_buffer;
    size_t m_capacity;
    size_t m_pos = 0;
    bool m_full = false;
};

}  // namespace format
}  // namespace GrabSystem
