#include "grabsystem/platform/status.h"

#include <cerrno>
#include <system_error>

namespace GrabSystem {

std::string Status::ToString() const {
    if (ok()) return "OK";
    if (m_subject.empty()) return m_cause;
    return m_subject + ": " + m_cause;
}

Status Status::FromErrno(std::string subject, const std::string& what, int errnum) {
    // The generic category's text is strerror's, without its thread-safety
    // trouble.
    std::string cause = errnum == 0 ? what : what + " (" + std::generic_category().message(errnum) + ")";
    if (errnum == ENOENT) return NotFound(std::move(subject), std::move(cause));
    return IOError(std::move(subject), std::move(cause));
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
