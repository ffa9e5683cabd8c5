#include "grab_demo.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <iomanip>
#include <thread>
#include <vector>

#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using Clock = std::chrono::steady_clock;
using GrabSystem::CImg8P;
using GrabSystem::CImgPoolCtrlP;
using GrabSystem::CMemBlockP;
using GrabSystem::IImgP;
using GrabSystem::PoolMode;
using VormexDataStructure::eImgFmtBmp;
using VormexDataStructure::eImgFmtRaw;

constexpr int kPatterns = 4;

// The number a synthetic frame carries in its first bytes.
uint64_t FrameNumber(const unsigned char* pixels) { return GrabSystem::format::GetFixed<uint64_t>(pixels); }

struct ModeResult {
    GrabSystem::PoolCounters counts;  // the pool's own account of every frame
    uint64_t consumed = 0;
    uint64_t verified = 0;
    uint64_t mismatched = 0;
    uint64_t filesVerified = 0;
    uint64_t filesFailed = 0;
    double liveFps = 0.0;
    double seconds = 0.0;
    double copySeconds = 0.0;
};

// Camera rows of `width` pixels followed by `rowGap` bytes of padding. Each
// pattern is a diagonal gradient; the first 8 bytes carry the frame number.
class SyntheticCamera {
public:
    explicit SyntheticCamera(const GrabDemoOptions& o) : m_o(o), m_stride(o.width + o.rowGap) {
        for (int p = 0; p < kPatterns; ++p) {
            m_patterns.emplace_back(m_stride * o.height, 0xEE);
            for (uint32_t y = 0; y < o.height; ++y)
                for (uint32_t x = 0; x < o.width; ++x)
                    m_patterns[p][y * m_stride + x] = static_cast<unsigned char>(x + 3 * y + 61 * p);
        }
    }

    unsigned char* Frame(uint64_t number) {
        auto& frame = m_patterns[number % kPatterns];
        GrabSystem::format::PutFixed(frame.data(), number);
        return frame.data();
    }

    // Whether packed pixels hold frame `number` as the camera produced it.
    bool Matches(const unsigned char* packed) const {
        const uint64_t number = FrameNumber(packed);
        const auto& frame = m_patterns[number % kPatterns];
        for (uint32_t y = 0; y < m_o.height; ++y) {
            const size_t skip = y == 0 ? sizeof number : 0;
            if (std::memcmp(packed + y * size_t{m_o.width} + skip, frame.data() + y * m_stride + skip,
                            m_o.width - skip) != 0)
                return false;
        }
        return true;
    }

    size_t PackedSize() const { return size_t{m_o.width} * m_o.height; }

private:
    GrabDemoOptions m_o;
    size_t m_stride;
    std::vector<std::vector<unsigned char>> m_patterns;
};

// Saves a pooled image as raw and as BMP, loads both back into fresh images
// and compares geometry, pixels and the frame attribute.
bool SaveAndReload(GrabSystem::platform::Env* env, IImgP& img, const std::string& dir, uint64_t serial) {
    bool ok = true;
    img.SetEnv(env);
    for (auto format : {eImgFmtRaw, eImgFmtBmp}) {
        const std::string path = dir + "\\frame" + std::to_string(serial) + (format == eImgFmtRaw ? ".raw" : ".bmp");
        img.SaveFile(path.c_str(), format);
        CImg8P back;
        back.SetEnv(env);
        ok = ok && back.LoadFile(path.c_str()) && back.GetWidth() == img.GetWidth() &&
             back.GetHeight() == img.GetHeight() && back.GetInfo().frameAttr == img.GetInfo().frameAttr &&
             std::memcmp(back.GetData(), img.GetData(), size_t{img.GetWidth()} * img.GetHeight()) == 0;
    }
    return ok;
}

