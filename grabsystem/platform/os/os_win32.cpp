// Win32 implementation of the OS layer.
#include <windows.h>
#include <mmsystem.h>

#include <cstdio>
#include <io.h>
#include <new>

#include "grabsystem/platform/os/os.h"

namespace GrabSystem {
namespace platform {

uint32_t SystemTickMs() { return static_cast<uint32_t>(timeGetTime()); }

void SleepMs(uint32_t ms) { ::Sleep(ms); }

// ---------------------------------------------------------------- locks

static_assert(sizeof(CRITICAL_SECTION) <= 64, "CriticalSection storage too small");

static CRITICAL_SECTION* Native(unsigned char* storage) { return reinterpret_cast<CRITICAL_SECTION*>(storage); }

CriticalSection::CriticalSection() { InitializeCriticalSection(new (m_native) CRITICAL_SECTION); }

CriticalSection::~CriticalSection() { DeleteCriticalSection(Native(m_native)); }

void CriticalSection::Enter() { EnterCriticalSection(Native(m_native)); }

void CriticalSection::Leave() { LeaveCriticalSection(Native(m_native)); }

// ---------------------------------------------------------------- threads

namespace {

struct StartRecord {
    ThreadFunc func;
    void* arg;
};

DWORD WINAPI Trampoline(LPVOID raw) {
    StartRecord record = *static_cast<StartRecord*>(raw);
    delete static_cast<StartRecord*>(raw);
    return static_cast<DWORD>(record.func(record.arg));
}

}  // namespace

ThreadHandle StartThread(ThreadFunc func, void* arg) {
    if (func == nullptr) return nullptr;
    auto* record = new (std::nothrow) StartRecord{func, arg};
    if (record == nullptr) return nullptr;
    HANDLE handle = ::CreateThread(nullptr, 0, Trampoline, record, 0, nullptr);
    if (handle == nullptr) delete record;
    return handle;
}

bool SetThreadPriority(ThreadHandle thread, int priority) {
    return thread != nullptr && ::SetThreadPriority(static_cast<HANDLE>(thread), priority) != 0;
}

bool WaitThread(ThreadHandle thread, unsigned long* exitCode) {
    if (thread == nullptr) return false;
    if (::WaitForSingleObject(static_cast<HANDLE>(thread), INFINITE) != WAIT_OBJECT_0) return false;
    if (exitCode != nullptr) {
        DWORD code = 0;
        ::GetExitCodeThread(static_cast<HANDLE>(thread), &code);
        *exitCode = code;
    }
    return true;
}

void CloseThread(ThreadHandle thread) {
    if (thread != nullptr) ::CloseHandle(static_cast<HANDLE>(thread));
}

// ---------------------------------------------------------------- files

std::string TranslatePath(const std::string& path) { return path; }

bool FileSeek(FILE* file, int64_t offset, int whence) {
    return file != nullptr && _fseeki64(file, offset, whence) == 0;
}

int64_t FileTell(FILE* file) { return file == nullptr ? -1 : _ftelli64(file); }

void* AllocatePages(uint64_t size) {
    return size == 0 ? nullptr : VirtualAlloc(nullptr, static_cast<SIZE_T>(size), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
}

void FreePages(void* pages, uint64_t) {
    if (pages != nullptr) VirtualFree(pages, 0, MEM_RELEASE);
}

bool IsTerminal(FILE* stream) { return stream != nullptr && _isatty(_fileno(stream)) != 0; }

// ---------------------------------------------------------------- libraries

void* OpenLibrary(const char* name) { return name == nullptr ? nullptr : static_cast<void*>(LoadLibraryA(name)); }

void* FindSymbol(void* library, const char* symbol) {
    if (library == nullptr || symbol == nullptr) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), symbol));
}

}  // namespace platform
}  // namespace GrabSystem
