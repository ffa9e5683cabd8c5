// Env: the one interface through which the library reaches files, folders,
// the clock, sleep and threads, modelled on LevelDB's Env. Objects that touch
// files take the Env to use (SetEnv, as LevelDB's Options::env); one that was
// given none uses Env::Default() at the time of the call. Callers who want
// files elsewhere (in memory, under another root, with faults injected for
// tests, watched for one call) pass an Env of their own, usually an
// EnvWrapper that forwards what it does not change. Env::Install (and
// ScopedEnv) replace the process-wide default, for tests and for callers that
// predate passing one.
//
// Every file operation answers with a Status that names the file and the
// cause, so that a caller can tell its user which file failed and why; the
// system's classes turn these into their documented bool results.
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

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/status.h"

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

    // Appends `size` bytes. An error when they could not all be written; the
    // file is then not finished: Close() fails too.
    virtual Status Append(const void* data, size_t size) = 0;
    // Pushes what was written to the device (fsync / FlushFileBuffers).
    virtual Status Sync() = 0;
    // Finishes the file: a temporary file is renamed into place. An error
    // when a write failed or the file could not be finished; nothing of it
    // is left then (see the kinds of file below).
    virtual Status Close() = 0;
    // Gives the file up: nothing of it is left.
    virtual void Abandon() = 0;
};

// A file being read, at any offset. Reads may come from several threads at
// once.
class GRABSYSTEM_EXPORT RandomAccessFile {
public:
    RandomAccessFile() = default;
    RandomAccessFile(const RandomAccessFile&) = delete;
    RandomAccessFile& operator=(const RandomAccessFile&) = delete;
    virtual ~RandomAccessFile();

    // The file's length when it was opened.
    virtual uint64_t Size() const = 0;
    // Reads up to `n` bytes at `offset` into `dst`; `*got` receives how many
    // arrived, fewer than `n` only where the file ends. An error (with
    // `*got` the bytes that did arrive) when the device fails or the file
    // gives fewer bytes than its length promises.
    virtual Status Read(uint64_t offset, size_t n, void* dst, size_t* got) const = 0;
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

    // The process-wide fallback: the Env installed last, else the system's
    // own (behind a drive mapping rooted at the current directory on POSIX).
    static Env* Default();
    // Makes `env` the default (not owned; it must outlive its use) and
    // returns the one it replaces (null when that was the built-in one);
    // null restores the built-in default.
    static Env* Install(Env* env);
    // The operating system's own Env, with no wrapper.
    static Env* System();
    // `env`, or the default when it is null: what an object that was given
    // no Env uses.
    static Env* Or(Env* env) { return env != nullptr ? env : Default(); }

    // ---- files

    // A whole file, written to a temporary name beside `path` and renamed
    // into place by Close(); for a path that names a device, pipe or link,
    // written in place, truncated. An error when it cannot be created (no
    // such folder, no permission, `path` is a folder); `*result` is then
    // null.
    virtual Status NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) = 0;
    // Appends to `path` in place, creating it when missing. A failed append
    // (or Abandon) cuts the file back to the length it had, or removes it
    // when the append created it, so that no half record stays behind.
    virtual Status NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) = 0;
    // A regular file opened for reading.
    virtual Status NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) = 0;

    // A regular file (links followed) / a folder exists at `path`.
    virtual bool FileExists(const std::string& path) = 0;
    virtual bool IsDirectory(const std::string& path) = 0;
    // The folder and its missing parents; OK when it exists afterwards.
    virtual Status CreateDirectories(const std::string& path) = 0;
    // The names of the plain files in `dir` (not folders), in the order the
    // file system lists them; empty on error.
    virtual Status ListFiles(const std::string& dir, std::vector<std::string>* names) = 0;
    // Removes a regular file; never a device, pipe, link target or folder.
    virtual Status RemoveFile(const std::string& path) = 0;
    // Moves `from` to `to`, replacing a regular file there.
    virtual Status RenameFile(const std::string& from, const std::string& to) = 0;
    // The path as the operating system names it (for messages and for
    // programs started on it).
    virtual std::string NativePath(const std::string& path) = 0;

    // The whole file through NewRandomAccessFile, in a buffer of its size
    // (null for an empty file). On error `data` is null and `size` 0.
    Status ReadFile(const std::string& path, std::unique_ptr<unsigned char[]>& data, uint64_t& size);
    // `size` bytes as the whole file at `path`, through NewWritableFile.
    Status WriteFile(const std::string& path, const void* data, size_t size);

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

    Status NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) override;
    bool FileExists(const std::string& path) override;
    bool IsDirectory(const std::string& path) override;
    Status CreateDirectories(const std::string& path) override;
    Status ListFiles(const std::string& dir, std::vector<std::string>* names) override;
    Status RemoveFile(const std::string& path) override;
    Status RenameFile(const std::string& from, const std::string& to) override;
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

    Status NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) override;
    bool FileExists(const std::string& path) override;
    bool IsDirectory(const std::string& path) override;
    Status CreateDirectories(const std::string& path) override;
    Status ListFiles(const std::string& dir, std::vector<std::string>* names) override;
    Status RemoveFile(const std::string& path) override;
    Status RenameFile(const std::string& from, const std::string& to) override;
    std::string NativePath(const std::string& path) override;

private:
    std::string m_root;
};

// The system's Env writes a whole file to a temporary name beside it,
// "<path>.tmp-<process id>-<n>", n counting within the process, so that
// two writers of one path never share one. A new such name for `path`:
GRABSYSTEM_EXPORT std::string TemporaryFileName(const std::string& path);
// Whether a file name (without its folder) is one of those: what a process
// killed between writing a file and renaming it leaves behind.
GRABSYSTEM_EXPORT bool IsTemporaryFileName(const std::string& name);

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

}  // namespace platform
}  // namespace GrabSystem
