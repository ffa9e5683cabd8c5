// Faults on disk: a full device, a disk that fills up in the middle of a
// file, a read-only folder, a parent that is a file, and files cut short in
// their headers. Every writer answers with false (or the result its
// contract promises even then), leaves no half-written file behind, and the
// process goes on writing where it can.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>
#endif

#include "../arm/arm_test_support.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/debug_package/debug_img_package.h"
#include "grabsystem/debug_package/debug_package.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using DrasselSpace::FileToolP;
using DrasselSpace::ImageIOToolP;
using grabsys_test::FrameBytes;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::WriteAll;
namespace fs = std::filesystem;

namespace {

// What a writer answers when its file cannot be written. Saves whose
// contract ignores write results still report true once the file opened.
enum class Answer { False, TrueOnceOpened, AlwaysTrue };

struct Writer {
    std::string name;
    Answer answer;
    std::function<bool(const std::string&)> write;  // library-style path
};

// Every writer produces well over 4 KB, the size the "disk full" test allows.
constexpr uint32_t kSide = 128;

std::vector<Writer> Writers() {
    auto pixels = std::make_shared<std::vector<unsigned char>>(FrameBytes(kSide, kSide, 1));
    return {
        {"file tool", Answer::False,
         [pixels](const std::string& p) { return FileToolP::SaveDataToFile(p, pixels->data(), pixels->size()); }},
        {"BMP", Answer::False,
         [pixels](const std::string& p) {
             return ImageIOToolP::SaveBMP(p.c_str(), pixels->data(), kSide, kSide, DrasselSpace::ePixelFormatGray8);
         }},
        {"raw image", Answer::AlwaysTrue,
         [pixels](const std::string& p) {
             CImg8P img;
             img.SetSize(kSide, kSide, 1, false);
             std::memcpy(img.GetImg(), pixels->data(), pixels->size());
             return img.SaveFile(p.c_str(), VormexDataStructure::eImgFmtRaw);
         }},
        {"float raw", Answer::False,
         [](const std::string& p) {
             CImgFloatP img;
             img.SetSize(kSide, kSide, 1, false);
             return img.SaveToRaw(p);
         }},
        {"image package", Answer::TrueOnceOpened,
         [pixels](const std::string& p) {
             CDebugImgPackageP pkg;
             CDebugImgPackageInfoP run;
             run.Width = run.Height = kSide;
             run.FrameCount = 1;
             pkg.AddPackageInfo(run);
             pkg.CreatePackageBuffer();
             return pkg.AddData(0, pixels->data(), 0) && pkg.SaveDebugPackage(p);
         }},
        {"general package", Answer::TrueOnceOpened,
         [](const std::string& p) {
             // Noise, so that the LZ4 block stays as large as the frame.
             std::vector<unsigned char> noise(size_t{kSide} * kSide);
             std::mt19937 random(7);
             for (unsigned char& v : noise) v = static_cast<unsigned char>(random());
             std::vector<unsigned char> block(static_cast<size_t>(
                 DrasselSpace::CLZ4CompressorP::GetCompressBound(static_cast<int>(noise.size()))));
             block.resize(static_cast<size_t>(DrasselSpace::CLZ4CompressorP::CompressRaw(
                 noise.data(), static_cast<int>(noise.size()), block.data(), static_cast<int>(block.size()), 1)));
             CDebugPackageP pkg;
             pkg.InitialPackageBuffer();
             CDebugPackageInfoP run;
             run.Width = run.Height = kSide;
             run.FrameCount = 1;
             pkg.AddPackageInfo(run);
             pkg.AddData(0, block.data(), 0, static_cast<int>(block.size()));
             pkg.AllocateDebugImgBuffer();
             return pkg.SaveDebugPackage(p, false);
         }},
        {"arm view", Answer::TrueOnceOpened,
         [](const std::string& p) {
             grabsys_test::View view(kSide, kSide, 1, 1, 1, 3, 1, true);  // noise: stays large
             CArmImageOutputMemory block;
             COneViewArmImageData data(0);
             data.SetSinImages(view.sin, {eCam0}, 1, 1, 3);
             data.SetWhitePatternImage(view.white);
             data.SetOutputFileFullPath(p);
             block.AllocateMemory(data.GetMemoryRequired() + 4096);
             return data.SetAvaliableMemory(&block) && data.CompressMemoryData() && data.SaveToFile();
         }},
    };
}

bool Expected(Answer answer, bool opened) {
    return answer == Answer::AlwaysTrue || (answer == Answer::TrueOnceOpened && opened);
}

// Each writer once into `dir` (a library path ending in a separator): the
// file appears, so the process still writes after a fault.
void ExpectAllWriteInto(TempDir& dir, const std::string& libraryDir, const std::string& hostDir) {
    fs::create_directories(dir.File(hostDir));
    for (const Writer& w : Writers()) {
        EXPECT_TRUE(w.write(libraryDir + "ok")) << w.name;
        std::error_code ec;
        EXPECT_GT(fs::file_size(dir.File(hostDir + "/ok"), ec), 4096u) << w.name;
        fs::remove(dir.File(hostDir + "/ok"), ec);
    }
}

}  // namespace

