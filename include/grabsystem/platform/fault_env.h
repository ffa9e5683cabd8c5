// FaultEnv: an Env that fails where a real disk fails, after SQLite's
// test_vfs.c, so that code built on the library (the tool, the Python
// module, a caller's own) can be shown to report every fault: an open, a
// read or a write that fails, a read or a write cut short, a sync that
// fails, a disk that fills up, a folder that refuses writes, a folder that
// cannot be listed. It forwards to a target Env; the files it hands out wrap
// the target's, so that after a failed write the real file is abandoned and
// the target leaves nothing behind (no temporary file, an appended file cut
// back), exactly as it does for a real failure. Every fault answers with a
// Status naming the file and saying the fault was injected.
//
// A test counts what a step does, then fails each in turn:
//   env.Clear(); Write(); const uint64_t n = env.Appends();
//   for (uint64_t i = 1; i <= n; ++i) { env.Clear(); env.FailWrite(i); ... }
//
// Thread-safe: every member may be called from any thread; each fault
// counts its operations on all files together, in the order they happen.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {
namespace platform {

class GRABSYSTEM_EXPORT FaultEnv : public EnvWrapper {
public:
    explicit FaultEnv(Env* target);

    // The n-th Append from now on (1-based, on any file) fails and writes
    // nothing; 0 turns it off.
    void FailWrite(uint64_t n);
    // The n-th Append from now on writes the first half of its bytes, then
    // fails; 0 turns it off.
    void ShortWrite(uint64_t n);
    // After `bytes` more bytes the disk is full: the Append that would pass
    // the limit writes what still fits and fails, and so does every later one.
    void FillDiskAfter(uint64_t bytes);
    // The n-th Sync from now on fails (and gives the file up).
    void FailSync(uint64_t n);
    // Creating files or folders in `dir` or below fails, as in a read-only
    // folder; paths are compared after the target's NativePath.
    void RefuseFolder(const std::string& dir);
    // The n-th open for reading from now on (a file, or a folder listed)
    // fails.
    void FailOpen(uint64_t n);
    // The n-th Read from now on fails and delivers nothing.
    void FailRead(uint64_t n);
    // The n-th Read from now on delivers the first half of what it would,
    // then fails.
    void ShortRead(uint64_t n);
    // Turns every fault off and starts counting again.
    void Clear();
    // What was seen since construction or the last Clear().
    uint64_t Appends();
    uint64_t Syncs();
    uint64_t Opens();
    uint64_t Reads();

    Status NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) override;
    Status CreateDirectories(const std::string& path) override;
    Status ListFiles(const std::string& dir, std::vector<std::string>* names) override;

    // What one operation may do: pass `pass` bytes through, then fail or
    // not, and why. Asked by the files this Env hands out.
    struct Verdict {
        size_t pass;
        bool fail;
        const char* why;
    };
    Verdict AdmitWrite(size_t size);
    Verdict AdmitRead(size_t size);
    bool AdmitSync();

private:
    bool Refused(const std::string& path);
    bool AdmitOpen();

    Mutex m_mutex;
    uint64_t m_appends GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_syncs GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_opens GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_reads GRABSYS_GUARDED_BY(m_mutex) = 0;
    // The operation numbers that fail; 0 = none.
    uint64_t m_failAt GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_shortAt GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_syncFailAt GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_openFailAt GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_readFailAt GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_readShortAt GRABSYS_GUARDED_BY(m_mutex) = 0;
    bool m_diskLimited GRABSYS_GUARDED_BY(m_mutex) = false;
    bool m_diskFull GRABSYS_GUARDED_BY(m_mutex) = false;
    uint64_t m_diskLeft GRABSYS_GUARDED_BY(m_mutex) = 0;
    std::vector<std::string> m_refused GRABSYS_GUARDED_BY(m_mutex);
};

}  // namespace platform
}  // namespace GrabSystem
