// Status: how everything built beside the system's bool calls reports an
// outcome (capture services, previews, cameras, the tool, the Python module),
// modelled on LevelDB's Status. A failure carries a code, the subject it is
// about (a file path or a camera name) and the cause, so that any message
// made from it names both: "out/0.armraw: write cut short after 4096 of
// 65536 bytes (No space left on device)".
//
// A Status is a plain value: copy it, return it, keep it. The system's own
// classes keep their documented bool results; this type is never thrown.
#pragma once

#include <string>

#include "grabsystem/grabsystem_export.h"

namespace GrabSystem {

class GRABSYSTEM_EXPORT Status {
public:
    enum class Code {
        kOk,
        kNotFound,         // no such file, folder or camera
        kCorruption,       // an input that is damaged or not what it claims to be
        kNotSupported,     // asked of a build or a device that cannot do it
        kInvalidArgument,  // a request that contradicts itself or the input
        kIOError,          // an open, read, write, sync or rename that failed or fell short
        kTimedOut,         // nothing came within the time allowed (a camera that vanished)
    };

    // Success.
    Status() = default;
    static Status OK() { return Status(); }
    static Status NotFound(std::string subject, std::string cause) { return {Code::kNotFound, std::move(subject), std::move(cause)}; }
    static Status Corruption(std::string subject, std::string cause) { return {Code::kCorruption, std::move(subject), std::move(cause)}; }
    static Status NotSupported(std::string subject, std::string cause) { return {Code::kNotSupported, std::move(subject), std::move(cause)}; }
    static Status InvalidArgument(std::string subject, std::string cause) { return {Code::kInvalidArgument, std::move(subject), std::move(cause)}; }
    static Status IOError(std::string subject, std::string cause) { return {Code::kIOError, std::move(subject), std::move(cause)}; }
    static Status TimedOut(std::string subject, std::string cause) { return {Code::kTimedOut, std::move(subject), std::move(cause)}; }
    // What an operating-system call that set `errnum` (errno) means for the
    // subject: "<what> (<the system's text>)", kNotFound for a missing file
    // or folder and kIOError for everything else.
    static Status FromErrno(std::string subject, const std::string& what, int errnum);

    bool ok() const { return m_code == Code::kOk; }
    Code code() const { return m_code; }
    bool IsNotFound() const { return m_code == Code::kNotFound; }
    bool IsCorruption() const { return m_code == Code::kCorruption; }
    bool IsNotSupported() const { return m_code == Code::kNotSupported; }
    bool IsInvalidArgument() const { return m_code == Code::kInvalidArgument; }
    bool IsIOError() const { return m_code == Code::kIOError; }
    bool IsTimedOut() const { return m_code == Code::kTimedOut; }

    // The file or camera the status is about ("" when it is about neither).
    const std::string& subject() const { return m_subject; }
    // Why, in a few words; "" for success.
    const std::string& cause() const { return m_cause; }
    // "OK", or "<subject>: <cause>" (just the cause when there is no subject).
    std::string ToString() const;

    // The first failure wins: keeps this status unless it is OK.
    Status& Update(const Status& other) {
        if (ok()) *this = other;
        return *this;
    }

private:
    Status(Code code, std::string subject, std::string cause)
        : m_code(code), m_subject(std::move(subject)), m_cause(std::move(cause)) {}

    Code m_code = Code::kOk;
    std::string m_subject;
    std::string m_cause;
};

// The code's name in a few words: "not found", "I/O error", ...
GRABSYSTEM_EXPORT const char* CodeName(Status::Code code);

}  // namespace GrabSystem