// /dev/full, RLIMIT_FSIZE and switching the effective user are POSIX; a
// Windows build (under Wine or not) has nothing a test could use instead.
[[maybe_unused]] constexpr const char* kPosixOnly =
    "needs /dev/full, RLIMIT_FSIZE or seteuid, which Windows lacks; checked by the Linux build";

TEST(DiskFaults, FullDeviceGivesTheDocumentedAnswerAndStaysADevice) {
#ifdef _WIN32
    GTEST_SKIP() << kPosixOnly;
#else
    TempDir dir;
    for (const Writer& w : Writers()) {
        EXPECT_EQ(w.write("/dev/full"), Expected(w.answer, true)) << w.name;
        EXPECT_TRUE(fs::is_character_file("/dev/full")) << w.name << " must not remove the device";
    }
    ExpectAllWriteInto(dir, "D:\\after\\", "D/after");
#endif
}

// RLIMIT_FSIZE makes the kernel refuse writes past 4 KB, as a disk does
// when it fills up in the middle of a file.
TEST(DiskFaults, DiskFullingUpMidFileLeavesNoHalfFile) {
#ifdef _WIN32
    GTEST_SKIP() << kPosixOnly;
#else
    TempDir dir;
    fs::create_directories(dir.File("D/full"));
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto oldSignal = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = old;
    small.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    std::vector<std::pair<std::string, bool>> results;
    for (const Writer& w : Writers()) results.emplace_back(w.name, w.write("D:\\full\\" + w.name));
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, oldSignal);

    const auto writers = Writers();
    for (size_t i = 0; i < writers.size(); ++i) {
        EXPECT_EQ(results[i].second, Expected(writers[i].answer, true)) << results[i].first;
        const std::string left = dir.File("D/full/" + writers[i].name);
        if (writers[i].answer == Answer::AlwaysTrue) {
            // SaveFile appends the info block whatever the pixel step did:
            // the cut pixels are gone, the small block alone remains.
            std::error_code ec;
            EXPECT_LT(fs::file_size(left, ec), 4096u) << results[i].first;
            EXPECT_FALSE(CImg8P().LoadFile(left.c_str())) << results[i].first;
        } else {
            EXPECT_FALSE(fs::exists(left)) << results[i].first << " left a half file";
        }
    }
    ExpectAllWriteInto(dir, "D:\\full\\", "D/full");
#endif
}

