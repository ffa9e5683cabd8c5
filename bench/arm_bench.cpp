// Arm images against their baselines, in the same process:
//  - AddOneViewImages of one view (48 Sin + 2 white frames, 2448 x 2048,
//    fringe-like), which compresses and writes the file, and its
//    compression step alone, against raw liblz4 compression of the same
//    frames at the same acceleration;
//  - extraction of that view to BMP against reading the view file, raw LZ4
//    decompression of its records and fwrite of the same pixel bytes to
//    files.
//  - the same compression and one fwrite of the packed records, the work
//    AddOneViewImages does, against AddOneViewImages;
//  - reading a view file into frames with the codec and raw liblz4, the
//    baseline of the Python module's reader;
//  - compression on 1, 2, 4 ... threads up to the machine's cores, and the
//    extraction of several views on as many threads (the scaling table).
// Files go to /dev/shm when it exists, so that both sides write to memory.
#include <benchmark/benchmark.h>
#include <lz4.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fringe.h"
#include "grabsystem/grabsystem.h"

namespace {

using namespace GrabSystem;
namespace fs = std::filesystem;

constexpr uint32_t kW = 2448, kH = 2048;
constexpr int kCams = 2, kDimA = 1, kDimB = 2, kDimC = 12;  // 48 Sin frames
constexpr int kSin = kCams * kDimA * kDimB * kDimC, kWhite = kCams;
constexpr size_t kFrame = size_t{kW} * kH;

std::string Scratch() {
    static const std::string dir = [] {
        const fs::path base = fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        const fs::path d = base / "grabsys_arm_bench";
        fs::remove_all(d);
        fs::create_directories(d / "in");
        return d.string();
    }();
    return dir;
}

// M_PI is not standard C++ and mingw hides it.
constexpr double kPi = 3.14159265358979323846;

std::unique_ptr<CImg8P> Fringe(double period, double phase, uint32_t seed) {
    auto img = std::make_unique<CImg8P>();
    img->SetSize(kW, kH, 1, false);
    grabsys_test::FillFringe(img->GetImg(), kW, kH, period, phase, seed);
    return img;
}

struct ViewFrames {
    std::vector<std::unique_ptr<CImg8P>> owned;
    std::vector<IImgP*> sin, white;
    ViewFrames() {
        for (int i = 0; i < kSin + kWhite; ++i) {
            const int group = (i % (kDimB * kDimC)) / kDimC, step = i % kDimC;
            owned.push_back(i < kSin ? Fringe(16.0 * (1 + group), 2 * kPi * step / kDimC, i)
                                     : Fringe(grabsys_test::kWhitePeriod, 0, i));
            (i < kSin ? sin : white).push_back(owned.back().get());
        }
    }
};

const ViewFrames& Frames() {
    static const ViewFrames frames;
    return frames;
}

COneViewArmImageData* NewView(int idx, const std::string& path) {
    auto* data = new COneViewArmImageData(idx);
    std::vector<IImgP*> sin = Frames().sin;
    data->SetSinImages(sin, {eCam0, eCam1}, kDimA, kDimB, kDimC);
    data->SetWhitePatternImage(Frames().white);
    data->SetOutputFileFullPath(path);
    return data;
}

// Raw liblz4 over the same frames, packed one after another into one output
// buffer as a view file packs them (the buffer is reused, as the manager
// reuses its blocks).
void BM_Lz4CompressFrames(benchmark::State& state) {
    Frames();  // generated once, outside the timing
    const size_t bound = static_cast<size_t>(LZ4_compressBound(static_cast<int>(kFrame)));
    std::vector<char> dst(bound * (kSin + kWhite));
    uint64_t in = 0, out = 0;
    for (auto _ : state) {
        size_t at = 0;
        for (const auto& img : Frames().owned) {
            const int n = LZ4_compress_fast(reinterpret_cast<const char*>(img->GetImg()), dst.data() + at,
                                            static_cast<int>(kFrame), static_cast<int>(bound), 3);
            at += static_cast<size_t>(n);
            out += static_cast<uint64_t>(n);
            in += kFrame;
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(in));
    state.counters["compression_ratio"] = static_cast<double>(in) / static_cast<double>(out);
}
BENCHMARK(BM_Lz4CompressFrames)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same, then the packed records written to a file with one fwrite.
void BM_Lz4CompressFramesAndFwrite(benchmark::State& state) {
    Frames();
    const size_t bound = static_cast<size_t>(LZ4_compressBound(static_cast<int>(kFrame)));
    std::vector<char> dst(bound * (kSin + kWhite));
    const std::string path = Scratch() + "/in/raw.lz4";
    for (auto _ : state) {
        size_t at = 0;
        for (const auto& img : Frames().owned)
            at += static_cast<size_t>(LZ4_compress_fast(reinterpret_cast<const char*>(img->GetImg()), dst.data() + at,
                                                        static_cast<int>(kFrame), static_cast<int>(bound), 3));
        FILE* f = std::fopen(path.c_str(), "wb");
        const bool written = f != nullptr && std::fwrite(dst.data(), 1, at, f) == at;
        if (f != nullptr) std::fclose(f);
        if (!written) {
            state.SkipWithError("cannot write");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame * (kSin + kWhite)));
}
BENCHMARK(BM_Lz4CompressFramesAndFwrite)->Unit(benchmark::kMillisecond)->UseRealTime();

// 1, 2, 4 ... threads, up to the machine's cores (and that count itself).
void UpToCores(benchmark::internal::Benchmark* b) {
    const int cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    for (int n = 1; n < cores; n *= 2) b->Arg(n);
    b->Arg(cores);
}

// AddOneViewImages without a file (an empty path writes none): the
// compression on `threads` threads, with everything around it.
void BM_CompressView(benchmark::State& state) {
    Frames();
    CArmImageOutputMng mng;
    mng.SetCompressThreads(static_cast<int>(state.range(0)));
    mng.AddOneViewImages(NewView(0, ""));
    for (auto _ : state) {
        if (mng.AddOneViewImages(NewView(0, "")) != eAddRltOk) {
            state.SkipWithError("view not compressed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame * (kSin + kWhite)));
    state.counters["threads"] = static_cast<double>(mng.GetCompressThreads());
}
BENCHMARK(BM_CompressView)->Apply(UpToCores)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_AddOneViewImages(benchmark::State& state) {
    Frames();
    CArmImageOutputMng mng;
    const std::string path = Scratch() + "/in/0.armraw";
    mng.AddOneViewImages(NewView(0, path));  // the manager's steady state: its block exists
    for (auto _ : state) {
        if (mng.AddOneViewImages(NewView(0, path)) != eAddRltOk) {
            state.SkipWithError("view not written");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame * (kSin + kWhite)));
    state.counters["file_MB"] = static_cast<double>(fs::file_size(path)) / 1048576.0;
    state.counters["compression_ratio"] = static_cast<double>(kFrame * (kSin + kWhite)) / static_cast<double>(fs::file_size(path));
}
BENCHMARK(BM_AddOneViewImages)->Unit(benchmark::kMillisecond)->UseRealTime();

// The compression step alone (no file): the library's overhead over LZ4.
void BM_CompressMemoryData(benchmark::State& state) {
    Frames();
    CArmImageOutputMemory block;
    std::unique_ptr<COneViewArmImageData> data(NewView(0, ""));
    block.AllocateMemory(data->GetMemoryRequired());
    std::memset(block.GetAddress(), 0, block.GetAllocatedSize());  // a block in reuse, as in the manager
    data->SetAvaliableMemory(&block);
    for (auto _ : state) {
        if (!data->CompressMemoryData()) {
            state.SkipWithError("view did not fit");
            break;
        }
    }
    data.reset();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame * (kSin + kWhite)));
}
BENCHMARK(BM_CompressMemoryData)->Unit(benchmark::kMillisecond)->UseRealTime();

// Writes the view file once for the extraction benchmarks.
const std::vector<unsigned char>& ViewFile() {
    static const std::vector<unsigned char> file = [] {
        CArmImageOutputMng mng;
        mng.AddOneViewImages(NewView(0, Scratch() + "/in/0.armraw"));
        std::vector<unsigned char> bytes(fs::file_size(Scratch() + "/in/0.armraw"));
        FILE* f = std::fopen((Scratch() + "/in/0.armraw").c_str(), "rb");
        if (std::fread(bytes.data(), 1, bytes.size(), f) != bytes.size()) bytes.clear();
        std::fclose(f);
        return bytes;
    }();
    return file;
}

// Both sides start from the view file: read it whole, decode every record,
// write every frame's bytes to a file of its own.
void BM_Lz4DecompressAndFwrite(benchmark::State& state) {
    ViewFile();
    const std::string in = Scratch() + "/in/0.armraw";
    std::vector<char> frame(kFrame);
    const std::string out = Scratch() + "/raw_out";
    fs::create_directories(out);
    for (auto _ : state) {
        std::vector<unsigned char> file(fs::file_size(in));
        FILE* source = std::fopen(in.c_str(), "rb");
        const bool read = std::fread(file.data(), 1, file.size(), source) == file.size();
        std::fclose(source);
        if (!read) {
            state.SkipWithError("view file unreadable");
            break;
        }
        size_t at = 1024;
        for (int i = 0; i < kSin + kWhite; ++i) {
            uint32_t n;
            std::memcpy(&n, &file[at + 4], 4);
            LZ4_decompress_safe(reinterpret_cast<const char*>(&file[at + 64]), frame.data(), static_cast<int>(n),
                                static_cast<int>(kFrame));
            FILE* f = std::fopen((out + "/" + std::to_string(i) + ".bin").c_str(), "wb");
            std::fwrite(frame.data(), 1, kFrame, f);
            std::fclose(f);
            at += 64 + n;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame * (kSin + kWhite)));
}
BENCHMARK(BM_Lz4DecompressAndFwrite)->Unit(benchmark::kMillisecond)->UseRealTime();

// The C++ codec reading a view file into frames: the file read whole, its
// records found by the arm view codec, each decompressed into fresh memory
// by raw liblz4. What the Python module's read_arm_view is measured against
// (bench/python_bench.py names the file it reads in GRABSYS_BENCH_VIEW).
void BM_DecodeViewFile(benchmark::State& state) {
    const char* given = std::getenv("GRABSYS_BENCH_VIEW");
    if (given == nullptr) ViewFile();
    const std::string in = given != nullptr ? given : Scratch() + "/in/0.armraw";
    uint64_t decoded = 0;
    for (auto _ : state) {
        std::unique_ptr<unsigned char[]> file;
        uint64_t size = 0;
        format::ArmViewSummary view;
        if (!platform::Env::Default()->ReadFile(in, file, size).ok() ||
            format::SummarizeArmView(format::Bytes(file.get(), static_cast<size_t>(size)), view) != format::Status::kOk) {
            state.SkipWithError("view file unreadable");
            break;
        }
        const size_t frame = size_t{view.header.width} * view.header.height;
        std::unique_ptr<char[]> frames(new char[frame * view.records.size()]);
        for (size_t i = 0; i < view.records.size(); ++i)
            LZ4_decompress_safe(reinterpret_cast<const char*>(view.records[i].data.data), frames.get() + frame * i,
                                static_cast<int>(view.records[i].data.size), static_cast<int>(frame));
        benchmark::DoNotOptimize(frames.get());
        decoded += frame * view.records.size();
    }
    state.SetBytesProcessed(static_cast<int64_t>(decoded));
}
BENCHMARK(BM_DecodeViewFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ExtractView(benchmark::State& state) {
    ViewFile();
    ArmImageExtractor extractor;
    OutputOneViewArmImageParm parm;
    parm.views[0] = {0};
    parm.inputDirs[0] = Scratch() + "/in/";
    parm.outputDir = Scratch() + "/bmp_out/";
    parm.mode = 1;
    std::vector<int> failed[1];
    for (auto _ : state) {
        extractor.OutputOneViewArmImages(parm, failed, 1);
        if (!failed[0].empty()) {
            state.SkipWithError("view failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame * (kSin + kWhite)));
}
BENCHMARK(BM_ExtractView)->Unit(benchmark::kMillisecond)->UseRealTime();

// Several copies of the view, extracted on `threads` threads.
void BM_ExtractViews(benchmark::State& state) {
    const int views = std::max(4, static_cast<int>(std::thread::hardware_concurrency()));
    const std::string in = Scratch() + "/views/";
    static const bool copied = [&] {
        ViewFile();
        fs::create_directories(in);
        for (int v = 0; v < views; ++v)
            fs::copy_file(Scratch() + "/in/0.armraw", in + std::to_string(v) + ".armraw",
                          fs::copy_options::overwrite_existing);
        return true;
    }();
    (void)copied;
    ArmImageExtractor extractor;
    extractor.SetExtractThreads(static_cast<int>(state.range(0)));
    OutputOneViewArmImageParm parm;
    for (int v = 0; v < views; ++v) parm.views[0].push_back(v);
    parm.inputDirs[0] = in;
    parm.outputDir = Scratch() + "/views_out/";
    parm.mode = 1;
    std::vector<int> failed[1];
    for (auto _ : state) {
        extractor.OutputOneViewArmImages(parm, failed, 1);
        if (!failed[0].empty()) {
            state.SkipWithError("a view failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFrame * (kSin + kWhite) * views));
    state.counters["threads"] = static_cast<double>(extractor.GetExtractThreads());
}
BENCHMARK(BM_ExtractViews)->Apply(UpToCores)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
