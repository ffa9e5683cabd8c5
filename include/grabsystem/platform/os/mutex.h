// The locks of the library, which clang's thread-safety analysis
// understands: Mutex (a thin layer over std::mutex; lock failures raise
// std::system_error, the one exception the library lets reach its callers)
// with its condition variable, and CriticalSection (recursive, with the
// semantics of a Win32 critical section), each with a scoped lock.
#pragma once

#include <condition_variable>
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
    friend class CondVar;
    std::mutex m_mutex;
};

// Waits on a Mutex for a condition another thread signals (LevelDB's
// port::CondVar). Wait() is called with the mutex held; it lets it go while
// blocked and holds it again when it returns, which may be without a signal:
// callers loop on their condition.
class CondVar {
public:
    explicit CondVar(Mutex* mutex) : m_mutex(mutex) {}
    CondVar(const CondVar&) = delete;
    CondVar& operator=(const CondVar&) = delete;

    void Wait() {
        std::unique_lock<std::mutex> lock(m_mutex->m_mutex, std::adopt_lock);
        m_cv.wait(lock);
        lock.release();
    }
    void Signal() { m_cv.notify_one(); }
    void SignalAll() { m_cv.notify_all(); }

private:
    Mutex* const m_mutex;
    std::condition_variable m_cv;
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
