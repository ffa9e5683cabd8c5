// POSIX implementation of the OS layer.
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include "grabsystem/platform/console.h"
#include "grabsystem/platform/os/os.h"

namespace GrabSystem {
namespace platform {

uint32_t SystemTickMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t ms = static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
    return static_cast<uint32_t>(ms);
}

void SystemSleepMs(uint32_t ms) {
    timespec left{static_cast<time_t>(ms / 1000u), static_cast<long>(ms % 1000u) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

// ---------------------------------------------------------------- locks

static_assert(sizeof(pthread_mutex_t) <= 64, "CriticalSection storage too small");

static pthread_mutex_t* Native(unsigned char* storage) { return reinterpret_cast<pthread_mutex_t*>(storage); }

CriticalSection::CriticalSection() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(new (m_native) pthread_mutex_t, &attr);
    pthread_mutexattr_destroy(&attr);
}

CriticalSection::~CriticalSection() { pthread_mutex_destroy(Native(m_native)); }

void CriticalSection::Enter() { pthread_mutex_lock(Native(m_native)); }

void CriticalSection::Leave() { pthread_mutex_unlock(Native(m_native)); }

// ---------------------------------------------------------------- threads

namespace {

// Shared by the handle and the running thread: whichever lets go last frees
// it, so a handle may be closed while its thread still runs.
struct PosixThread {
    pthread_t id{};
    ThreadFunc func = nullptr;
    void* arg = nullptr;
    unsigned long exitCode = 0;
    bool joined = false;
    std::atomic<int> refs{2};
};

void Unref(PosixThread* thread) {
    if (thread->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete thread;
}

void* Trampoline(void* raw) {
    auto* thread = static_cast<PosixThread*>(raw);
    thread->exitCode = thread->func(thread->arg);
    Unref(thread);
    return nullptr;
}

}  // namespace

ThreadHandle SystemStartThread(ThreadFunc func, void* arg) {
    if (func == nullptr) return nullptr;
    auto* thread = new (std::nothrow) PosixThread;
    if (thread == nullptr) return nullptr;
    thread->func = func;
    thread->arg = arg;
    if (pthread_create(&thread->id, nullptr, Trampoline, thread) != 0) {
        delete thread;
        return nullptr;
    }
    return thread;
}

bool SystemSetThreadPriority(ThreadHandle handle, int priority) {
    if (handle == nullptr) return false;
    auto* thread = static_cast<PosixThread*>(handle);
    sched_param param{};
    int policy = SCHED_OTHER;
    if (priority >= eThreadPriorityTimeCritical) {
        // The lowest real-time priority already preempts every normal
        // thread; going higher would only compete with the kernel's own.
        policy = SCHED_RR;
        param.sched_priority = sched_get_priority_min(SCHED_RR);
    }
    return pthread_setschedparam(thread->id, policy, &param) == 0;
}

bool SystemWaitThread(ThreadHandle handle, unsigned long* exitCode) {
    if (handle == nullptr) return false;
    auto* thread = static_cast<PosixThread*>(handle);
    if (!thread->joined) {
        if (pthread_join(thread->id, nullptr) != 0) return false;
        thread->joined = true;
    }
    if (exitCode != nullptr) *exitCode = thread->exitCode;
    return true;
}

void SystemCloseThread(ThreadHandle handle) {
    if (handle == nullptr) return;
    auto* thread = static_cast<PosixThread*>(handle);
    if (!thread->joined) pthread_detach(thread->id);
    Unref(thread);
}

// ---------------------------------------------------------------- files

bool FileSeek(FILE* file, int64_t offset, int whence) {
    return file != nullptr && fseeko(file, static_cast<off_t>(offset), whence) == 0;
}

int64_t FileTell(FILE* file) { return file == nullptr ? -1 : static_cast<int64_t>(ftello(file)); }

void* AllocatePages(uint64_t size) {
    if (size == 0) return nullptr;
    void* p = mmap(nullptr, static_cast<size_t>(size), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}

void FreePages(void* pages, uint64_t size) {
    if (pages != nullptr) munmap(pages, static_cast<size_t>(size));
}

MemoryStream::MemoryStream() : m_stream(open_memstream(&m_buffer, &m_size)) {}

MemoryStream::~MemoryStream() {
    if (m_stream != nullptr) std::fclose(m_stream);
    free(m_buffer);
}

bool MemoryStream::Take(std::vector<unsigned char>& bytes) {
    if (m_stream == nullptr) return false;
    const bool closed = std::fclose(m_stream) == 0;
    m_stream = nullptr;
    if (closed) bytes.assign(m_buffer, m_buffer + m_size);
    return closed;
}

ReadStream::ReadStream(std::unique_ptr<unsigned char[]> bytes, uint64_t size) : m_bytes(std::move(bytes)) {
    // fmemopen takes no null buffer, even for no bytes.
    static unsigned char none;
    if (size <= SIZE_MAX) m_stream = fmemopen(m_bytes ? m_bytes.get() : &none, static_cast<size_t>(size), "rb");
}

ReadStream::~ReadStream() {
    if (m_stream != nullptr) std::fclose(m_stream);
}

bool IsTerminal(FILE* stream) { return stream != nullptr && isatty(fileno(stream)) != 0; }

// ---------------------------------------------------------------- libraries

void* OpenLibrary(const char* name) { return name == nullptr ? nullptr : dlopen(name, RTLD_NOW | RTLD_LOCAL); }

void* FindSymbol(void* library, const char* symbol) {
    return library == nullptr || symbol == nullptr ? nullptr : dlsym(library, symbol);
}

}  // namespace platform
}  // namespace GrabSystem
