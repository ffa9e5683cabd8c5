#include "cli_common.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <vector>

#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {
// Guards every bar and the terminal line it draws on.
std::mutex g_progressMutex;
// The bar whose line is open on the terminal, if any.
Progress* g_activeBar = nullptr;
}  // namespace

int Fail(const std::string& message) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    if (g_activeBar != nullptr) g_activeBar->FinishLocked();
    std::cerr << "grabsys: " << message << std::endl;
    return 1;
}

Progress::Progress(std::string label, uint64_t total, const Output& output)
    : m_label(std::move(label)),
      m_total(total),
      m_enabled(!output.quiet && GrabSystem::platform::IsTerminal(stderr)),
      m_start(std::chrono::steady_clock::now()),
      m_lastDraw(m_start) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    if (g_activeBar != nullptr) g_activeBar->FinishLocked();
    g_activeBar = this;
    if (m_enabled) Draw(false);
}

Progress::~Progress() { Finish(); }

void Progress::Add(uint64_t n) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    m_done += n;
    const auto now = std::chrono::steady_clock::now();
    if (m_enabled && !m_finished && (now - m_lastDraw > std::chrono::milliseconds(100) || m_done == m_total)) {
        m_lastDraw = now;
        Draw(false);
    }
}

void Progress::Finish() {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    FinishLocked();
}

void Progress::FinishLocked() {
    if (g_activeBar == this) g_activeBar = nullptr;
    if (m_finished) return;
    m_finished = true;
    if (m_enabled) Draw(true);
}

void Progress::Draw(bool final) {
    constexpr int kWidth = 30;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    const int filled = m_total == 0 ? kWidth : static_cast<int>(kWidth * std::min(m_done, m_total) / m_total);
    std::fprintf(stderr, "\r%-16s [%s%s] %llu/%llu  %.1f/s", m_label.c_str(), std::string(filled, '#').c_str(),
                 std::string(kWidth - filled, '.').c_str(), static_cast<unsigned long long>(m_done),
                 static_cast<unsigned long long>(m_total), seconds > 0 ? m_done / seconds : 0.0);
    if (final) std::fputc('\n', stderr);
    std::fflush(stderr);
}

void AttachLogger(bool verbose) {
    if (!verbose) {
        PelvaneSpace::Logger::GetInstance()->SetSink(nullptr);
        return;
    }
    std::cerr << "grabsys: device memory: " << Zentrik::CDeviceManager::Describe() << "\n";
    PelvaneSpace::Logger::GetInstance()->SetSink(
        [](int kind, const std::string& text) { std::cerr << "[log " << kind << "] " << text << "\n"; });
}

namespace {
// Set by tests, or by nobody (the system's); the drive mapping over it, once
// a command names a root.
GrabSystem::platform::Env* g_base = nullptr;
std::unique_ptr<GrabSystem::platform::DriveMappingEnv> g_mapped;
}  // namespace

GrabSystem::platform::Env* ToolEnv() {
    if (g_mapped) return g_mapped.get();
    return g_base != nullptr ? g_base : GrabSystem::platform::Env::Default();
}

void SetBaseEnv(GrabSystem::platform::Env* env) {
    g_mapped.reset();
    g_base = env;
#ifndef _WIN32
    // The system's paths are cleaned as the default Env cleans them.
    if (env != nullptr) g_mapped = std::make_unique<GrabSystem::platform::DriveMappingEnv>(env, "");
#endif
}

std::string NativePath(const std::string& path) { return ToolEnv()->NativePath(path); }

void UseDriveRoot(const std::string& root) {
#ifdef _WIN32
    static_cast<void>(root);
#else
    GrabSystem::platform::Env* base = g_base != nullptr ? g_base : GrabSystem::platform::Env::System();
    g_mapped = std::make_unique<GrabSystem::platform::DriveMappingEnv>(base, root);
#endif
    // A general package's load writes its project file into this folder
    // and expects it to exist, as it does on a scanner workstation.
    GrabSystem::capture::MakeProjectFileFolder(ToolEnv());
}

CommandFiles::CommandFiles(const Output& output)
    : TrackingEnv(ToolEnv(), Options{true, output.sync}) {}

int ReportFiles(const GrabSystem::platform::TrackingEnv& files) {
    const std::vector<GrabSystem::Status> failures = files.Failures();
    if (failures.empty()) return 0;
    for (size_t i = 0; i < failures.size() && i < kMaxFileLines; ++i) Fail(failures[i].ToString());
    if (failures.size() > kMaxFileLines)
        Fail("... and " + std::to_string(failures.size() - kMaxFileLines) + " more failures like these");
    const uint64_t failed = files.FilesFailed();
    const size_t removed = files.Removed().size();
    // One file is said in its own line: nothing of it is left.
    if (failed > 1 || removed != 0)
        Fail(std::to_string(failed) + " file" + (failed == 1 ? " was" : "s were") + " not written whole; " +
             (removed != 0 ? std::to_string(removed) + " incomplete file" + (removed == 1 ? " was" : "s were") +
                                 " removed, no other is left"
                           : "none is left incomplete"));
    return 1;
}

double InMiB(uint64_t bytes) { return static_cast<double>(bytes) / static_cast<double>(uint64_t{1} << 20); }

std::string MiB(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MiB", InMiB(bytes));
    return text;
}

}  // namespace grabsys
