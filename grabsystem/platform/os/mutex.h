// Mutex and scoped lock that clang's thread-safety analysis understands.
//
// A thin layer over std::mutex: lock failures still raise std::system_error,
// which is the one exception the library lets reach its callers.
#pragma once

#include <mutex>

#include "grabsystem/platform/os/thread_annotations.h"

namespace GrabSystem {
namespace platform {

class CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() ACQUIRE() { m_mutex.lock(); }
    void Unlock() RELEASE() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

// Holds a Mutex for the lifetime of the scope; Unlock() ends it early so that
// a log line can be written after the lock is gone.
class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~MutexLock() RELEASE() {
        if (m_locked) m_mutex.Unlock();
    }
    void Unlock() RELEASE() {
        m_mutex.Unlock();
        m_locked = false;
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& m_mutex;
    bool m_locked = true;
};

}  // namespace platform
}  // namespace GrabSystem
