#include "grabsystem/format/binary_io.h"

#include "grabsystem/format/coding.h"
#include "grabsystem/platform/os/os.h"

using GrabSystem::platform::FileSize;
using GrabSystem::platform::FileTell;

BinaryReader::~BinaryReader() { Close(); }

int BinaryReader::Open(const char* path) {
    Close();
    m_failed = false;
    m_file = path == nullptr ? nullptr : GrabSystem::platform::Env::Default()->OpenStream(path, "rb");
    return m_file != nullptr ? 1 : 0;
}

void BinaryReader::Close() {
    if (m_file != nullptr) std::fclose(m_file);
    m_file = nullptr;
}

unsigned int BinaryReader::ReadUInt() {
    uint8_t word[4] = {};
    if (m_file == nullptr || std::fread(word, 1, sizeof word, m_file) != sizeof word) {
        m_failed = true;
        return 0;
    }
    return GrabSystem::format::GetU32(word);
}

size_t BinaryReader::ReadByteArray(unsigned char* dest, size_t size) {
    if (m_file == nullptr || dest == nullptr || size == 0) return 0;
    const size_t got = std::fread(dest, 1, size, m_file);
    if (got != size) m_failed = true;
    return got;
}

uint64_t BinaryReader::Remaining() {
    if (m_file == nullptr) return 0;
    const int64_t size = FileSize(m_file), here = FileTell(m_file);
    return size > here && here >= 0 ? static_cast<uint64_t>(size - here) : 0;
}

BinaryWriter::~BinaryWriter() { Close(); }

bool BinaryWriter::Open(const char* path) {
    Close();
    m_file = path == nullptr ? nullptr : GrabSystem::platform::Env::Default()->NewWritableFile(path);
    return m_file != nullptr;
}

bool BinaryWriter::Close() {
    if (!m_file) return false;
    const bool closed = m_file->Close();
    m_file.reset();
    return closed;
}

bool BinaryWriter::WriteUInt(unsigned int value) {
    uint8_t word[4];
    GrabSystem::format::PutU32(word, value);
    return Write(word, sizeof word);
}

bool BinaryWriter::Write(const void* data, size_t size) {
    return m_file && (size == 0 || (data != nullptr && m_file->Append(data, size)));
}
