#include "grabsystem/platform/logger/logger.h"

#include <cstdio>
#include <utility>

namespace PelvaneSpace {

using GrabSystem::platform::MutexLock;

CMsgLogP::CMsgLogP(int tag, const char* format, ...) : m_tag(tag) {
    m_text[0] = '\0';
    if (format == nullptr) return;
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_text, sizeof m_text, format, args);
    va_end(args);
}

CMsgLogMngP::CMsgLogMngP(Sink sink) : m_sink(std::move(sink)) {}

void CMsgLogMngP::SetSink(Sink sink) {
    MutexLock lock(m_mutex);
    m_sink = std::move(sink);
}

bool CMsgLogMngP::AddLog(CMsgLogP& log) {
    MutexLock lock(m_mutex);
    if (!m_sink) return false;
    m_sink(log);
    return true;
}

Logger* Logger::GetInstance() {
    static Logger instance;
    return &instance;
}

void Logger::SetSink(Sink sink) {
    MutexLock lock(m_mutex);
    m_sink = std::move(sink);
}

void Logger::Info(int kind, const std::string& text) {
    MutexLock lock(m_mutex);
    if (m_sink) m_sink(kind, text);
}

}  // namespace PelvaneSpace
