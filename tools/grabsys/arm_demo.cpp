#include "arm_demo.h"

#include <chrono>
#include <cstring>
#include <iomanip>
#include <memory>
#include <vector>

#include "fringe.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using Clock = std::chrono::steady_clock;
using namespace GrabSystem;

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// M_PI is not standard C++ and mingw hides it.
constexpr double kPi = 3.14159265358979323846;

std::unique_ptr<CImg8P> FringeFrame(uint32_t w, uint32_t h, double period, double phase, uint32_t seed) {
    auto img = std::make_unique<CImg8P>();
    img->SetSize(w, h, 1, false);
    grabsys_test::FillFringe(img->GetImg(), w, h, period, phase, seed);
    return img;
}

struct Capture {
    std::vector<std::unique_ptr<CImg8P>> sin, white;
};

Capture CaptureView(const ArmDemoOptions& o, uint32_t view) {
    Capture c;
    const int perCamera = o.sinDimA * o.sinDimB * o.sinDimC;
    for (uint32_t cam = 0; cam < o.cameras; ++cam) {
        for (int i = 0; i < perCamera; ++i) {
            const int group = i / o.sinDimC, step = i % o.sinDimC;
            const double period = 16.0 * (1 + group);  // each group a coarser pattern
            c.sin.push_back(FringeFrame(o.width, o.height, period, 2 * kPi * step / o.sinDimC, view * 977 + cam * 131 + i));
        }
    }
    for (uint32_t cam = 0; cam < o.cameras; ++cam)
        c.white.push_back(FringeFrame(o.width, o.height, grabsys_test::kWhitePeriod, 0, view * 7 + cam));
    return c;
}

bool SameAsBmp(GrabSystem::platform::Env* env, const CImg8P& captured, const std::string& path) {
    CImg8P back;
    back.SetEnv(env);
    return back.LoadFile(path.c_str()) && back.GetWidth() == captured.GetWidth() &&
           back.GetHeight() == captured.GetHeight() &&
           std::memcmp(back.GetData(), const_cast<CImg8P&>(captured).GetData(), size_t{captured.GetWidth()} * captured.GetHeight()) == 0;
}

}  // namespace

