#include "cli_common.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>

#include "grabsystem/platform/console.h"
#include "grabsystem/platform/device/device_manager.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/logger/logger.h"

namespace grabsys {

namespace {
std::mutex g_progressMutex;
}  // namespace

int Fail(const std::string& message) {
    std::cerr << "grabsys: " << message << std::endl;
    return 1;
}

Progress::Progress(std::string label, uint64_t total, const Output& output)
    : m_label(std::move(label)),
      m_total(total),
      m_enabled(!output.quiet && GrabSystem::platform::IsTerminal(stderr)),
      m_start(std::chrono::steady_clock::now()),
      m_lastDraw(m_start) {
    if (m_enabled) Draw(false);
}

Progress::~Progress() { Finish(); }

void Progress::Add(uint64_t n) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    m_done += n;
    const auto now = std::chrono::steady_clock::now();
    if (m_enabled && (now - m_lastDraw > std::chrono::milliseconds(100) || m_done == m_total)) {
        m_lastDraw = now;
        Draw(false);
    }
}

void Progress::Finish() {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    if (m_finished) return;
    m_finished = true;
    if (m_enabled) Draw(true);
}

void Progress::Draw(bool final) {
    constexpr int kWidth = 30;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    const int filled = m_total == 0 ? kWidth : static_cast<int>(kWidth * m_done / m_total);
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

std::string NativePath(const std::string& path) { return GrabSystem::platform::Env::Default()->NativePath(path); }

void UseDriveRoot(const std::string& root) {
#ifdef _WIN32
    static_cast<void>(root);
#else
    // Kept for the rest of the program's life; a later root replaces it.
    static std::unique_ptr<GrabSystem::platform::DriveMappingEnv> mapping;
    auto next = std::make_unique<GrabSystem::platform::DriveMappingEnv>(GrabSystem::platform::Env::System(), root);
    GrabSystem::platform::Env::Install(next.get());
    mapping = std::move(next);
#endif
}

std::string Megabytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1048576.0);
    return text;
}

}  // namespace grabsys
