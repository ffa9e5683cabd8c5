#include "test_support.h"

#include "grabsystem/format/image_io_tool.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

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

FakeClock::FakeClock(uint32_t start)
    : EnvWrapper(GrabSystem::platform::Env::Default()), m_now(start), m_previous(GrabSystem::platform::Env::Install(this)) {}

FakeClock::~FakeClock() { GrabSystem::platform::Env::Install(m_previous); }

namespace {

#ifdef _WIN32
// Empties the scratch drive, but only when the runner said D: is one.
void ClearScratchDrive() {
    const char* drive = std::getenv("GRABSYS_SCRATCH_DRIVE");
    if (drive == nullptr || std::string(drive) != "D") return;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("D:/", ec)) std::filesystem::remove_all(entry.path(), ec);
}
#else
void ClearScratchDrive() {}
#endif

bool IsDrivePath(const std::string& name) {
    return name.size() >= 2 && name[0] >= 'A' && name[0] <= 'Z' && name[1] == '/';
}

}  // namespace

std::string TempDir::File(const std::string& name) const {
#ifdef _WIN32
    if (IsDrivePath(name)) return name.substr(0, 1) + ":" + name.substr(1);
#else
    (void)IsDrivePath;
#endif
    return m_path + "/" + name;
}

TempDir::TempDir() {
    ClearScratchDrive();
    static std::atomic<int> counter{0};
    std::random_device random;
    const auto base = std::filesystem::temp_directory_path();
    m_path = (base / ("grabsys_test_" + std::to_string(random()) + "_" + std::to_string(counter++))).string();
    std::filesystem::create_directories(m_path);
#ifndef _WIN32
    m_mapping.reset(new GrabSystem::platform::DriveMappingEnv(GrabSystem::platform::Env::Default(), m_path));
    m_previous = GrabSystem::platform::Env::Install(m_mapping.get());
#endif
}

TempDir::~TempDir() {
    if (m_mapping) GrabSystem::platform::Env::Install(m_previous);
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
    ClearScratchDrive();
}

std::vector<unsigned char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<unsigned char> FrameBytes(uint32_t w, uint32_t h, int seed) {
    std::vector<unsigned char> f(size_t{w} * h);
    for (size_t i = 0; i < f.size(); ++i) f[i] = static_cast<unsigned char>((i / 5) * 7 + static_cast<size_t>(seed) * 17);
    return f;
}

std::set<std::string> Tree(const std::string& root) {
    namespace fs = std::filesystem;
    std::set<std::string> files;
    std::error_code ec;
    if (!fs::exists(root, ec)) return files;
    for (const auto& e : fs::recursive_directory_iterator(root, ec))
        if (e.is_regular_file()) files.insert(fs::relative(e.path(), root).generic_string());
    return files;
}

std::vector<unsigned char> BmpPixels(const std::string& path) {
    unsigned char* p = nullptr;
    unsigned w = 0, h = 0;
    DrasselSpace::ePixelFormatP f{};
    if (!DrasselSpace::ImageIOToolP::LoadBMP(path.c_str(), p, w, h, f)) return {};
    std::vector<unsigned char> v(p, p + size_t{w} * h * f);
    delete[] p;
    return v;
}

void WriteAll(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string Format(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

}  // namespace grabsys_test
