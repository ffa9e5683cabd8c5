#include "grabsystem/format/binary_io.h"

#include "grabsystem/format/coding.h"

using GrabSystem::Status;
using GrabSystem::platform::Env;

BinaryReader::~BinaryReader() { Close(); }

int BinaryReader::Open(const char* path) {
    Close();
    m_failed = false;
    m_position = 0;
    m_status = path == nullptr ? Status::InvalidArgument("", "no file name")
                               : Env::Or(m_env)->NewRandomAccessFile(path, &m_file);
    return m_file ? 1 : 0;
}

void BinaryReader::Close() { m_file.reset(); }

unsigned int BinaryReader::ReadUInt() {
    uint8_t word[4] = {};
    if (ReadByteArray(word, sizeof word) != sizeof word) {
        m_failed = true;
        return 0;
    }
    return GrabSystem::format::GetU32(word);
}

size_t BinaryReader::ReadByteArray(unsigned char* dest, size_t size) {
    if (!m_file || dest == nullptr || size == 0) return 0;
    size_t got = 0;
    const Status s = m_file->Read(m_position, size, dest, &got);
    m_position += got;
    m_status.Update(s);
    if (got != size) m_failed = true;
    return got;
}

uint64_t BinaryReader::Remaining() const {
    if (!m_file) return 0;
    const uint64_t size = m_file->Size();
    return size > m_position ? size - m_position : 0;
}

BinaryWriter::~BinaryWriter() { Close(); }

bool BinaryWriter::Open(const char* path) {
    Close();
    m_status = path == nullptr ? Status::InvalidArgument("", "no file name")
                               : Env::Or(m_env)->NewWritableFile(path, &m_file);
    return m_file != nullptr;
}

bool BinaryWriter::Close() {
    if (!m_file) return false;
    m_status.Update(m_file->Close());
    m_file.reset();
    return m_status.ok();
}

bool BinaryWriter::WriteUInt(unsigned int value) {
    uint8_t word[4];
    GrabSystem::format::PutU32(word, value);
    return Write(word, sizeof word);
}

bool BinaryWriter::Write(const void* data, size_t size) {
    if (!m_file || (size != 0 && data == nullptr)) return false;
    if (size == 0) return true;
    const Status s = m_file->Append(data, size);
    m_status.Update(s);
    return s.ok();
}
