// A count that threads add to and read without a lock (relaxed atomics: each
// figure is exact, figures read together may be moments apart). It copies as
// its value, so classes that hold counts stay copyable. Installed only
// because those classes hold it.
#pragma once

#include <atomic>
#include <cstdint>

namespace GrabSystem {

class Count {
public:
    Count() = default;
    Count(const Count& other) : m_value(other.Get()) {}
    Count& operator=(const Count& other) {
        Set(other.Get());
        return *this;
    }

    void Add(uint64_t n = 1) { m_value.fetch_add(n, std::memory_order_relaxed); }
    void Subtract(uint64_t n = 1) { m_value.fetch_sub(n, std::memory_order_relaxed); }
    // Raises the count to `n` if it is lower.
    void Max(uint64_t n) {
        uint64_t seen = Get();
        while (seen < n && !m_value.compare_exchange_weak(seen, n, std::memory_order_relaxed)) {
        }
    }
    uint64_t Get() const { return m_value.load(std::memory_order_relaxed); }
    void Set(uint64_t n) { m_value.store(n, std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> m_value{0};
};

}  // namespace GrabSystem