ModeResult RunMode(const GrabDemoOptions& o, GrabSystem::platform::Env* env, PoolMode mode, SyntheticCamera& camera) {
    ModeResult r;
    std::vector<unsigned char> region(camera.PackedSize() * o.chunks);
    CImgPoolCtrlP pool(static_cast<unsigned char>(mode), nullptr, mode, 8);
    CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(camera.PackedSize());
    pool.SetImgDefaultConfig(GrabSystem::eCam0, VormexDataStructure::eMemModeFixed,
                             VormexDataStructure::ImgSize(o.width, o.height, 1, 8),
                             VormexDataStructure::ImgRes(0.05, 0.05, 0.05));
    pool.Add(o.chunks);

    std::atomic<bool> producing{true};
    const auto start = Clock::now();
    std::thread producer([&] {
        const auto period = o.cameraFps > 0 ? std::chrono::duration<double>(1.0 / o.cameraFps)
                                            : std::chrono::duration<double>(0);
        for (uint64_t i = 0; i < o.frames; ++i) {
            std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(period * i));
            unsigned char* src = camera.Frame(i);
            const auto t0 = Clock::now();
            // The frame number travels as the frame attribute as well.
            pool.PushImg(src, o.width, o.height, o.rowGap, static_cast<unsigned>(i));
            r.copySeconds += std::chrono::duration<double>(Clock::now() - t0).count();
        }
        producing = false;
    });

    uint64_t want = 0;
    for (;;) {
        const bool done = !producing.load();
        if (want >= pool.GetNextSerialNum()) {
            if (done) break;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            continue;
        }
        IImgP* img = pool.GetImg(want);
        if (img == nullptr) {
            // Rung before we got to it: a live consumer skips to the newest.
            want = pool.GetNextSerialNum() - 1;
            continue;
        }
        if (mode == GrabSystem::ePoolNormal) {
            // In normal mode a pushed frame is ours until we release it.
            img->SetToUsing();
            const bool intact = camera.Matches(img->GetImg()) && img->GetInfo().frameAttr == FrameNumber(img->GetImg());
            intact ? ++r.verified : ++r.mismatched;
            if (r.filesVerified + r.filesFailed < o.savedFrames)
                SaveAndReload(env, *img, o.outputDir, want) ? ++r.filesVerified : ++r.filesFailed;
            std::this_thread::sleep_for(std::chrono::milliseconds(o.consumerMs));
            img->ReleaseUsingStatus();
            ++r.consumed;
        } else {
            // In ring mode the producer may overwrite it while we work: the
            // release by serial tells whether it was still ours.
            std::this_thread::sleep_for(std::chrono::milliseconds(o.consumerMs));
            if (pool.Release(want)) ++r.consumed;
        }
        ++want;
    }
    producer.join();
    r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    r.liveFps = pool.GetLiveFps();
    r.counts = pool.GetCounters();
    pool.DeleteAll();
    pool.DischargeMemoryBlock();
    return r;
}

}  // namespace

bool RunGrabDemo(const GrabDemoOptions& o, GrabSystem::platform::Env* env, std::ostream& out,
                 std::vector<StageSummary>& summary) {
    SyntheticCamera camera(o);
    out << "Grab path: " << o.frames << " frames of " << o.width << " x " << o.height << " (8-bit, " << o.rowGap
        << " bytes of row padding) per mode, camera at " << o.cameraFps << " fps, consumer " << o.consumerMs
        << " ms per frame, " << o.chunks << " chunks\n\n";
    out << std::left << std::setw(8) << "mode" << std::right << std::setw(8) << "pushed" << std::setw(9) << "dropped"
        << std::setw(13) << "overwritten" << std::setw(10) << "released" << std::setw(8) << "in use" << std::setw(10)
        << "consumed" << std::setw(10) << "verified" << std::setw(10) << "live fps" << std::setw(10) << "MiB/s"
        << std::setw(14) << "copy MiB/s" << "\n";
    bool ok = true;
    for (PoolMode mode : {GrabSystem::ePoolNormal, GrabSystem::ePoolRing}) {
        const ModeResult r = RunMode(o, env, mode, camera);
        const GrabSystem::PoolCounters& c = r.counts;
        StageSummary stage;
        stage.stage = mode == GrabSystem::ePoolRing ? "grab, ring mode" : "grab, normal mode";
        stage.frames = c.pushed + c.overwritten;
        stage.bytesIn = c.bytesCopied;
        stage.seconds = r.copySeconds;
        stage.where = mode == GrabSystem::ePoolRing ? "-" : grabsys::NativePath(o.outputDir);
        summary.push_back(stage);
        const double mib = InMiB(c.bytesCopied);
        out << std::left << std::setw(8) << (mode == GrabSystem::ePoolRing ? "ring" : "normal") << std::right
            << std::setw(8) << c.pushed << std::setw(9) << c.refusedNoFreeNode + c.refusedTooLarge << std::setw(13)
            << c.overwritten << std::setw(10) << c.released << std::setw(8) << c.maxInUse << std::setw(10)
            << r.consumed << std::setw(10)
            << (mode == GrabSystem::ePoolRing ? std::string("-") : std::to_string(r.verified)) << std::setw(10)
            << std::fixed << std::setprecision(1) << r.liveFps << std::setw(10) << std::setprecision(0)
            << mib / r.seconds << std::setw(14) << (r.copySeconds > 0 ? mib / r.copySeconds : 0.0) << "\n";
        out.unsetf(std::ios::fixed);
        if (r.mismatched != 0) {
            out << "  " << r.mismatched << " frames did not hold the pixels or attribute the camera pushed\n";
            ok = false;
        }
        if (mode == GrabSystem::ePoolNormal) {
            out << "  saved " << r.filesVerified + r.filesFailed << " frames as raw and BMP under " << o.outputDir
                << ", loaded back: " << r.filesVerified << " identical\n";
            if (r.filesFailed != 0) ok = false;
        }
    }
    out << "\nThe pool counts every frame: pushed into a free image, dropped (the pool was full, or no image\n"
           "could hold it), or written over the oldest image in use (ring mode); released images, and the\n"
           "most images in use at once. MiB/s: bytes copied into the pool over wall time; copy MiB/s: the same\n"
           "bytes over the time spent inside PushImg. live fps counts pushes into free images only.\n";
    return ok;
}

}  // namespace grabsys
