// Helpers shared by the tests: a log capture and a clock the test drives.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/logger/logger.h"

// Some checks read our files with programs of the Linux host (Python with
// Pillow or lz4, openssl). A Windows build of the tests cannot start them
// (under Wine a Windows process runs Windows programs only), so there the
// check is skipped, naming the tool; the Linux build runs it.
#ifdef _WIN32
#define GRABSYS_SKIP_ON_WINDOWS(tool) \
    GTEST_SKIP() << "needs " tool ", a host program a Windows process cannot start; checked by the Linux build"
#else
#define GRABSYS_SKIP_ON_WINDOWS(tool) static_cast<void>(0)
#endif

namespace grabsys_test {

struct LogLine {
    int tag;
    std::string text;
};

// A log manager whose lines the test can read back.
class LogCapture {
public:
    LogCapture();
    PelvaneSpace::CMsgLogMngP* Manager() { return &m_mng; }
    std::vector<LogLine> Lines();
    std::vector<std::string> Texts();
    void Clear();

private:
    std::mutex m_mutex;
    std::vector<LogLine> m_lines;
    PelvaneSpace::CMsgLogMngP m_mng;
};

// Replaces the millisecond tick for the lifetime of the object: an Env
// that answers NowMs from the test and forwards the rest.
class FakeClock : public GrabSystem::platform::EnvWrapper {
public:
    explicit FakeClock(uint32_t start = 1000);
    ~FakeClock() override;
    void Set(uint32_t now) { m_now = now; }
    void Advance(uint32_t ms) { m_now += ms; }
    uint32_t NowMs() override { return m_now.load(); }

private:
    std::atomic<uint32_t> m_now;
    GrabSystem::platform::Env* m_previous;
};

// w x h bytes of a pattern that differs per seed and compresses a little.
std::vector<unsigned char> FrameBytes(uint32_t w, uint32_t h, int seed);

// A fresh directory that is also the drive root, removed afterwards.
//
// On Windows the library's drive paths are real: "D:/..." is drive D:. There
// the tests expect D: to be a scratch drive (make test-windows maps it to a
// temporary folder and sets GRABSYS_SCRATCH_DRIVE=D); it is emptied before
// and after every test.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& Path() const { return m_path; }
    // Path of a file inside the directory; "D/x" names x on drive D: as the
    // library sees it (<dir>/D/x on POSIX, D:/x on Windows).
    std::string File(const std::string& name) const;

private:
    std::string m_path;
    // POSIX: maps drive paths into the folder while the object lives.
    std::unique_ptr<GrabSystem::platform::DriveMappingEnv> m_mapping;
    GrabSystem::platform::Env* m_previous = nullptr;
};

std::vector<unsigned char> ReadAll(const std::string& path);
// Every file below `root`, as relative paths with "/"; empty when missing.
std::set<std::string> Tree(const std::string& root);
// The pixel bytes of a BMP (any path the library accepts); empty when it
// cannot be read.
std::vector<unsigned char> BmpPixels(const std::string& path);
void WriteAll(const std::string& path, const std::vector<unsigned char>& bytes);

// printf-style formatting for expected log texts.
std::string Format(const char* format, ...);

}  // namespace grabsys_test
