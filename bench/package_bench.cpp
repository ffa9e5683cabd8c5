// Debug packages against their baselines, in the same process:
//  - saving a 200 MB image package against EncryptData over the same bytes
//    plus one fwrite; loading it against fread plus EncryptData;
//  - exporting it to BMP files against fwrite of the same frame bytes, one
//    file per frame, and the export on 1, 2, 4 ... threads.
// Files go to /dev/shm when it exists.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "grabsystem/grabsystem.h"

namespace {

using namespace GrabSystem;
namespace fs = std::filesystem;

constexpr uint32_t kW = 2448, kH = 2048, kCams = 2, kFrames = 20;  // 40 frames, 200 MB
constexpr size_t kFrame = size_t{kW} * kH;
constexpr size_t kTotal = kFrame * kCams * kFrames;

std::string Scratch() {
    static const std::string dir = [] {
        const fs::path base = fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        const fs::path d = base / "grabsys_package_bench";
        fs::remove_all(d);
        fs::create_directories(d);
        // Drive paths ("D://ImgTest//...") land under the scratch folder.
        static platform::DriveMappingEnv mapping(platform::Env::System(), d.string());
        platform::Env::Install(&mapping);
        return d.string();
    }();
    return dir;
}

const unsigned char* Key() { return reinterpret_cast<const unsigned char*>(CDebugImgPackageP::kKey); }

CDebugImgPackageP& Package() {
    static CDebugImgPackageP* pkg = [] {
        auto* p = new CDebugImgPackageP;
        for (uint32_t cam = 0; cam < kCams; ++cam) {
            CDebugImgPackageInfoP run;
            run.Width = kW;
            run.Height = kH;
            run.FrameCount = kFrames;
            run.CamIdx = cam;
            p->AddPackageInfo(run);
        }
        p->CreatePackageBuffer();
        std::vector<unsigned char> frame(kFrame);
        for (uint32_t cam = 0; cam < kCams; ++cam)
            for (uint32_t f = 0; f < kFrames; ++f) {
                for (size_t i = 0; i < kFrame; ++i) frame[i] = static_cast<unsigned char>(i * 7 + f + cam);
                p->AddData(cam, frame.data(), f);
            }
        return p;
    }();
    return *pkg;
}

void BM_EncryptAndFwrite(benchmark::State& state) {
    std::vector<unsigned char> data(kTotal, 3);
    const std::string path = Scratch() + "/raw.bin";
    for (auto _ : state) {
        DrasselSpace::FileToolP::EncryptData(data.data(), data.size(), Key(), 16);
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(data.data(), 1, data.size(), f);
        std::fclose(f);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_EncryptAndFwrite)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SavePackage(benchmark::State& state) {
    Scratch();
    CDebugImgPackageP& pkg = Package();
    const std::string path = Scratch() + "/image.dbg";
    for (auto _ : state) pkg.SaveDebugPackage(path);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_SavePackage)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FreadAndDecrypt(benchmark::State& state) {
    Scratch();
    Package().SaveDebugPackage(Scratch() + "/image.dbg");
    const std::string path = Scratch() + "/image.dbg";
    for (auto _ : state) {
        std::unique_ptr<unsigned char[]> data(new unsigned char[kTotal]);
        FILE* f = std::fopen(path.c_str(), "rb");
        std::fseek(f, 12 + 20 * kCams, SEEK_SET);
        const size_t got = std::fread(data.get(), 1, kTotal, f);
        std::fclose(f);
        DrasselSpace::FileToolP::EncryptData(data.get(), got, Key(), 16);
        benchmark::DoNotOptimize(data.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_FreadAndDecrypt)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LoadPackage(benchmark::State& state) {
    Scratch();
    Package().SaveDebugPackage(Scratch() + "/image.dbg");
    CDebugImgPackageP loaded;
    for (auto _ : state) {
        if (!loaded.LoadDebugPackage(Scratch() + "/image.dbg")) {
            state.SkipWithError("load failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_LoadPackage)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FwriteFrames(benchmark::State& state) {
    std::vector<unsigned char> frame(kFrame, 9);
    fs::create_directories(Scratch() + "/frames");
    for (auto _ : state) {
        for (uint32_t i = 0; i < kCams * kFrames; ++i) {
            FILE* f = std::fopen((Scratch() + "/frames/" + std::to_string(i) + ".bin").c_str(), "wb");
            std::fwrite(frame.data(), 1, frame.size(), f);
            std::fclose(f);
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_FwriteFrames)->Unit(benchmark::kMillisecond)->UseRealTime();

// 1, 2, 4 ... threads, up to the machine's cores (and that count itself).
void UpToCores(benchmark::internal::Benchmark* b) {
    const int cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    for (int n = 1; n < cores; n *= 2) b->Arg(n);
    b->Arg(cores);
}

// The export on `threads` threads.
void BM_ExportPackage(benchmark::State& state) {
    Scratch();
    Package().SaveDebugPackage(Scratch() + "/image.dbg");
    CDebugImgPackageP loaded;
    loaded.LoadDebugPackage(Scratch() + "/image.dbg");
    loaded.SetExportThreads(static_cast<int>(state.range(0)));
    for (auto _ : state) loaded.ExportDebugImg();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
    state.counters["threads"] = static_cast<double>(loaded.GetExportThreads());
}
BENCHMARK(BM_ExportPackage)->Apply(UpToCores)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
