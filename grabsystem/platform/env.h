// Env: the one interface through which the library reaches files, folders,
// the clock, sleep and threads, modelled on LevelDB's Env. The library asks
// Env::Default() for everything of the outside world; callers who want files
// elsewhere (in memory, under another root, with faults injected for tests)
// install an Env of their own, usually an EnvWrapper that forwards what it
// does not change.
//
// Paths are the system's own texts ("D://ImgTest//...", "D:\\vormex\\...").
// The system's Env (Env::System()) uses them as given, which is right on
// Windows; on POSIX the default Env is a DriveMappingEnv over it, which maps
// "\\" and runs of "/" to one "/" and a leading drive "X:" to the folder X
// under a root, the way Wine maps drives to folders.
//
// Whole files are written to a temporary name in the same folder and renamed
// into place when they are finished, so that no reader ever meets half a
// file and a failed write leaves whatever was there before. A path that names
// anything other than a regular file (a device such as /dev/full, a pipe, a
// link) is written in place and never replaced.
//
// Threads: every member may be called from any thread; an Env installed as
// the default must be too.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {
namespace platform {

// A file being written. Not thread-safe: one writer per file.
class GRABSYSTEM_EXPORT WritableFile {
public:
    WritableFile() = default;
    WritableFile(const WritableFile&) = delete;
    WritableFile& operator=(const WritableFile&) = delete;
    // Abandons a file that was not closed.
    virtual ~WritableFile();

    // Appends `size` bytes. False when they could not all be written; the
    // file is then not finished: Close() fails too.
    virtual bool Append(const void* data, size_t size) = 0;
    // Pushes what was written to the device (fsync / FlushFileBuffers).
    virtual bool Sync() = 0;
    // Finishes the file: a temporary file is renamed into place. False when
    // a write failed or the file could not be finished; nothing of it is left
    // then (see the kinds of file below).
    virtual bool Close() = 0;
    // Gives the file up: nothing of it is left.
    virtual void Abandon() = 0;
};

// A started thread; null means "no thread". Win32 semantics: the handle stays
// valid until CloseThread, whether or not the thread has ended.
using ThreadHandle = void*;
using ThreadFunc = unsigned long (*)(void* arg);

// Win32 priority values, which is what callers pass.
enum ThreadPriority : int {
    eThreadPriorityNormal = 0,
    eThreadPriorityTimeCritical = 15,
};

class GRABSYSTEM_EXPORT Env {
public:
    Env() = default;
    Env(const Env&) = delete;
    Env& operator=(const Env&) = delete;
    virtual ~Env();

    // The Env the library uses: the one installed last, else the system's
    // own (behind a drive mapping rooted at the current directory on POSIX).
    static Env* Default();
    // Makes `env` the default (not owned; it must outlive its use) and
    // returns the one it replaces (null when that was the built-in one);
    // null restores the built-in default.
    static Env* Install(Env* env);
    // The operating system's own Env, with no wrapper.
    static Env* System();

    // ---- files

    // A whole file, written to a temporary name beside `path` and renamed
    // into place by Close(); for a path that names a device, pipe or link,
    // written in place, truncated. Null when it cannot be created (no such
    // folder, no permission, `path` is a folder).
    virtual std::unique_ptr<WritableFile> NewWritableFile(const std::string& path) = 0;
    // Appends to `path` in place, creating it when missing. A failed append
    // (or Abandon) cuts the file back to the length it had, or removes it
    // when the append created it, so that no half record stays behind.
    virtual std::unique_ptr<WritableFile> NewAppendableFile(const std::string& path) = 0;
    // fopen of the path, for the steps that hand a stream to a reader
    // (mode "rb"). Null when it cannot be opened.
    virtual FILE* OpenStream(const std::string& path, const char* mode) = 0;
    // The whole file, in a buffer of its size (null for an empty file).
    // False, with `data` null and `size` 0, when it cannot be read.
    virtual bool ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size) = 0;

    // A regular file (links followed) / a folder exists at `path`.
    virtual bool FileExists(const std::string& path) = 0;
    virtual bool IsDirectory(const std::string& path) = 0;
    // The folder and its missing parents; true when it exists afterwards.
    virtual bool CreateDirectories(const std::string& path) = 0;
    // The names of the plain files in `dir` (not folders), in the order the
    // file system lists them. False when `dir` cannot be listed.
    virtual bool ListFiles(const std::string& dir, std::vector<std::string>& names) = 0;
    // Removes a regular file; never a device, pipe, link target or folder.
    virtual bool RemoveFile(const std::string& path) = 0;
    // Moves `from` to `to`, replacing a regular file there.
    virtual bool RenameFile(const std::string& from, const std::string& to) = 0;
    // The path as the operating system names it (for messages and for
    // programs started on it).
    virtual std::string NativePath(const std::string& path) = 0;

    // ---- clock, sleep, threads

