// The logger library: pool log records, per-pool log managers and the
// process-wide Logger for timing and progress lines.
//
// Nothing is written anywhere unless the caller installs a sink: a log
// manager or the Logger without a sink drops lines at the cost of a branch.
// Sinks are called with the manager's (or Logger's) own mutex held, so lines
// arrive one at a time and in order; a sink must not log again or call back
// into the pool that logged, since that pool may hold its own lock.
#pragma once

#include <cstdarg>
#include <functional>
#include <string>

#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/os/mutex.h"

namespace PelvaneSpace {

// Tag of a pool log record. The pools use 1 for the outcome of an operation
// and 2 for step-by-step detail; the values pass through unchanged.
enum LogTag : int {
    eLogTagOutcome = 1,
    eLogTagDetail = 2,
};

// One formatted log line. The text is formatted into the record itself, so
// building a record never touches the heap; text beyond kMaxText - 1
// characters is cut off.
class GRABSYSTEM_EXPORT CMsgLogP {
public:
    static constexpr int kMaxText = 256;

    // printf-style: CMsgLogP(eLogTagOutcome, "%d>Push #%lld done", poolId, serial)
    CMsgLogP(int tag, const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 3, 4)))
#endif
        ;

    int GetTag() const { return m_tag; }
    const char* GetText() const { return m_text; }

private:
    int m_tag;
    char m_text[kMaxText];
};

// Receives the log records of one or more pools and hands each to the sink.
class GRABSYSTEM_EXPORT CMsgLogMngP {
public:
    using Sink = std::function<void(const CMsgLogP&)>;

    CMsgLogMngP() = default;
    explicit CMsgLogMngP(Sink sink);
    CMsgLogMngP(const CMsgLogMngP&) = delete;
    CMsgLogMngP& operator=(const CMsgLogMngP&) = delete;

    void SetSink(Sink sink);

    // Delivers the record to the sink. False when no sink is installed.
    bool AddLog(CMsgLogP& log);

private:
    GrabSystem::platform::Mutex m_mutex;
    Sink m_sink GRABSYS_GUARDED_BY(m_mutex);
};

// Process-wide logger of timing and progress lines ("ArmCost--...").
class GRABSYSTEM_EXPORT Logger {
public:
    using Sink = std::function<void(int kind, const std::string& text)>;

    // Kind of the lines the library writes.
    static constexpr int kKindInfo = 2;

    static Logger* GetInstance();

    void SetSink(Sink sink);
    void Info(int kind, const std::string& text);

private:
    Logger() = default;

    GrabSystem::platform::Mutex m_mutex;
    Sink m_sink GRABSYS_GUARDED_BY(m_mutex);
};

}  // namespace PelvaneSpace
