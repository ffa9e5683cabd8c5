// Sequential little-endian readers and writers of whole files.
//
// Not thread-safe; one object per file. Reads past the end deliver zeros and
// set Failed(); a reader never writes outside the destination it is given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"

class GRABSYSTEM_EXPORT BinaryReader {
public:
    BinaryReader() = default;
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

    bool Failed() const { return m_failed; }
    // Bytes from the current position to the end; 0 when not open.
    uint64_t Remaining();

private:
    FILE* m_file = nullptr;
    bool m_failed = false;
};

class GRABSYSTEM_EXPORT BinaryWriter {
public:
    BinaryWriter() = default;
    ~BinaryWriter();
    BinaryWriter(const BinaryWriter&) = delete;
    BinaryWriter& operator=(const BinaryWriter&) = delete;

    // True when the file could be created. It is written through the
    // default Env: to a temporary name beside `path`, renamed into place by
    // Close() (a device or pipe is written in place).
    bool Open(const char* path);
    // True when every write reached the file and it was put in place;
    // otherwise nothing of it is left and an earlier file of that name stays
    // as it was.
    bool Close();

    bool WriteUInt(unsigned int value);
    // True when all `size` bytes were written.
    bool Write(const void* data, size_t size);

private:
    std::unique_ptr<GrabSystem::platform::WritableFile> m_file;
};
