// Runs a fuzz target over files given on the command line (or every file of
// the folders given), so saved crash inputs stay regression tests in builds
// without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

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
