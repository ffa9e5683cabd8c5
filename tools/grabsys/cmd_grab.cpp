// grabsys grab and grabsys cameras: a camera through the camera layer into
// an image pool, and a consumer that writes what it takes; and the list of
// cameras. Also the demo's camera stage, which is a grab that checks pixels.
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "commands.h"
#include "grab_demo.h"
#include "grabsystem/grabsystem.h"

namespace grabsys {

namespace {

using Clock = std::chrono::steady_clock;
using GrabSystem::Status;
using namespace GrabSystem::camera;
namespace platform = GrabSystem::platform;

enum class Sink { kNone, kArmraw, kRaw, kBmp };

struct GrabOptions {
    CameraSpec which;
    bool simulated = false;
    std::string address, id;
    CameraSettings settings;
    std::string pixelFormat = "Mono8";
    StreamOptions stream;
    std::string frameAttr = "frame-id";
    uint32_t frames = 100;
    double seconds = 0;
    uint32_t poolImages = 32;
    std::string outDir;
    std::string write = "armraw";
    uint32_t cameras = 1;
    std::vector<int> sinDims{1, 2, 12};
    int white = -1;  // -1: one per camera
    int compressThreads = 1;
    bool verify = false;
    bool json = false;
};

std::string Quote(const std::string& s) {
    std::string q = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') q += '\\';
        if (static_cast<unsigned char>(c) >= 0x20) q += c;
    }
    return q + "\"";
}

// One line on stderr, redrawn while the grab runs: rate, throughput and
// losses. Only on a terminal, and not with --quiet.
class LiveLine {
public:
    explicit LiveLine(const Output& output) : m_enabled(!output.quiet && platform::IsTerminal(stderr)) {}
    ~LiveLine() { Finish(); }
    void Draw(uint64_t taken, double seconds, const CameraCounters& c) {
        const auto now = Clock::now();
        if (!m_enabled || now - m_last < std::chrono::milliseconds(250)) return;
        m_last = now;
        m_drawn = true;
        std::fprintf(stderr, "\rgrab: %llu frames  %.1f fps  %.1f MiB/s  lost %llu (refused %llu, overwritten %llu, incomplete %llu, missed %llu)  ",
                     static_cast<unsigned long long>(taken), seconds > 0 ? taken / seconds : 0.0,
                     seconds > 0 ? InMiB(c.bytesPushed) / seconds : 0.0,
                     static_cast<unsigned long long>(c.refusedNoFreeNode + c.refusedTooLarge + c.overwritten + c.incomplete + c.missed),
                     static_cast<unsigned long long>(c.refusedNoFreeNode + c.refusedTooLarge),
                     static_cast<unsigned long long>(c.overwritten), static_cast<unsigned long long>(c.incomplete),
                     static_cast<unsigned long long>(c.missed));
        std::fflush(stderr);
    }
    void Finish() {
        if (m_drawn) std::fputc('\n', stderr);
        m_drawn = false;
    }

private:
    bool m_enabled;
    bool m_drawn = false;
    Clock::time_point m_last{};
};

// The frames of arm views, filled from consecutive camera frames: the Sin
// frames of camera 0 in file order (A, then B, then C innermost), those of
// camera 1, ..., then the white frames. A frame missing in the middle
// drops the view begun, which is counted; the next view starts afresh.
class ViewWriter {
public:
    ViewWriter(const GrabOptions& o, uint32_t width, uint32_t height, platform::Env* env)
        : m_o(o),
          m_env(env),
          m_sinPerView(o.cameras * o.sinDims[0] * o.sinDims[1] * o.sinDims[2]),
          m_whitePerView(o.white < 0 ? o.cameras : static_cast<uint32_t>(o.white)) {
        const size_t bytes = size_t{width} * height;
        for (uint32_t i = 0; i < m_sinPerView + m_whitePerView; ++i) {
            m_pixels.emplace_back(bytes);
            m_images.push_back(std::make_unique<GrabSystem::CImg8P>());
            GrabSystem::CImg8P& img = *m_images.back();
            img.SetMemMode(VormexDataStructure::eMemModeFixed);
            img.SetMemSource(GrabSystem::eMemSrcAssign, m_pixels.back().data(), bytes);
            img.SetSize(width, height, 1, false);
        }
        m_mng.SetCompressThreads(o.compressThreads);
    }
    uint32_t FramesPerView() const { return m_sinPerView + m_whitePerView; }

