// Win32 implementation of the OS layer.
#include <windows.h>
#include <mmsystem.h>

#include <cstdio>
#include <io.h>
#include <new>

#include "grabsystem/platform/console.h"
#include "grabsystem/platform/os/os.h"

namespace GrabSystem {
namespace platform {

uint32_t SystemTickMs() { return static_cast<uint32_t>(timeGetTime()); }

void SystemSleepMs(uint32_t ms) { ::Sleep(ms); }

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

ThreadHandle SystemStartThread(ThreadFunc func, void* arg) {
    if (func == nullptr) return nullptr;
    auto* record = new (std::nothrow) StartRecord{func, arg};
    if (record == nullptr) return nullptr;
    HANDLE handle = ::CreateThread(nullptr, 0, Trampoline, record, 0, nullptr);
    if (handle == nullptr) delete record;
    return handle;
}

bool SystemSetThreadPriority(ThreadHandle thread, int priority) {
    return thread != nullptr && ::SetThreadPriority(static_cast<HANDLE>(thread), priority) != 0;
}

bool SystemWaitThread(ThreadHandle thread, unsigned long* exitCode) {
    if (thread == nullptr) return false;
    if (::WaitForSingleObject(static_cast<HANDLE>(thread), INFINITE) != WAIT_OBJECT_0) return false;
    if (exitCode != nullptr) {
        DWORD code = 0;
        ::GetExitCodeThread(static_cast<HANDLE>(thread), &code);
        *exitCode = code;
    }
    return true;
}

void SystemCloseThread(ThreadHandle thread) {
    if (thread != nullptr) ::CloseHandle(static_cast<HANDLE>(thread));
}

// ---------------------------------------------------------------- files

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

// A temporary file in the user's temporary folder that deletes itself when
// closed ("T": kept in memory where it can be, "D": deleted on close).
namespace {

// A temporary file that stays in the cache where it can and deletes itself
// when closed.
FILE* OpenTempStream() {
    char folder[MAX_PATH + 1];
    char name[MAX_PATH + 1];
    const DWORD length = GetTempPathA(sizeof folder, folder);
    if (length == 0 || length > MAX_PATH || GetTempFileNameA(folder, "gsm", 0, name) == 0) return nullptr;
    FILE* stream = std::fopen(name, "w+bTD");
    if (stream == nullptr) DeleteFileA(name);
    return stream;
}

}  // namespace

MemoryStream::MemoryStream() : m_stream(OpenTempStream()) {}

MemoryStream::~MemoryStream() {
    if (m_stream != nullptr) std::fclose(m_stream);
}

bool MemoryStream::Take(std::vector<unsigned char>& bytes) {
    if (m_stream == nullptr) return false;
    const int64_t size = FileSize(m_stream);
    bool ok = size >= 0 && std::fflush(m_stream) == 0 && FileSeek(m_stream, 0, SEEK_SET);
    if (ok) {
        bytes.resize(static_cast<size_t>(size));
        ok = size == 0 || std::fread(bytes.data(), 1, bytes.size(), m_stream) == bytes.size();
    }
    std::fclose(m_stream);
    m_stream = nullptr;
    return ok;
}

ReadStream::ReadStream(std::unique_ptr<unsigned char[]> bytes, uint64_t size) {
    FILE* stream = OpenTempStream();
    if (stream == nullptr) return;
    if ((size != 0 && std::fwrite(bytes.get(), 1, static_cast<size_t>(size), stream) != size) ||
        std::fflush(stream) != 0 || !FileSeek(stream, 0, SEEK_SET)) {
        std::fclose(stream);
        return;
    }
    m_stream = stream;
}

ReadStream::~ReadStream() {
    if (m_stream != nullptr) std::fclose(m_stream);
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
