// The operating system itself, for the platform layer (internal, not
// installed): what the system's Env is built from, and the few services that
// are no Env's business (memory pages, loading a library, stdio seeks). The
// rest of the library reaches files, folders, the clock, sleep and threads
// through Env (env.h), never through these directly.
//
// One implementation file per OS (os_posix.cpp, os_win32.cpp), chosen by
// CMake; os.cpp holds what is OS-independent. All functions may be called
// from any thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {
namespace platform {

// ---------------------------------------------------------------- time

// The library's clock: the default Env's, which tests may replace.
inline uint32_t GetTickMs() { return Env::Default()->NowMs(); }

// The system's millisecond tick (timeGetTime semantics: unsigned 32-bit,
// wraps after about 49.7 days) and sleep.
uint32_t SystemTickMs();
void SystemSleepMs(uint32_t ms);

// ---------------------------------------------------------------- threads

// The system's threads, as Env hands them out (see env.h).
ThreadHandle SystemStartThread(ThreadFunc func, void* arg);
bool SystemSetThreadPriority(ThreadHandle thread, int priority);
bool SystemWaitThread(ThreadHandle thread, unsigned long* exitCode);
void SystemCloseThread(ThreadHandle thread);

// ---------------------------------------------------------------- streams

// 64-bit seek and tell (plain fseek/ftell are 32-bit on Windows).
bool FileSeek(FILE* file, int64_t offset, int whence);
int64_t FileTell(FILE* file);
// Size of an open file in bytes, keeping its position; -1 on failure.
int64_t FileSize(FILE* file);

// A stream that writes to memory, for the steps that must hand a FILE* to
// a writer (the raw image format's virtual _SaveRaw) while the bytes go to
// their file through Env: open_memstream on POSIX, a temporary file that
// deletes itself on Windows.
class MemoryStream {
public:
    MemoryStream();
    ~MemoryStream();
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;

    // Null when no stream could be made.
    FILE* Stream() const { return m_stream; }
    // Closes the stream and hands over what was written to it. False when
    // the bytes could not be had.
    bool Take(std::vector<unsigned char>& bytes);

private:
    FILE* m_stream = nullptr;
    char* m_buffer = nullptr;  // POSIX: open_memstream's
    size_t m_size = 0;
};

// A stream that reads bytes already in memory, for the steps that must hand
// a FILE* to a reader (the raw image format's virtual _LoadRaw, a flat-field
// stream's tables) while the bytes came through an Env: fmemopen on POSIX,
// a temporary file that deletes itself on Windows. Keeps the bytes.
class ReadStream {
public:
    ReadStream(std::unique_ptr<unsigned char[]> bytes, uint64_t size);
    ~ReadStream();
    ReadStream(const ReadStream&) = delete;
    ReadStream& operator=(const ReadStream&) = delete;

    // Null when no stream could be made.
    FILE* Stream() const { return m_stream; }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    FILE* m_stream = nullptr;
};

// ---------------------------------------------------------------- memory

// Zero-filled pages straight from the operating system (mmap / VirtualAlloc):
// a page costs resident memory only once it is written. Null on failure.
// Free with FreePages and the same size.
void* AllocatePages(uint64_t size);
void FreePages(void* pages, uint64_t size);

// ---------------------------------------------------------------- libraries

// Loads a shared library by file name (dlopen / LoadLibrary), for the
// services the library uses only where they are installed; null when it is
// not there. A library loaded here stays loaded for the life of the process.
void* OpenLibrary(const char* name);
// The address of `symbol` in a library from OpenLibrary; null when missing.
void* FindSymbol(void* library, const char* symbol);

}  // namespace platform
}  // namespace GrabSystem
