#include "grabsystem/platform/status.h"

namespace GrabSystem {

std::string Status::ToString() const {
    if (ok()) return "OK";
    if (m_subject.empty()) return m_cause;
    return m_subject + ": " + m_cause;
}

const char* CodeName(Status::Code code) {
    switch (code) {
        case Status::Code::kOk: return "OK";
        case Status::Code::kNotFound: return "not found";
        case Status::Code::kCorruption: return "corruption";
        case Status::Code::kNotSupported: return "not supported";
        case Status::Code::kInvalidArgument: return "invalid argument";
        case Status::Code::kIOError: return "I/O error";
        case Status::Code::kTimedOut: return "timed out";
    }
    return "unknown";
}

}  // namespace GrabSystem
