// Sequential little-endian readers and writers of whole files, through the
// Env they are given (the default Env when it is null).
//
// Not thread-safe; one object per file. Reads past the end deliver zeros and
// set Failed(); a reader never writes outside the destination it is given.
// Both keep the first thing that went wrong with their file as a Status
// naming the file and the cause.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"

class GRABSYSTEM_EXPORT BinaryReader {
public:
    explicit BinaryReader(GrabSystem::platform::Env* env = nullptr) : m_env(env) {}
    ~BinaryReader();
    BinaryReader(const BinaryReader&) = delete;
    BinaryReader& operator=(const BinaryReader&) = delete;

    // Nonzero when the file was opened for reading.
    int Open(const char* path);
    void Close();

    // The next u32; 0 (and Failed()) past the end.
    unsigned int ReadUInt();
    // Reads up to `size` bytes into `dest`; returns how many arrived. The
    // rest of `dest` is left as it was.
    size_t ReadByteArray(unsigned char* dest, size_t size);

    // A read ran past the end of the file, or failed.
    bool Failed() const { return m_failed; }
    // OK, or why the file could not be opened or read (the end of the file
    // is no error).
    const GrabSystem::Status& status() const { return m_status; }
    // Bytes from the current position to the end; 0 when not open.
    uint64_t Remaining() const;

private:
    GrabSystem::platform::Env* const m_env;
    std::unique_ptr<GrabSystem::platform::RandomAccessFile> m_file;
    uint64_t m_position = 0;
    bool m_failed = false;
    GrabSystem::Status m_status;
};

class GRABSYSTEM_EXPORT BinaryWriter {
public:
    explicit BinaryWriter(GrabSystem::platform::Env* env = nullptr) : m_env(env) {}
    ~BinaryWriter();
    BinaryWriter(const BinaryWriter&) = delete;
    BinaryWriter& operator=(const BinaryWriter&) = delete;

    // True when the file could be created. It is written to a temporary name
    // beside `path`, renamed into place by Close() (a device or pipe is
    // written in place).
    bool Open(const char* path);
    // True when every write reached the file and it was put in place;
    // otherwise nothing of it is left and an earlier file of that name stays
    // as it was.
    bool Close();

    bool WriteUInt(unsigned int value);
    // True when all `size` bytes were written.
    bool Write(const void* data, size_t size);

    // OK, or the first thing that went wrong since Open: the file could not
    // be created, a write failed or fell short, it could not be finished.
    const GrabSystem::Status& status() const { return m_status; }

private:
    GrabSystem::platform::Env* const m_env;
    std::unique_ptr<GrabSystem::platform::WritableFile> m_file;
    GrabSystem::Status m_status;
};
