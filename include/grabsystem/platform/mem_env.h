// MemEnv: files and folders in memory, after LevelDB's helpers/memenv, for
// the fuzz targets and tests that must not touch a disk, and for callers that
// want a capture's files without a file system. The clock, sleep and threads
// are those of the Env it wraps.
//
// Paths are cleaned as the drive mapping cleans them ("\\" and runs of "/"
// become one "/", a trailing "/" is dropped), so the system's own texts work
// as they are: "D://ImgTest//x" and "D:\\ImgTest\\x" name one file. A file
// can be made only in a folder that exists; the root ("", "/" and every
// drive "X:") always does. A whole file goes into place when it is closed,
// an append when it is closed too, and an abandoned one leaves what was
// there before, as on a disk. Nothing fails for want of room: memory that
// runs out throws std::bad_alloc.
//
// Thread-safe. Files being read keep the contents they had when opened.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"

namespace GrabSystem {
namespace platform {

class GRABSYSTEM_EXPORT MemEnv : public EnvWrapper {
public:
    // `base` gives the clock, sleep and threads.
    explicit MemEnv(Env* base);

    // The clean form of a path, as the files are keyed.
    static std::string Clean(const std::string& path);
    // Files held, and their bytes in all.
    size_t FileCount() const;
    uint64_t BytesHeld() const;

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
    using Contents = std::shared_ptr<const std::vector<unsigned char>>;
    class File;
    friend class File;

    // Puts a finished file in place; false when its folder went away.
    bool Publish(const std::string& path, Contents contents);
    bool FolderExistsLocked(const std::string& dir) const GRABSYS_REQUIRES(m_mutex);
    // Why `path` cannot take a file: OK when it can.
    Status CanHoldFileLocked(const std::string& path) const GRABSYS_REQUIRES(m_mutex);

    mutable Mutex m_mutex;
    std::map<std::string, Contents> m_files GRABSYS_GUARDED_BY(m_mutex);
    std::set<std::string> m_folders GRABSYS_GUARDED_BY(m_mutex);
};

}  // namespace platform
}  // namespace GrabSystem