    // Milliseconds as an unsigned 32-bit value that wraps after about 49.7
    // days, with the semantics of Win32 timeGetTime().
    virtual uint32_t NowMs() = 0;
    // Blocks the calling thread for at least `ms` milliseconds.
    virtual void SleepMs(uint32_t ms) = 0;
    // Starts `func(arg)` at once on a new thread; null when it cannot.
    virtual ThreadHandle StartThread(ThreadFunc func, void* arg) = 0;
    // Best effort: false when the OS refuses (a time-critical POSIX thread
    // needs real-time scheduling rights).
    virtual bool SetThreadPriority(ThreadHandle thread, int priority) = 0;
    // Waits without time limit for the thread to end and stores its exit
    // code when `exitCode` is not null; answers at once, as often as asked,
    // for a thread that has ended. False for a null handle.
    virtual bool WaitThread(ThreadHandle thread, unsigned long* exitCode) = 0;
    // Gives the handle back; a thread that still runs goes on running.
    virtual void CloseThread(ThreadHandle thread) = 0;
};

// Forwards everything to another Env; derive from it and override what you
// change (LevelDB's EnvWrapper).
class GRABSYSTEM_EXPORT EnvWrapper : public Env {
public:
    explicit EnvWrapper(Env* target) : m_target(target) {}
    Env* Target() const { return m_target; }

    std::unique_ptr<WritableFile> NewWritableFile(const std::string& path) override;
    std::unique_ptr<WritableFile> NewAppendableFile(const std::string& path) override;
    FILE* OpenStream(const std::string& path, const char* mode) override;
    bool ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size) override;
    bool FileExists(const std::string& path) override;
    bool IsDirectory(const std::string& path) override;
    bool CreateDirectories(const std::string& path) override;
    bool ListFiles(const std::string& dir, std::vector<std::string>& names) override;
    bool RemoveFile(const std::string& path) override;
    bool RenameFile(const std::string& from, const std::string& to) override;
    std::string NativePath(const std::string& path) override;
    uint32_t NowMs() override;
    void SleepMs(uint32_t ms) override;
    ThreadHandle StartThread(ThreadFunc func, void* arg) override;
    bool SetThreadPriority(ThreadHandle thread, int priority) override;
    bool WaitThread(ThreadHandle thread, unsigned long* exitCode) override;
    void CloseThread(ThreadHandle thread) override;

private:
    Env* m_target;
};

// Maps the system's drive paths to folders under `root` ("" is the current
// directory): "D://ImgTest//x" becomes <root>/D/ImgTest/x, and "\\" and runs
// of "/" become one "/". A path without a drive is only cleaned so. What the
// POSIX build uses by default; on Windows it is only needed by callers that
// want D: somewhere else.
class GRABSYSTEM_EXPORT DriveMappingEnv : public EnvWrapper {
public:
    DriveMappingEnv(Env* target, std::string root);
    const std::string& Root() const { return m_root; }

    std::string Map(const std::string& path) const;

    std::unique_ptr<WritableFile> NewWritableFile(const std::string& path) override;
    std::unique_ptr<WritableFile> NewAppendableFile(const std::string& path) override;
    FILE* OpenStream(const std::string& path, const char* mode) override;
    bool ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size) override;
    bool FileExists(const std::string& path) override;
    bool IsDirectory(const std::string& path) override;
    bool CreateDirectories(const std::string& path) override;
    bool ListFiles(const std::string& dir, std::vector<std::string>& names) override;
    bool RemoveFile(const std::string& path) override;
    bool RenameFile(const std::string& from, const std::string& to) override;
    std::string NativePath(const std::string& path) override;

private:
    std::string m_root;
};

// Installs an Env as the default for the lifetime of the object, then puts
// the previous one back. Scopes nest.
class ScopedEnv {
public:
    explicit ScopedEnv(Env* env) : m_previous(Env::Install(env)) {}
    ~ScopedEnv() { Env::Install(m_previous); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    Env* m_previous;
};

// Installed as the default for its lifetime, it watches every whole file
// written through the Env: the saves of this library answer true once a file
// could be created, whatever its writes then did, and this tells whether the
// files really went into place. Callers that must report a failed write
// (the tool, the Python module) wrap a save in one. Counts from any thread.
class GRABSYSTEM_EXPORT WriteWatch : public EnvWrapper {
public:
    WriteWatch();
    ~WriteWatch() override;
    WriteWatch(const WriteWatch&) = delete;
    WriteWatch& operator=(const WriteWatch&) = delete;

    // At least one file was written, and every one was finished and renamed
    // into place.
    bool Finished() const;
    int FilesStarted() const { return m_files.load(); }

    std::unique_ptr<WritableFile> NewWritableFile(const std::string& path) override;
    std::unique_ptr<WritableFile> NewAppendableFile(const std::string& path) override;

private:
    class Watched;
    std::atomic<int> m_files{0};
    std::atomic<int> m_failed{0};
    Env* m_previous;
};

}  // namespace platform
}  // namespace GrabSystem
