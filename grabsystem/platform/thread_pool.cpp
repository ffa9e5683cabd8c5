#include "grabsystem/platform/thread_pool.h"

#include <memory>

namespace GrabSystem {
namespace platform {

namespace {
struct WorkerStart {
    ThreadPool* pool;
    int slot;
};
}  // namespace

ThreadPool::ThreadPool(int threads) {
    for (int slot = 1; slot < threads; ++slot) {
        // Owned by the worker from the moment it runs.
        auto start = std::make_unique<WorkerStart>(WorkerStart{this, slot});
        ThreadHandle thread = Env::Default()->StartThread(&ThreadPool::WorkerMain, start.get());
        if (thread == nullptr) break;
        start.release();
        m_workers.push_back(thread);
    }
}

ThreadPool::~ThreadPool() {
    {
        MutexLock lock(m_mutex);
        m_stop = true;
        m_wake.SignalAll();
    }
    for (ThreadHandle thread : m_workers) {
        Env::Default()->WaitThread(thread, nullptr);
        Env::Default()->CloseThread(thread);
    }
}

unsigned long ThreadPool::WorkerMain(void* arg) {
    const std::unique_ptr<WorkerStart> start(static_cast<WorkerStart*>(arg));
    start->pool->Work(start->slot);
    return 0;
}

void ThreadPool::Work(int slot) {
    unsigned long joined = 0;
    MutexLock lock(m_mutex);
    for (;;) {
        while (!m_stop && m_job == joined) m_wake.Wait();
        if (m_stop) return;
        joined = m_job;
        ++m_busy;
        Drain(slot);
        if (--m_busy == 0) m_done.SignalAll();
    }
}

void ThreadPool::Drain(int slot) {
    while (m_error == nullptr && m_next < m_count) {
        const size_t index = m_next++;
        const Body& body = *m_body;
        m_mutex.Unlock();
        std::exception_ptr error;
        try {
            body(index, slot);
        } catch (...) {
            error = std::current_exception();
        }
        m_mutex.Lock();
        if (error != nullptr && m_error == nullptr) m_error = error;
    }
}

void ThreadPool::Run(size_t count, const Body& body) {
    MutexLock turn(m_turn);
    std::exception_ptr error;
    {
        MutexLock lock(m_mutex);
        m_body = &body;
        m_count = count;
        m_next = 0;
        m_error = nullptr;
        ++m_job;
        if (count > 1) m_wake.SignalAll();
        Drain(0);
        // Workers that joined finish the indices they took; one that wakes
        // later finds none left and never touches `body`.
        while (m_busy != 0) m_done.Wait();
        m_body = nullptr;
        m_count = 0;
        error = m_error;
        m_error = nullptr;
    }
    if (error != nullptr) std::rethrow_exception(error);
}

}  // namespace platform
}  // namespace GrabSystem
