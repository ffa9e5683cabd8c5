// Runs a fuzz target over files given on the command line (or every file of
// the folders given), so saved crash inputs stay regression tests in builds
// without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// libFuzzer stops at allocations over 2 GB; so does the replay, or an input
// that once made a lying header allocate gigabytes would pass again unseen
// on a machine with memory to spare.
static constexpr std::size_t kMallocLimit = std::size_t{2} << 30;

static void* Allocate(std::size_t size, bool nothrow) {
    if (size > kMallocLimit) {
        std::fprintf(stderr, "replay: an allocation of %zu bytes is over the limit of %zu\n", size, kMallocLimit);
        std::abort();
    }
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr && !nothrow) std::abort();
    return p;
}

void* operator new(std::size_t size) { return Allocate(size, false); }
void* operator new[](std::size_t size) { return Allocate(size, false); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

static int RunFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
}

int main(int argc, char** argv) {
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg))
                if (entry.is_regular_file()) runs += RunFile(entry.path());
        } else if (std::filesystem::exists(arg)) {
            runs += RunFile(arg);
        }
    }
    std::printf("replayed %d inputs\n", runs);
    return 0;
}
