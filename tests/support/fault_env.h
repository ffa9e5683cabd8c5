// FaultEnv: an Env for disk-fault tests. It forwards to a target Env and
// makes chosen writes fail the way a real disk does: one write fails, one is
// cut short, the disk fills up, a folder is read-only. The files it hands out
// wrap the target's: after a failed Append, Close() fails and the real file
// is abandoned, so the target leaves nothing behind (no temporary file, an
// appended file cut back), exactly as it does for a real failure.
//
// A test first counts a writer's Appends, then fails each one in turn:
//   env.Clear(); Write(); const uint64_t n = env.Appends();
//   for (uint64_t i = 1; i <= n; ++i) { env.Clear(); env.FailWrite(i); ... }
//
// Thread-safe: every member may be called from any thread, and the faults
// count the Appends of all files together, in the order they happen.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"

namespace grabsys_test {

class FaultEnv : public GrabSystem::platform::EnvWrapper {
public:
    explicit FaultEnv(GrabSystem::platform::Env* target);

    // The n-th Append from now on (1-based, on any file) fails and writes
    // nothing; 0 turns it off.
    void FailWrite(uint64_t n);
    // The n-th Append from now on writes the first half of its bytes, then
    // fails; 0 turns it off.
    void ShortWrite(uint64_t n);
    // After `bytes` more bytes the disk is full: the Append that would pass
    // the limit writes what still fits and fails, and so does every later one.
    void FillDiskAfter(uint64_t bytes);
    // Creating files or folders in `dir` or below fails, as in a read-only
    // folder; paths are compared after the target's NativePath.
    void RefuseFolder(const std::string& dir);
    // Turns every fault off and starts counting Appends again.
    void Clear();
    // The Appends seen since construction or the last Clear().
    uint64_t Appends();

    std::unique_ptr<GrabSystem::platform::WritableFile> NewWritableFile(const std::string& path) override;
    std::unique_ptr<GrabSystem::platform::WritableFile> NewAppendableFile(const std::string& path) override;
    bool CreateDirectories(const std::string& path) override;

    // What one Append may do: pass `pass` bytes through, then fail or not.
    // Called by the files this Env hands out.
    struct Verdict {
        size_t pass;
        bool fail;
    };
    Verdict Admit(size_t size);

private:
    bool Refused(const std::string& path);

    GrabSystem::platform::Mutex m_mutex;
    uint64_t m_appends GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_failAt GRABSYS_GUARDED_BY(m_mutex) = 0;   // Append number; 0 = none
    uint64_t m_shortAt GRABSYS_GUARDED_BY(m_mutex) = 0;  // Append number; 0 = none
    bool m_diskLimited GRABSYS_GUARDED_BY(m_mutex) = false;
    bool m_diskFull GRABSYS_GUARDED_BY(m_mutex) = false;
    uint64_t m_diskLeft GRABSYS_GUARDED_BY(m_mutex) = 0;
    std::vector<std::string> m_refused GRABSYS_GUARDED_BY(m_mutex);
};

}  // namespace grabsys_test
