// The locks of the library, which clang's thread-safety analysis
// understands: Mutex (a thin layer over std::mutex; lock failures raise
// std::system_error, the one exception the library lets reach its callers)
// and CriticalSection (recursive, with the semantics of a Win32 critical
// section), each with a scoped lock.
#pragma once

#include <mutex>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace platform {

class GRABSYS_CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() GRABSYS_ACQUIRE() { m_mutex.lock(); }
    void Unlock() GRABSYS_RELEASE() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

// Holds a Mutex for the lifetime of the scope; Unlock() ends it early so that
// a log line can be written after the lock is gone.
class GRABSYS_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) GRABSYS_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~MutexLock() GRABSYS_RELEASE() {
        if (m_locked) m_mutex.Unlock();
    }
    void Unlock() GRABSYS_RELEASE() {
        m_mutex.Unlock();
        m_locked = false;
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& m_mutex;
    bool m_locked = true;
};

// A recursive lock with the semantics of a Win32 critical section: the
// owning thread may enter it again; each Enter needs one Leave.
class GRABSYSTEM_EXPORT GRABSYS_CAPABILITY("critical section") CriticalSection {
public:
    CriticalSection();
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter() GRABSYS_ACQUIRE();
    void Leave() GRABSYS_RELEASE();

private:
    // Storage for the native object (pthread_mutex_t or CRITICAL_SECTION),
    // so that this header needs no OS header.
    alignas(8) unsigned char m_native[64];
};

class GRABSYS_SCOPED_CAPABILITY CriticalSectionLock {
public:
    explicit CriticalSectionLock(CriticalSection& cs) GRABSYS_ACQUIRE(cs) : m_cs(cs) { m_cs.Enter(); }
    ~CriticalSectionLock() GRABSYS_RELEASE() { m_cs.Leave(); }
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

private:
    CriticalSection& m_cs;
};

}  // namespace platform
}  // namespace GrabSystem
