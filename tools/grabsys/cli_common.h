// What every grabsys command shares: output switches, error reporting, a
// progress bar for long work, paths and units.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/tracking_env.h"

namespace grabsys {

struct Output {
    bool quiet = false;
    bool verbose = false;
    bool sync = false;  // push every file written to the device before calling it written
};

// Runs the tool on a command line, as main does; returns the exit code.
int Main(int argc, char** argv);

// Prints "grabsys: <message>" on stderr and returns the exit code 1. A
// progress bar still on the terminal is finished first, so that the error
// starts a line of its own whatever the command was doing.
int Fail(const std::string& message);

// A progress bar on stderr with counts and rate, drawn only when stderr is
// a terminal and output is not quiet. One is active at a time: a new bar
// finishes the one before. Thread-safe Add.
class Progress {
public:
    Progress(std::string label, uint64_t total, const Output& output);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void Add(uint64_t n = 1);
    void Finish();

private:
    friend int Fail(const std::string& message);
    void FinishLocked();
    void Draw(bool final);

    std::string m_label;
    uint64_t m_total;
    bool m_enabled;
    bool m_finished = false;
    uint64_t m_done = 0;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastDraw;
};

// Installs (or removes) a stderr sink on the library's logger.
void AttachLogger(bool verbose);

// One line of the demo's closing table.
struct StageSummary {
    std::string stage;
    uint64_t frames = 0;
    uint64_t bytesIn = 0;   // frame bytes handled
    uint64_t bytesOut = 0;  // bytes in the files written (0: none)
    double seconds = 0;
    std::string where;
};

// The Env every command reads and writes through: the process default, or
// a drive mapping over the base Env (rooted where UseDriveRoot says).
GrabSystem::platform::Env* ToolEnv();
// The Env beneath the tool (the system's by default; a test's fault-injecting
// one). Forgets a drive root made over the previous one.
void SetBaseEnv(GrabSystem::platform::Env* env);
// The path as the operating system names it (drive paths mapped).
std::string NativePath(const std::string& path);
// Maps the system's drive paths ("D://...") to folders under `root` from
// now on (POSIX; on Windows D: is the real drive and the root is ignored),
// and makes the folder the general package's project file goes to.
void UseDriveRoot(const std::string& root);

// The account of one command's files: a TrackingEnv over ToolEnv() that
// leaves no incomplete file behind, and syncs every file with --sync. Pass
// it to every object the command writes or reads with (SetEnv), then
// ReportFiles.
class CommandFiles : public GrabSystem::platform::TrackingEnv {
public:
    explicit CommandFiles(const Output& output);
};

// One line on stderr per failed file, naming it and the cause (the first
// kMaxFileLines of them, then how many more), and what was done with the
// incomplete ones. 0 when nothing failed, else 1.
constexpr size_t kMaxFileLines = 10;
int ReportFiles(const GrabSystem::platform::TrackingEnv& files);

// Sizes are binary throughout the tool: MiB, GiB, and MiB/s for rates.
double InMiB(uint64_t bytes);
// "12.3 MiB"
std::string MiB(uint64_t bytes);

}  // namespace grabsys
