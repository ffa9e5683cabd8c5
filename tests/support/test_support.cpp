#include "test_support.h"

#include <cstdarg>
#include <cstdio>

namespace grabsys_test {

LogCapture::LogCapture()
    : m_mng([this](const PelvaneSpace::CMsgLogP& line) {
          std::lock_guard<std::mutex> lock(m_mutex);
          m_lines.push_back({line.GetTag(), line.GetText()});
      }) {}

std::vector<LogLine> LogCapture::Lines() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<std::string> LogCapture::Texts() {
    std::vector<std::string> texts;
    for (const LogLine& line : Lines()) texts.push_back(line.text);
    return texts;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

std::atomic<uint32_t> FakeClock::s_now{0};

FakeClock::FakeClock(uint32_t start) {
    s_now = start;
    GrabSystem::platform::SetTickSource(&FakeClock::Now);
}

FakeClock::~FakeClock() { GrabSystem::platform::SetTickSource(nullptr); }

void FakeClock::Set(uint32_t now) { s_now = now; }

void FakeClock::Advance(uint32_t ms) { s_now += ms; }

uint32_t FakeClock::Now() { return s_now.load(); }

std::string Format(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

}  // namespace grabsys_test