bool RunArmDemo(const ArmDemoOptions& o, GrabSystem::platform::Env* env, std::ostream& out,
                std::vector<StageSummary>& summary) {
    const std::string armDir = o.outputDir + "\\armraw\\";
    const std::string bmpDir = o.outputDir + "\\armbmp\\";
    DrasselSpace::FileToolP::CreateDirectoryRecursively(armDir, env);
    const int perCamera = o.sinDimA * o.sinDimB * o.sinDimC;
    const uint64_t frameBytes = uint64_t{o.width} * o.height;

    out << "Arm images: " << o.views << " views, " << o.cameras << " cameras, " << perCamera
        << " Sin frames per camera (" << o.sinDimA << " x " << o.sinDimB << " x " << o.sinDimC << ") and one white frame, "
        << o.width << " x " << o.height << ", " << o.threads << " thread" << (o.threads == 1 ? "" : "s") << "\n";

    // Capture and hand every view to the output manager.
    std::vector<Capture> captures;
    uint64_t rawBytes = 0, fileBytes = 0;
    double compressSeconds = 0;
    CArmImageOutputMng mng;
    mng.SetCompressThreads(o.threads);
    for (uint32_t view = 0; view < o.views; ++view) {
        captures.push_back(CaptureView(o, view));
        Capture& c = captures.back();
        auto* data = new COneViewArmImageData(static_cast<int>(view));
        data->SetEnv(env);
        std::vector<IImgP*> sin, white;
        for (auto& img : c.sin) sin.push_back(img.get());
        for (auto& img : c.white) white.push_back(img.get());
        std::vector<eCamIdx> cams;
        for (uint32_t cam = 0; cam < o.cameras; ++cam) cams.push_back(static_cast<eCamIdx>(cam));
        data->SetSinImages(sin, cams, o.sinDimA, o.sinDimB, o.sinDimC);
        data->SetWhitePatternImage(white);
        data->SetOutputFileFullPath(armDir + std::to_string(view) + ".armraw");
        const auto t0 = Clock::now();
        const eAddOneViewImageRlt result = mng.AddOneViewImages(data);
        compressSeconds += Seconds(t0);
        if (result != eAddRltOk) {
            out << "  view " << view << " could not be written (result " << result << ")\n";
            delete data;
            return false;
        }
        rawBytes += frameBytes * (sin.size() + white.size());
        unsigned char* file = nullptr;
        unsigned long long size = 0;
        if (DrasselSpace::FileToolP::LoadDataFromFile(armDir + std::to_string(view) + ".armraw", file, size, env))
            fileBytes += size;
        delete[] file;
    }

    // Extract them back through the library's own listing.
    ArmImageExtractor extractor;
    extractor.SetEnv(env);
    extractor.SetExtractThreads(o.threads);
    OutputOneViewArmImageParm parm;
    extractor.ParseArmRawFile(armDir, parm.views[0]);
    parm.inputDirs[0] = armDir;
    parm.outputDir = bmpDir;
    parm.mode = 1;
    std::vector<int> failed[1];
    const auto t1 = Clock::now();
    extractor.OutputOneViewArmImages(parm, failed, 1);
    const double extractSeconds = Seconds(t1);

    // Every frame, where the tree puts it: Sin groups in CamNP / CamNQ with
    // P folders numbered from 4, white frames as imgW in CamNP.
    uint64_t verified = 0, wrong = 0;
    for (uint32_t view = 0; view < o.views; ++view) {
        const Capture& c = captures[view];
        for (uint32_t cam = 0; cam < o.cameras; ++cam) {
            for (int i = 0; i < perCamera; ++i) {
                const int group = i / o.sinDimC, k = i % o.sinDimC;
                const bool p = group % o.sinDimB == 0;
                const int number = p ? (k < 12 ? (k + 4) % 12 : 0) : k;
                const std::string path = bmpDir + "Cam" + std::to_string(cam) + (p ? "P" : "Q") + "\\" +
                                         std::to_string(view) + "\\img" + std::to_string(number) + ".bmp";
                SameAsBmp(env, *c.sin[cam * perCamera + i], path) ? ++verified : ++wrong;
            }
            const std::string white = bmpDir + "Cam" + std::to_string(cam) + "P\\" + std::to_string(view) + "\\imgW.bmp";
            SameAsBmp(env, *c.white[cam], white) ? ++verified : ++wrong;
        }
    }

    StageSummary compress{"arm compress + write", verified + wrong, rawBytes, fileBytes, compressSeconds,
                          NativePath(armDir)};
    StageSummary extract{"arm extract to BMP", verified + wrong, rawBytes, 0, extractSeconds, NativePath(bmpDir)};
    summary.push_back(compress);
    summary.push_back(extract);
    const double mib = InMiB(rawBytes);
    out << std::fixed << std::setprecision(1);
    out << "  compress and write: " << mib << " MiB of frames -> " << InMiB(fileBytes) << " MiB in " << o.views
        << " .armraw files (ratio " << std::setprecision(2) << static_cast<double>(rawBytes) / static_cast<double>(fileBytes)
        << std::setprecision(1) << ":1), " << mib / compressSeconds << " MiB/s\n";
    const GrabSystem::OutputCounters written = mng.GetCounters();
    const GrabSystem::ExtractCounters extracted = extractor.GetCounters();
    out << "  output manager: " << written.written << " views written, "
        << written.refusedNoMemory + written.refusedCompressFailed << " refused, " << written.saveFailed
        << " files failed, " << written.waits << " waits for a block (" << written.waitMsTotal << " ms, longest "
        << written.waitMsLongest << " ms)\n";
    out << "  extract to BMP:     " << mib / extractSeconds << " MiB/s, " << extracted.extracted[0] << " views extracted, "
        << extracted.failed[0] << " failed, " << extracted.filesFailed[0] << " with files not written\n";
    out << "  verified " << verified << " frames bit for bit, " << wrong << " differ\n";
    out << "  files: " << NativePath(armDir) << " and " << NativePath(bmpDir) << "\n";
    out.unsetf(std::ios::fixed);
    return wrong == 0 && extracted.failed[0] == 0 && extracted.filesFailed[0] == 0 && written.saveFailed == 0;
}

}  // namespace grabsys
