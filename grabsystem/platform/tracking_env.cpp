#include "grabsystem/platform/tracking_env.h"

#include <algorithm>
#include <utility>

namespace GrabSystem {
namespace platform {

// A file being written for the call: its outcome goes to the call's account
// once, whichever step failed first.
class TrackingEnv::File final : public WritableFile {
public:
    File(TrackingEnv* env, std::unique_ptr<WritableFile> file, std::string path, bool append)
        : m_env(env), m_file(std::move(file)), m_path(std::move(path)), m_append(append) {}
    ~File() override { Abandon(); }

    Status Append(const void* data, size_t size) override {
        if (m_done) return Status::IOError(m_env->NativePath(m_path), "the file is already finished");
        return Checked(m_file->Append(data, size));
    }

    Status Sync() override {
        if (m_done) return Status::IOError(m_env->NativePath(m_path), "the file is already finished");
        return Checked(m_file->Sync());
    }

    Status Close() override {
        if (m_done) return Status::IOError(m_env->NativePath(m_path), "the file is already finished");
        if (m_env->m_options.syncFiles) {
            const Status synced = Checked(m_file->Sync());
            if (!synced.ok()) return synced;
        }
        m_done = true;
        const Status s = m_file->Close();
        if (s.ok())
            m_env->Written(m_path, m_append);
        else
            m_env->WriteFailed(m_path, m_append, s, true);
        return s;
    }

    void Abandon() override {
        if (m_done) return;
        m_done = true;
        m_file->Abandon();
        m_env->WriteFailed(m_path, m_append,
                           Status::IOError(m_env->NativePath(m_path), "given up before it was finished"), true);
    }

private:
    // A failed step finishes the file: the target has already given it up.
    Status Checked(Status s) {
        if (s.ok()) return s;
        m_done = true;
        m_file->Abandon();
        m_env->WriteFailed(m_path, m_append, s, true);
        return s;
    }

    TrackingEnv* const m_env;
    std::unique_ptr<WritableFile> m_file;
    const std::string m_path;
    const bool m_append;
    bool m_done = false;
};

class TrackingEnv::Reader final : public RandomAccessFile {
public:
    Reader(TrackingEnv* env, std::unique_ptr<RandomAccessFile> file) : m_env(env), m_file(std::move(file)) {}

    uint64_t Size() const override { return m_file->Size(); }
    Status Read(uint64_t offset, size_t n, void* dst, size_t* got) const override {
        return m_env->Note(m_file->Read(offset, n, dst, got));
    }

private:
    TrackingEnv* const m_env;
    std::unique_ptr<RandomAccessFile> m_file;
};

TrackingEnv::TrackingEnv(Env* target) : TrackingEnv(target, Options()) {}

TrackingEnv::TrackingEnv(Env* target, Options options) : EnvWrapper(target), m_options(options) {}

bool TrackingEnv::ok() const {
    MutexLock lock(m_mutex);
    return m_failures.empty();
}

Status TrackingEnv::status() const {
    MutexLock lock(m_mutex);
    return m_failures.empty() ? Status::OK() : m_failures.front();
}

std::vector<Status> TrackingEnv::Failures() const {
    MutexLock lock(m_mutex);
    return m_failures;
}

uint64_t TrackingEnv::FilesWritten() const {
    MutexLock lock(m_mutex);
    return m_written;
}

std::vector<std::string> TrackingEnv::WholeFiles() const {
    std::vector<std::string> paths;
    {
        MutexLock lock(m_mutex);
        paths.assign(m_whole.begin(), m_whole.end());
    }
    for (std::string& path : paths) path = Target()->NativePath(path);
    std::sort(paths.begin(), paths.end());
    return paths;
}

uint64_t TrackingEnv::FilesFailed() const {
    MutexLock lock(m_mutex);
    return m_failed;
}

std::vector<std::string> TrackingEnv::Removed() const {
    MutexLock lock(m_mutex);
    return m_removed;
}

Status TrackingEnv::Note(const Status& s) {
    if (s.ok()) return s;
    MutexLock lock(m_mutex);
    m_failures.push_back(s);
    return s;
}

void TrackingEnv::Written(const std::string& path, bool append) {
    MutexLock lock(m_mutex);
    if (append) return;
    m_broken.erase(path);
    if (m_whole.insert(path).second) ++m_written;
}

void TrackingEnv::WriteFailed(const std::string& path, bool append, const Status& failure, bool opened) {
    // A whole file that failed leaves nothing of itself, and an earlier file
    // of its name untouched: say which, lest the earlier be taken for this
    // call's.
    Status s = failure;
    if (!append) {
        const char* left = Target()->FileExists(path) ? "; the earlier file of that name stays as it was"
                           : opened                   ? "; nothing of it is left"
                                                      : "; nothing was written";
        s = failure.IsNotFound() ? Status::NotFound(failure.subject(), failure.cause() + left)
                                 : Status::IOError(failure.subject(), failure.cause() + left);
    }
    bool remove = false;
    {
        MutexLock lock(m_mutex);
        m_failures.push_back(s);
        ++m_failed;
        if (!append) {
            if (m_whole.erase(path) != 0) --m_written;  // replaced by a failed write: no longer this call's
            m_broken.insert(path);
        } else if (m_whole.erase(path) != 0) {
            // The target cut the append back: what stays is this call's
            // pixels without their block, no longer whole.
            --m_written;
            remove = m_options.cleanUp;
        }
    }
    if (!remove) return;
    const Status removed = Target()->RemoveFile(path);
    MutexLock lock(m_mutex);
    if (removed.ok())
        m_removed.push_back(Target()->NativePath(path));
    else
        m_failures.push_back(removed);
}

Status TrackingEnv::NewWritableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    std::unique_ptr<WritableFile> file;
    const Status s = Target()->NewWritableFile(path, &file);
    result->reset();
    if (!s.ok()) {
        WriteFailed(path, false, s, false);
        return s;
    }
    *result = std::make_unique<File>(this, std::move(file), path, false);
    return s;
}

Status TrackingEnv::NewAppendableFile(const std::string& path, std::unique_ptr<WritableFile>* result) {
    result->reset();
    if (m_options.cleanUp) {
        MutexLock lock(m_mutex);
        if (m_broken.count(path) != 0)
            return Status::IOError(Target()->NativePath(path), "not appended to: its own write failed");
    }
    std::unique_ptr<WritableFile> file;
    const Status s = Target()->NewAppendableFile(path, &file);
    if (!s.ok()) {
        WriteFailed(path, true, s, false);
        return s;
    }
    *result = std::make_unique<File>(this, std::move(file), path, true);
    return s;
}

Status TrackingEnv::NewRandomAccessFile(const std::string& path, std::unique_ptr<RandomAccessFile>* result) {
    std::unique_ptr<RandomAccessFile> file;
    const Status s = Note(Target()->NewRandomAccessFile(path, &file));
    result->reset();
    if (s.ok()) *result = std::make_unique<Reader>(this, std::move(file));
    return s;
}

Status TrackingEnv::CreateDirectories(const std::string& path) { return Note(Target()->CreateDirectories(path)); }

Status TrackingEnv::ListFiles(const std::string& dir, std::vector<std::string>* names) {
    return Note(Target()->ListFiles(dir, names));
}

Status TrackingEnv::RemoveFile(const std::string& path) { return Note(Target()->RemoveFile(path)); }

Status TrackingEnv::RenameFile(const std::string& from, const std::string& to) {
    return Note(Target()->RenameFile(from, to));
}

}  // namespace platform
}  // namespace GrabSystem