// Root ignores folder permissions, so as root the test drops to "nobody"
// while it writes.
TEST(DiskFaults, ReadOnlyFolderRefusesAndStaysEmpty) {
#ifdef _WIN32
    GTEST_SKIP() << kPosixOnly;
#else
    TempDir dir;
    fs::create_directories(dir.File("D/ro"));
    fs::permissions(dir.File("D/ro"), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                           fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
    const uid_t uid = geteuid();
    if (uid == 0 && seteuid(65534) != 0) GTEST_SKIP() << "running as root and cannot drop to another user";
    std::vector<std::pair<std::string, bool>> results;
    for (const Writer& w : Writers()) results.emplace_back(w.name, w.write("D:\\ro\\" + w.name));
    const bool folderMade = FileToolP::CreateDirectoryRecursively("D:\\ro\\sub");
    if (uid == 0) {
        ASSERT_EQ(seteuid(0), 0);
    }

    const auto writers = Writers();
    for (size_t i = 0; i < writers.size(); ++i)
        EXPECT_EQ(results[i].second, Expected(writers[i].answer, false)) << results[i].first;
    EXPECT_FALSE(folderMade);
    EXPECT_TRUE(fs::is_empty(dir.File("D/ro")));
    fs::permissions(dir.File("D/ro"), fs::perms::owner_all);
    ExpectAllWriteInto(dir, "D:\\ro\\", "D/ro");
#endif
}


TEST(DiskFaults, ParentThatIsAFileRefusesAndKeepsTheFile) {
    TempDir dir;
    fs::create_directories(dir.File("D"));
    const std::vector<unsigned char> plain{1, 2, 3};
    WriteAll(dir.File("D/plain"), plain);
    for (const Writer& w : Writers())
        EXPECT_EQ(w.write("D:\\plain\\" + w.name), Expected(w.answer, false)) << w.name;
    EXPECT_FALSE(FileToolP::CreateDirectoryRecursively("D:\\plain\\sub"));
    EXPECT_EQ(ReadAll(dir.File("D/plain")), plain);
    ExpectAllWriteInto(dir, "D:\\", "D");
}

// Each file kind, cut at every offset up to the end of its header (and a
// little into the data behind it): the loader refuses every cut.
TEST(DiskFaults, FilesCutInsideTheirHeaderLoadAsTheirFormatSays) {
    TempDir dir;
    FileToolP::CreateDirectoryRecursively("D:\\cut");
    struct Kind {
        std::string writer;
        size_t header;  // bytes every loadable file holds at least
        std::function<bool(const std::string&)> load;
        std::function<bool(size_t)> loadsWhenCutAt;  // what the format defines for a cut file
    };
    const auto never = [](size_t) { return false; };
    const std::vector<Kind> kinds = {
        {"raw image", 2 + 31 + 64, [](const std::string& p) { return CImg8P().LoadFile(p.c_str()); }, never},
        {"BMP", 54 + 1024 + 64,
         [](const std::string& p) {
             unsigned char* px = nullptr;
             unsigned w = 0, h = 0;
             DrasselSpace::ePixelFormatP f{};
             const bool ok = ImageIOToolP::LoadBMP(p.c_str(), px, w, h, f);
             delete[] px;
             return ok;
         },
         never},
        // Neither version nor size is checked: what the file lacks reads as zeros.
        {"float raw", 32 + 64, [](const std::string& p) { return CImgFloatP().LoadFromRaw(p); },
         [](size_t) { return true; }},
        // A record count is all it takes; missing records and data read as zeros.
        {"image package", 12 + 20 + 64, [](const std::string& p) { return CDebugImgPackageP().LoadDebugPackage(p); },
         [](size_t n) { return n >= 8; }},
        {"general package", 12 + 24 + 64,
         [](const std::string& p) { return CDebugPackageP().LoadDebugPackage(p); }, [](size_t n) { return n >= 12; }},
    };
    const auto writers = Writers();
    for (const Kind& kind : kinds) {
        for (const Writer& w : writers) {
            if (w.name == kind.writer) {
                ASSERT_TRUE(w.write("D:\\cut\\good")) << w.name;
            }
        }
        const auto good = ReadAll(dir.File("D/cut/good"));
        ASSERT_GT(good.size(), kind.header) << kind.writer;
        ASSERT_TRUE(kind.load("D:\\cut\\good")) << kind.writer;
        for (size_t n = 0; n < kind.header; ++n) {
            WriteAll(dir.File("D/cut/short"), std::vector<unsigned char>(good.begin(), good.begin() + static_cast<long>(n)));
            EXPECT_EQ(kind.load("D:\\cut\\short"), kind.loadsWhenCutAt(n)) << kind.writer << " cut at " << n;
        }
    }
}