    // Takes the next frame; `follows`: it is the frame after the one before.
    void Add(const GrabSystem::IImgP& img, bool follows) {
        if (m_filled != 0 && !follows) {
            ++m_dropped;
            m_discarded += m_filled;
            m_filled = 0;
        }
        std::memcpy(m_pixels[m_filled].data(), const_cast<GrabSystem::IImgP&>(img).GetData(), m_pixels[m_filled].size());
        m_images[m_filled]->GetInfo().frameAttr = const_cast<GrabSystem::IImgP&>(img).GetInfo().frameAttr;
        if (++m_filled == FramesPerView()) Write();
    }
    uint64_t Views() const { return m_views; }
    uint64_t Dropped() const { return m_dropped; }
    uint64_t Discarded() const { return m_discarded; }
    uint64_t LeftOver() const { return m_filled; }

private:
    void Write() {
        m_filled = 0;
        std::vector<GrabSystem::IImgP*> sin, white;
        for (uint32_t i = 0; i < m_sinPerView; ++i) sin.push_back(m_images[i].get());
        for (uint32_t i = 0; i < m_whitePerView; ++i) white.push_back(m_images[m_sinPerView + i].get());
        std::vector<GrabSystem::eCamIdx> cams;
        for (uint32_t c = 0; c < m_o.cameras; ++c) cams.push_back(static_cast<GrabSystem::eCamIdx>(c));
        auto view = std::make_unique<GrabSystem::COneViewArmImageData>(static_cast<int>(m_views));
        view->SetSinImages(sin, cams, m_o.sinDims[0], m_o.sinDims[1], m_o.sinDims[2]);
        view->SetWhitePatternImage(white);
        view->SetEnv(m_env);
        view->SetOutputFileFullPath(m_o.outDir + "\\" + std::to_string(m_views) + ".armraw");
        const GrabSystem::eAddOneViewImageRlt result = m_mng.AddOneViewImages(view.get());
        if (result == GrabSystem::eAddRltOk) {
            view.release();  // the manager's now, and destroyed by it
            ++m_views;
        } else {
            ++m_dropped;
            m_discarded += FramesPerView();
        }
    }

