// ThreadPool: a fixed set of worker threads, started once through the Env
// and reused for every job until the pool is destroyed (internal).
//
// A job is a loop over indices that the calling thread and the workers
// share: Run(count, body) calls body(index, slot) once for every index in
// [0, count), taking indices in ascending order as threads come free, and
// returns when every call has returned. `slot` (0 .. Threads() - 1) tells
// the threads apart, for scratch memory kept per thread; the calling thread
// is slot 0.
//
// Threads: Run may be called from any thread; calls from several threads
// take turns. A body must not call Run on its own pool. An exception thrown
// by a body (std::bad_alloc) stops the job from handing out more indices and
// is rethrown by Run once every thread has left the job.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <vector>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {
namespace platform {

class ThreadPool {
public:
    using Body = std::function<void(size_t index, int slot)>;

    // `threads` threads in all: the caller of Run and threads - 1 workers
    // (none for 1 or less). Workers the Env cannot start are done without.
    explicit ThreadPool(int threads);
    // Stops the workers and waits for them to end.
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // The threads a job runs on, the caller's included.
    int Threads() const { return static_cast<int>(m_workers.size()) + 1; }

    void Run(size_t count, const Body& body);

private:
    static unsigned long WorkerMain(void* arg);
    void Work(int slot);
    // Runs indices of the current job until none is left; `slot` as above.
    void Drain(int slot) GRABSYS_REQUIRES(m_mutex);

    Mutex m_turn;   // one job at a time
    Mutex m_mutex;  // guards everything below
    CondVar m_wake{&m_mutex};
    CondVar m_done{&m_mutex};
    std::vector<ThreadHandle> m_workers;
    const Body* m_body GRABSYS_GUARDED_BY(m_mutex) = nullptr;
    size_t m_count GRABSYS_GUARDED_BY(m_mutex) = 0;
    size_t m_next GRABSYS_GUARDED_BY(m_mutex) = 0;
    unsigned long m_job GRABSYS_GUARDED_BY(m_mutex) = 0;   // which job the workers are to join
    int m_busy GRABSYS_GUARDED_BY(m_mutex) = 0;            // workers inside the current job
    bool m_stop GRABSYS_GUARDED_BY(m_mutex) = false;
    std::exception_ptr m_error GRABSYS_GUARDED_BY(m_mutex);
};

}  // namespace platform
}  // namespace GrabSystem
