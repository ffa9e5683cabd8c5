// The operating-system services the library uses, behind one interface.
//
// Everything here has one implementation file per OS (os_posix.cpp,
// os_win32.cpp) chosen by CMake; os.cpp holds what is OS-independent.
// All functions may be called from any thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {
namespace platform {

// ---------------------------------------------------------------- time

// Milliseconds since system start as an unsigned 32-bit value that wraps
// after about 49.7 days, with the semantics of Win32 timeGetTime().
GRABSYSTEM_EXPORT uint32_t GetTickMs();

// Test hook: while a source is installed, GetTickMs() returns its value
// instead of the system clock, so that time stamps and frame rates can be
// checked exactly. Pass nullptr to return to the system clock. The source
// must be callable from any thread.
using TickSource = uint32_t (*)();
GRABSYSTEM_EXPORT void SetTickSource(TickSource source);

// The system clock itself, ignoring any installed source.
GRABSYSTEM_EXPORT uint32_t SystemTickMs();

// Blocks the calling thread for at least `ms` milliseconds.
GRABSYSTEM_EXPORT void SleepMs(uint32_t ms);

// ---------------------------------------------------------------- threads

// A started thread; null means "no thread". Win32 semantics: the handle
// stays valid until CloseThread, whether or not the thread has ended.
using ThreadHandle = void*;
using ThreadFunc = unsigned long (*)(void* arg);

// Win32 priority values, which is what callers pass.
enum ThreadPriority : int {
    eThreadPriorityNormal = 0,
    eThreadPriorityTimeCritical = 15,
};

// Starts `func(arg)` at once on a new thread. Returns null when the thread
// cannot be created.
GRABSYSTEM_EXPORT ThreadHandle StartThread(ThreadFunc func, void* arg);

// Best effort: false when the OS refuses (a time-critical POSIX thread needs
// real-time scheduling rights).
GRABSYSTEM_EXPORT bool SetThreadPriority(ThreadHandle thread, int priority);

// Waits without time limit for the thread to end. Stores its exit code in
// `exitCode` when that is not null; a thread that has already ended answers
// at once, as often as asked. False for a null handle.
GRABSYSTEM_EXPORT bool WaitThread(ThreadHandle thread, unsigned long* exitCode = nullptr);

// Gives the handle back. A thread that still runs goes on running.
GRABSYSTEM_EXPORT void CloseThread(ThreadHandle thread);

// ---------------------------------------------------------------- files

// The system's own path texts ("D://ImgTest//...", "D:\\vormex\\...") are
// used verbatim throughout the library. On POSIX they are translated here:
// "\\" and runs of "/" become one "/", and a leading drive "X:" becomes the
// folder X under the drive root, the way Wine maps drives to folders. On
// Windows paths pass through untouched.
GRABSYSTEM_EXPORT std::string TranslatePath(const std::string& path);

// The folder under which drive letters are mapped; "" (the default) means
// the current directory. Thread-safe; set it before files are opened.
GRABSYSTEM_EXPORT void SetDriveRoot(const std::string& root);
GRABSYSTEM_EXPORT std::string GetDriveRoot();

// fopen of the translated path; null when the file cannot be opened.
GRABSYSTEM_EXPORT FILE* OpenFile(const std::string& path, const char* mode);

// Undo a write that failed, so that no reader meets half a file. Discard
// removes the file; TruncateFile cuts it back to `size` bytes (what it held
// before an append). Only regular files are touched: a device such as
// /dev/full, or a link and what it points to, stays as it is. False when
// there was nothing to undo.
GRABSYSTEM_EXPORT bool DiscardFile(const std::string& path);
GRABSYSTEM_EXPORT bool TruncateFile(const std::string& path, uint64_t size);

// 64-bit seek and tell (plain fseek/ftell are 32-bit on Windows).
GRABSYSTEM_EXPORT bool FileSeek(FILE* file, int64_t offset, int whence);
GRABSYSTEM_EXPORT int64_t FileTell(FILE* file);
// Size of an open file in bytes, keeping its position; -1 on failure.
GRABSYSTEM_EXPORT int64_t FileSize(FILE* file);

// Zero-filled pages straight from the operating system (mmap / VirtualAlloc):
// a page costs resident memory only once it is written. Null on failure.
// Free with FreePages and the same size.
GRABSYSTEM_EXPORT void* AllocatePages(uint64_t size);
GRABSYSTEM_EXPORT void FreePages(void* pages, uint64_t size);

// Whether the stream is an interactive terminal (for progress output).
GRABSYSTEM_EXPORT bool IsTerminal(FILE* stream);

// ---------------------------------------------------------------- libraries

// Loads a shared library by file name (dlopen / LoadLibrary), for the
// services the library uses only where they are installed; null when it is
// not there. A library loaded here stays loaded for the life of the process.
GRABSYSTEM_EXPORT void* OpenLibrary(const char* name);
// The address of `symbol` in a library from OpenLibrary; null when missing.
GRABSYSTEM_EXPORT void* FindSymbol(void* library, const char* symbol);

}  // namespace platform
}  // namespace GrabSystem