    const GrabOptions& m_o;
    platform::Env* m_env;
    uint32_t m_sinPerView, m_whitePerView;
    std::vector<std::vector<uint8_t>> m_pixels;
    std::vector<std::unique_ptr<GrabSystem::CImg8P>> m_images;
    GrabSystem::CArmImageOutputMng m_mng;
    uint32_t m_filled = 0;
    uint64_t m_views = 0, m_dropped = 0, m_discarded = 0;
};

struct GrabResult {
    CameraDescription camera;
    CameraCounters counters;
    uint64_t taken = 0, verified = 0, wrongFrames = 0;
    uint64_t filesWritten = 0, viewsDropped = 0, framesDiscarded = 0, framesLeftOver = 0;
    double seconds = 0;
    Status error;  // the first failure: camera, files, or pixels
};

// The id the camera gives the frame after `id`.
uint64_t NextId(uint64_t id, bool shortIds) { return shortIds && id >= 65535 ? 1 : id + 1; }

// Every file goes through `files`, and the grab stops at the first that
// does not come out whole.
GrabResult Grab(const GrabOptions& o, const Output& output, platform::TrackingEnv& files) {
    GrabResult r;
    std::unique_ptr<Camera> camera;
    r.error = Camera::Open(o.which, camera);
    if (r.error.ok()) r.error = camera->Configure(o.settings);
    if (r.error.ok()) r.error = camera->Describe(r.camera);
    if (!r.error.ok()) return r;
    const unsigned bits = o.settings.pixelFormat == PixelFormat::kMono16 ? 16 : 8;
    const uint32_t width = r.camera.width, height = r.camera.height;
    const Sink sink = o.outDir.empty() ? Sink::kNone : o.write == "raw" ? Sink::kRaw : o.write == "bmp" ? Sink::kBmp : Sink::kArmraw;
    if (bits == 16 && (sink == Sink::kArmraw || sink == Sink::kBmp)) {
        r.error = Status::InvalidArgument(camera->Name(), "Mono16 frames are written as raw files only (--write raw)");
        return r;
    }
    const bool shortIds = r.camera.protocol == "GigEVision" || r.camera.protocol == "Fake";
    const bool counter = o.stream.frameAttr == StreamOptions::FrameAttr::kCounter;

    const size_t frameBytes = size_t{width} * height * (bits / 8);
    std::vector<uint8_t> region(frameBytes * o.poolImages);
    GrabSystem::CImgPoolCtrlP pool(0, nullptr, GrabSystem::ePoolNormal, static_cast<unsigned char>(bits));
    GrabSystem::CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(frameBytes);
    pool.SetImgDefaultConfig(GrabSystem::eCam0, VormexDataStructure::eMemModeFixed,
                             VormexDataStructure::ImgSize(width, height, 1, static_cast<uint8_t>(bits)), VormexDataStructure::ImgRes());
    pool.Add(o.poolImages);

    std::unique_ptr<ViewWriter> views;
    if (sink == Sink::kArmraw) views = std::make_unique<ViewWriter>(o, width, height, &files);
    LiveLine live(output);
    r.error = camera->Start(pool, o.stream);
    const auto start = Clock::now();
    auto lastFrame = start;
    // A camera that answers but sends nothing is given this long.
    const auto patience = std::chrono::milliseconds(std::max<uint32_t>(5000, 5 * o.stream.frameTimeoutMs));
    uint64_t serial = 0, previousAttr = 0;
    while (r.error.ok() && r.taken < o.frames) {
        const auto now = Clock::now();
        r.seconds = std::chrono::duration<double>(now - start).count();
        if (o.seconds > 0 && r.seconds >= o.seconds) break;
        GrabSystem::IImgP* img = serial < pool.GetNextSerialNum() ? pool.GetImg(serial) : nullptr;
        if (img == nullptr) {
            if (!camera->Streaming()) break;
            if (now - lastFrame > patience) {
                r.error = Status::TimedOut(camera->Name(), "no frame reached the pool for " +
                                                               std::to_string(std::chrono::duration_cast<std::chrono::seconds>(patience).count()) +
                                                               " s, though it answers (is it waiting for a trigger?)");
                break;
            }
            live.Draw(r.taken, r.seconds, camera->Counters());
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            continue;
        }
        lastFrame = now;
        img->SetToUsing();
        const unsigned attr = img->GetInfo().frameAttr;
        const bool follows = r.taken == 0 || attr == (counter ? previousAttr + 1 : NextId(previousAttr, shortIds));
        previousAttr = attr;
        if (o.verify) {
            const PatternCheck check = CheckSimulatedPattern(img->GetData(), width, height, bits, attr);
            check.wrong == 0 ? ++r.verified : ++r.wrongFrames;
            if (check.wrong != 0 && r.error.ok())
                r.error = Status::Corruption(camera->Name(), "frame " + std::to_string(attr) + " differs from the simulated picture in " +
                                                                 std::to_string(check.wrong) + " pixels, first at (" + std::to_string(check.firstX) +
                                                                 ", " + std::to_string(check.firstY) + ")");
        }
        if (sink == Sink::kArmraw) {
            views->Add(*img, follows);
        } else if (sink != Sink::kNone) {
            const std::string path = o.outDir + "\\frame" + std::to_string(r.taken) + (sink == Sink::kRaw ? ".raw" : ".bmp");
            img->SetEnv(&files);
            img->SaveFile(path.c_str(), sink == Sink::kRaw ? VormexDataStructure::eImgFmtRaw : VormexDataStructure::eImgFmtBmp);
        }
        img->ReleaseUsingStatus();
        ++serial;
        ++r.taken;
        if (r.error.ok()) r.error = files.status();
        live.Draw(r.taken, r.seconds, camera->Counters());
    }
    r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const Status stopped = camera->Stop();
    live.Finish();
    if (r.error.ok()) r.error = stopped;
    r.counters = camera->Counters();
    r.filesWritten = files.FilesWritten();
    if (views) {
        r.viewsDropped = views->Dropped();
        r.framesDiscarded = views->Discarded();
        r.framesLeftOver = views->LeftOver();
    }
    if (r.error.ok()) r.error = files.status();
    pool.DeleteAll();
    pool.DischargeMemoryBlock();
    return r;
}

void PrintTable(const GrabOptions& o, const GrabResult& r, std::ostream& out) {
    const CameraCounters& c = r.counters;
    const CameraDescription& d = r.camera;
    out << "camera: " << d.vendor << " " << d.model << ", serial " << d.serial << (d.address.empty() ? "" : ", at " + d.address)
        << "; " << d.width << " x " << d.height << " " << d.pixelFormat << " at " << d.x << "," << d.y;
    if (d.frameRate > 0) out << ", " << d.frameRate << " fps";
    if (d.packetSize > 0) out << ", packets of " << d.packetSize << " bytes";
    out << "\n";
    out << std::fixed << std::setprecision(1) << "taken by the consumer: " << r.taken << " frames in " << r.seconds << " s ("
        << (r.seconds > 0 ? r.taken / r.seconds : 0.0) << " fps, " << (r.seconds > 0 ? InMiB(c.bytesPushed) / r.seconds : 0.0)
        << " MiB/s into the pool)\n\n";
    out.unsetf(std::ios::fixed);
    const std::pair<const char*, uint64_t> rows[] = {
        {"frames the camera sent", c.sent},
        {"  pushed into the pool", c.pushed},
        {"  refused: no free image", c.refusedNoFreeNode},
        {"  refused: too large", c.refusedTooLarge},
        {"  overwritten", c.overwritten},
        {"  incomplete (never pushed)", c.incomplete},
        {"  missed (ids skipped)", c.missed},
        {"stream underruns", c.underruns},
        {"timeouts", c.timeouts},
        {"left in the pool at the stop", c.pushed - std::min(c.pushed, r.taken)},
    };
    for (const auto& [label, value] : rows) out << std::left << std::setw(32) << label << std::right << std::setw(10) << value << "\n";
    if (o.write == "armraw" && !o.outDir.empty())
        out << "views written: " << r.filesWritten << " .armraw files in " << NativePath(o.outDir) << "; dropped for a missing frame: " << r.viewsDropped << " (" << r.framesDiscarded << " frames), frames after the last whole view: "
            << r.framesLeftOver << "\n";
    else if (!o.outDir.empty())
        out << "files written: " << r.filesWritten << " in " << NativePath(o.outDir) << "\n";
    if (o.verify) out << "verified: " << r.verified << " frames pixel for pixel, " << r.wrongFrames << " differ\n";
}

void PrintJson(const GrabOptions& o, const GrabResult& r, const std::string& name) {
    const CameraCounters& c = r.counters;
    const CameraDescription& d = r.camera;
    std::cout << "{\"camera\": " << Quote(name) << ", \"vendor\": " << Quote(d.vendor) << ", \"model\": " << Quote(d.model)
              << ", \"serial\": " << Quote(d.serial) << ", \"protocol\": " << Quote(d.protocol) << ", \"width\": " << d.width
              << ", \"height\": " << d.height << ", \"pixel_format\": " << Quote(d.pixelFormat) << ", \"taken\": " << r.taken
              << ", \"seconds\": " << r.seconds << ", \"counters\": {";
    for (const auto& field : GrabSystem::camera::kCameraCounterFields)
        std::cout << (&field == GrabSystem::camera::kCameraCounterFields ? "" : ", ") << Quote(field.key) << ": " << c.*field.member;
    std::cout << "}, \"balanced\": " << (c.Balanced() ? "true" : "false");
    if (!o.outDir.empty())
        std::cout << ", \"output\": " << Quote(NativePath(o.outDir)) << ", \"files_written\": " << r.filesWritten
                  << ", \"views_dropped\": " << r.viewsDropped << ", \"frames_discarded\": " << r.framesDiscarded;
    if (o.verify) std::cout << ", \"verified\": " << r.verified << ", \"wrong_frames\": " << r.wrongFrames;
    std::cout << ", \"error\": " << (r.error.ok() ? "null" : Quote(r.error.ToString())) << "}\n";
}

// Checks what CLI11 cannot, and fills in which camera to open and how to set it.
Status Prepare(GrabOptions& o) {
    if (!o.address.empty()) {
        o.which = CameraSpec::Address(o.address);
    } else if (!o.id.empty()) {
        o.which = CameraSpec::DeviceId(o.id, o.which.discover);
    } else if (o.simulated) {
        o.which.source = CameraSpec::Source::kSimulated;
    } else {
        return Status::InvalidArgument("", "choose a camera: --simulated, --address IP or --id ID");
    }
    Status s = ParsePixelFormat(o.pixelFormat, o.settings.pixelFormat);
    if (!s.ok()) return s;
    o.stream.frameAttr = o.frameAttr == "counter" ? StreamOptions::FrameAttr::kCounter : StreamOptions::FrameAttr::kFrameId;
    if (o.verify && (!o.simulated || o.stream.frameAttr != StreamOptions::FrameAttr::kFrameId))
        return Status::InvalidArgument("", "--verify checks the simulated camera's picture by frame id: --simulated, without --frame-attr counter");
    return Status::OK();
}

int RunGrab(GrabOptions o, const Output& output) {
    Status s = Prepare(o);
    if (!s.ok()) return Fail(s.ToString());
    CommandFiles files(output);
    // Before the camera starts: a folder that cannot be made is a mistake
    // best told at once.
    if (!o.outDir.empty() && !files.CreateDirectories(o.outDir).ok()) return ReportFiles(files);
    const GrabResult r = Grab(o, output, files);
    if (r.camera.width == 0) return Fail(r.error.ToString());  // it never streamed
    if (o.json) {
        PrintJson(o, r, o.which.source == CameraSpec::Source::kSimulated ? "simulated camera " + o.which.name : o.which.name);
    } else {
        PrintTable(o, r, std::cout);
    }
    // A failed file is said by the file account, with every other one.
    if (!files.ok()) return ReportFiles(files);
    return r.error.ok() ? 0 : Fail(r.error.ToString());
}

int RunCameras(bool discover, const std::string& address, const std::string& simulated, bool json) {
    std::vector<CameraDescription> found;
    if (!address.empty() || !simulated.empty()) {
        std::unique_ptr<Camera> camera;
        Status s = Camera::Open(address.empty() ? CameraSpec::Simulated(simulated) : CameraSpec::Address(address), camera);
        CameraDescription d;
        if (s.ok()) s = camera->Describe(d);
        if (!s.ok()) return Fail(s.ToString());
        found.push_back(d);
    } else {
        const Status s = ListCameras(discover, found);
        if (!s.ok()) return Fail(s.ToString());
    }
    if (json) {
        std::cout << "[";
        for (size_t i = 0; i < found.size(); ++i) {
            const CameraDescription& d = found[i];
            std::cout << (i ? ", " : "") << "{\"id\": " << Quote(d.id) << ", \"vendor\": " << Quote(d.vendor) << ", \"model\": "
                      << Quote(d.model) << ", \"serial\": " << Quote(d.serial) << ", \"protocol\": " << Quote(d.protocol)
                      << ", \"address\": " << Quote(d.address) << "}";
        }
        std::cout << "]\n";
        return 0;
    }
    if (found.empty()) {
        std::cout << "no cameras found among USB3 Vision cameras" << (discover ? " and by GigE Vision discovery" : "")
                  << (discover ? "" : " (GigE Vision cameras: --discover, which broadcasts, or --address IP)") << "\n";
        return 0;
    }
    for (const CameraDescription& d : found) {
        std::cout << d.id << ": " << d.vendor << " " << d.model << ", serial " << d.serial << ", " << d.protocol
                  << (d.address.empty() ? "" : ", at " + d.address);
        if (d.width != 0)
            std::cout << "; sensor " << d.sensorWidth << " x " << d.sensorHeight << ", region " << d.width << " x " << d.height
                      << " at " << d.x << "," << d.y << ", " << d.pixelFormat << ", " << d.frameRate << " fps";
        std::cout << "\n";
    }
    return 0;
}

}  // namespace

