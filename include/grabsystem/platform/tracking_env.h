// TrackingEnv: the Env of one call that must account for every file it
// touches (a tool command, a Python function, a grab). It forwards to the Env
// the call was given and keeps, for that call alone, every open, read, write,
// sync and folder that failed, each as a Status naming the file and the
// cause. The system's saves answer true once a file could be created,
// whatever its writes then did; this is how the callers built beside them
// learn of every file that did not come out whole.
//
// Pass it to the objects that do the call's work (their SetEnv); never
// install it as the process default, where it would also see the files of
// other threads and other calls.
//
// With Options::cleanUp (the default) it leaves no incomplete file behind:
//  - a file whose own write failed in this call is not appended to, so that
//    no information block is left standing where its pixels should be (the
//    append answers an error, which the system's saves ignore);
//  - a file this call wrote whole and whose appended block then failed is
//    removed: it would hold pixels without their block.
// A file that was there before the call and could not be replaced stays as
// it was; nothing written whole is removed. Failures() names every file that
// is missing or was left as it was, Removed() those taken away.
//
// Thread-safe: the call's own threads (an extractor's, an exporter's) may
// work through it at once. The Env it wraps must outlive it.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace platform {

class GRABSYSTEM_EXPORT TrackingEnv : public EnvWrapper {
public:
    struct Options {
        bool cleanUp = true;
        // Every file is pushed to the device before it is finished, so that a
        // disk that fails only then (a network share, a full thin volume)
        // still reports it.
        bool syncFiles = false;
    };

    explicit TrackingEnv(Env* target);
    TrackingEnv(Env* target, Options options);

    // Nothing failed.
    bool ok() const;
    // The first failure, or OK.
    Status status() const;
    // Every failure, in the order it happened.
    std::vector<Status> Failures() const;
    // Files written whole and still in place.
    uint64_t FilesWritten() const;
    // The files written whole and still in place (native paths, sorted).
    std::vector<std::string> WholeFiles() const;
    // Files whose write failed (each failed write once; an append refused
    // after its file failed is not counted again).
    uint64_t FilesFailed() const;
    // Files this call wrote and then removed as incomplete (native paths).
    std::vector<std::string> Removed() const;

    Status NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) override;
    Status NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) override;
    Status CreateDirectories(const std::string& path) override;
    Status ListFiles(const std::string& dir, std::vector<std::string>* names) override;
    Status RemoveFile(const std::string& path) override;
    Status RenameFile(const std::string& from, const std::string& to) override;

private:
    class File;
    class Reader;
    friend class File;
    friend class Reader;

    // Records `s` when it failed; returns it.
    Status Note(const Status& s);
    void Written(const std::string& path, bool append);
    // `opened`: the file was created before it failed.
    void WriteFailed(const std::string& path, bool append, const Status& s, bool opened);

    const Options m_options;
    mutable Mutex m_mutex;
    std::vector<Status> m_failures GRABSYS_GUARDED_BY(m_mutex);
    uint64_t m_written GRABSYS_GUARDED_BY(m_mutex) = 0;
    uint64_t m_failed GRABSYS_GUARDED_BY(m_mutex) = 0;
    // Paths as the caller names them: written whole by this call, and those
    // whose write failed (not to be appended to).
    std::set<std::string> m_whole GRABSYS_GUARDED_BY(m_mutex);
    std::set<std::string> m_broken GRABSYS_GUARDED_BY(m_mutex);
    std::vector<std::string> m_removed GRABSYS_GUARDED_BY(m_mutex);
};

}  // namespace platform
}  // namespace GrabSystem