bool RunCameraDemo(const CameraDemoOptions& d, std::ostream& out, std::vector<StageSummary>& summary) {
    if (!CameraSupport()) {
        out << "Camera stage: skipped (this build has no camera support)\n";
        return true;
    }
    GrabOptions o;
    o.simulated = true;
    o.which = CameraSpec::Simulated();
    o.settings.width = d.width;
    o.settings.height = d.height;
    o.settings.frameRate = 1000;
    o.frames = d.frames;
    o.poolImages = 8;
    o.verify = true;
    Output quiet;
    quiet.quiet = true;
    platform::TrackingEnv files(platform::Env::Default());
    const GrabResult r = Grab(o, quiet, files);
    out << "Camera: " << d.frames << " frames of " << d.width << " x " << d.height
        << " Mono8 from Aravis's simulated camera through the camera layer into an image pool, every pixel checked\n";
    if (!r.error.ok()) {
        out << "  " << r.error.ToString() << "\n";
        return false;
    }
    const CameraCounters& c = r.counters;
    out << "  sent " << c.sent << ": pushed " << c.pushed << ", refused " << c.refusedNoFreeNode + c.refusedTooLarge
        << ", incomplete " << c.incomplete << ", missed " << c.missed << "; taken " << r.taken << ", verified " << r.verified
        << ", " << r.wrongFrames << " differ\n";
    summary.push_back({"camera grab (simulated)", r.taken, c.bytesPushed, 0, r.seconds, "-"});
    return c.Balanced() && r.verified == r.taken && r.taken == d.frames;
}

void RegisterGrab(CLI::App& app, const Output& output, Runner& run) {
    auto o = std::make_shared<GrabOptions>();
    CLI::App* grab = app.add_subcommand("grab", "Grab from a camera into an image pool; write arm views, raw or BMP frames");
    auto* source = grab->add_option_group("camera", "Which camera (one of)");
    source->add_flag("--simulated", o->simulated, "Aravis's in-process simulated camera");
    source->add_option("--address", o->address, "A GigE Vision camera at this IPv4 address (connected directly, no broadcast)");
    source->add_option("--id", o->id, "An Aravis device id (USB3 Vision; GigE Vision with --discover)");
    source->require_option(1);
    grab->add_flag("--discover", o->which.discover, "With --id: also look for GigE Vision cameras by a discovery broadcast");
    grab->add_option("--frames", o->frames, "Frames the consumer takes")->check(CLI::Range(1u, 100000000u))->capture_default_str();
    grab->add_option("--seconds", o->seconds, "Stop after this long (0: when the frames are taken)")->check(CLI::Range(0.0, 1e6));
    grab->add_option("--width", o->settings.width, "Region width (default: the camera's)");
    grab->add_option("--height", o->settings.height, "Region height (default: the camera's)");
    grab->add_option("--x", o->settings.x, "Region offset x");
    grab->add_option("--y", o->settings.y, "Region offset y");
    grab->add_option("--pixel-format", o->pixelFormat, "Mono8 (8-bit pool) or Mono16 (16-bit pool)")->capture_default_str();
    grab->add_option("--fps", o->settings.frameRate, "Camera frame rate (default: the camera's)")->check(CLI::Range(0.0, 1e6));
    grab->add_option("--packet-size", o->settings.packetSize, "GigE Vision stream packet size in bytes (jumbo frames: 8000 and more)");
    grab->add_option("--socket-buffer", o->settings.socketBuffer, "GigE Vision receive buffer in bytes (capped by net.core.rmem_max)")
        ->capture_default_str();
    grab->add_option("--buffers", o->stream.buffers, "Camera buffers in the stream")->check(CLI::Range(1u, 1024u))->capture_default_str();
    grab->add_option("--timeout-ms", o->stream.frameTimeoutMs, "Silence after which the camera is asked whether it still answers")
        ->check(CLI::Range(10u, 600000u))->capture_default_str();
    grab->add_option("--pool", o->poolImages, "Images in the pool")->check(CLI::Range(1u, 4096u))->capture_default_str();
    grab->add_option("--frame-attr", o->frameAttr, "What each frame carries: frame-id (the camera's) or counter")
        ->check(CLI::IsMember({"frame-id", "counter"}))->capture_default_str();
    grab->add_option("--first-counter", o->stream.firstCounter, "The counter of the first frame");
    grab->add_option("-o,--out", o->outDir, "Folder for the files (default: write nothing)");
    grab->add_option("--write", o->write, "armraw (views), raw or bmp (one file per frame)")
        ->check(CLI::IsMember({"armraw", "raw", "bmp"}))->capture_default_str();
    grab->add_option("--cameras", o->cameras, "Cameras per arm view")->check(CLI::Range(1u, 8u))->capture_default_str();
    grab->add_option("--sin", o->sinDims, "Sin dimensions A B C per camera")->expected(3)->check(CLI::Range(1, 1000))->capture_default_str();
    grab->add_option("--white", o->white, "White frames per view (default: one per camera)")->check(CLI::Range(0, 64));
    grab->add_option("--compress-threads", o->compressThreads, "Threads compressing each view")->check(CLI::Range(1, 64))->capture_default_str();
    grab->add_flag("--verify", o->verify, "Check every pixel against the simulated camera's picture");
    grab->add_flag("--json", o->json, "One JSON object, for scripts");
    grab->footer(
        "Consecutive frames fill arm views in file order: camera 0's A x B x C Sin frames, then camera 1's, ...,\n"
        "then the white frames; a frame missing inside a view drops that view (counted).\n\n"
        "Examples:\n"
        "  grabsys grab --simulated --width 1024 --height 768 --frames 520 --sin 1 2 12 --cameras 2 -o views\n"
        "  grabsys grab --address 192.168.1.20 --packet-size 8000 --fps 60 --frames 300 --write raw -o frames");
    RunWhenParsed(grab, run, [o, &output] { return RunGrab(*o, output); });

    auto discover = std::make_shared<bool>(false), json = std::make_shared<bool>(false);
    auto address = std::make_shared<std::string>(), simulated = std::make_shared<std::string>();
    CLI::App* cameras = app.add_subcommand("cameras", "List cameras (USB3 Vision; GigE Vision only with --discover), or describe one");
    cameras->add_flag("--discover", *discover, "Also find GigE Vision cameras by a discovery broadcast on every interface");
    cameras->add_option("--address", *address, "Describe the GigE Vision camera at this address (no broadcast)");
    cameras->add_option("--simulated", *simulated, "Describe the in-process simulated camera of this serial");
    cameras->add_flag("--json", *json, "One JSON array, for scripts");
    cameras->footer("Examples:\n  grabsys cameras\n  grabsys cameras --discover\n  grabsys cameras --address 192.168.1.20");
    RunWhenParsed(cameras, run, [=] { return RunCameras(*discover, *address, *simulated, *json); });
}

}  // namespace grabsys
