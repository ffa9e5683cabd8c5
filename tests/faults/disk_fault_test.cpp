// Faults on disk, injected through the Env so that the Linux and the Windows
// build meet the same ones: a write that fails or is cut short, a disk that
// fills up, a read-only folder, a parent that is a file, and /dev/full. Every
// writer answers as its contract says, leaves no half-written or temporary
// file behind, and the process goes on writing where it can.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "../arm/arm_test_support.h"
#include "grabsystem/platform/fault_env.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/arm/arm_image_output_mng.h"
#include "grabsystem/debug_package/debug_package_exporter.h"
#include "grabsystem/format/image_io_tool.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using DrasselSpace::FileToolP;
using grabsys_test::ReadAll;
using grabsys_test::WriteAll;
namespace fs = std::filesystem;

namespace {

// What a writer answers when its file cannot be written. Saves whose
// contract ignores write results still report true once the file opened;
// the extractor reports every view extracted once it could make its folders.
enum class Answer { False, TrueOnceOpened, AlwaysTrue };

// One file; one file with the information block appended behind it
// (IImgP::SaveFile); a tree of such files.
enum class Form { File, FileAndBlock, Tree };

struct Writer {
    std::string folder;  // D:\<folder>\ holds all it writes; names it in messages
    Answer answer;
    Form form;
    // Takes a library path inside the folder: the file, or the output folder
    // of a tree (the exporter's is fixed: D:\ImgTest\...).
    std::function<bool(const std::string&)> write;
};

constexpr uint32_t kSide = 128;
constexpr int kFrame = static_cast<int>(kSide * kSide);

std::vector<Writer> Writers() {
    std::shared_ptr<CImg8P> frame = grabsys_test::Frame(kSide, kSide, 1);
    return {
        {"filetool", Answer::False, Form::File,
         [frame](const std::string& p) { return FileToolP::SaveDataToFile(p, frame->GetImg(), kFrame); }},
        {"bmp", Answer::False, Form::File,
         [frame](const std::string& p) {
             return DrasselSpace::ImageIOToolP::SaveBMP(p.c_str(), frame->GetImg(), kSide, kSide,
                                                        DrasselSpace::ePixelFormatGray8);
         }},
        {"raw", Answer::AlwaysTrue, Form::FileAndBlock,
         [frame](const std::string& p) { return frame->SaveFile(p.c_str(), VormexDataStructure::eImgFmtRaw); }},
        {"float", Answer::False, Form::File,
         [](const std::string& p) {
             CImgFloatP img;
             img.SetSize(kSide, kSide, 1, false);
             std::fill(img.GetImg(), img.GetImg() + kFrame, 0.25f);
             return img.SaveToRaw(p);
         }},
        {"imgpkg", Answer::TrueOnceOpened, Form::File,
         [frame](const std::string& p) {
             CDebugImgPackageP pkg;
             pkg.AddPackageInfo({kSide, kSide, 2});  // two frames
             pkg.CreatePackageBuffer();
             return pkg.AddData(0, frame->GetImg(), 0) && pkg.AddData(0, frame->GetImg(), 1) && pkg.SaveDebugPackage(p);
         }},
        {"genpkg", Answer::TrueOnceOpened, Form::File,
         [frame](const std::string& p) {
             CDebugPackageP pkg;
             pkg.InitialPackageBuffer();
             pkg.AddPackageInfo({0, kSide, kSide, 1});  // one frame
             pkg.AddData(0, frame->GetImg(), 0, kFrame);  // saved as staged, never decoded here
             pkg.AllocateDebugImgBuffer();
             return pkg.SaveDebugPackage(p, false);
         }},
        {"armraw", Answer::TrueOnceOpened, Form::File,
         [](const std::string& p) {
             grabsys_test::View view(kSide, kSide, 1, 1, 1, 3, 1);
             CArmImageOutputMemory block;
             return grabsys_test::WriteViewFile(view, 0, {eCam0}, 1, 1, 3, p, block);
         }},
        // The image package D:\in\pkg: two frames, two BMPs.
        {"ImgTest", Answer::AlwaysTrue, Form::Tree,
         [](const std::string&) { return CDebugPackageExporterP().ExprotPackage({"D:\\in\\pkg"}); }},
        // The view D:\in\arm\0.armraw: three Sin frames and a white one, four BMPs.
        {"extract", Answer::TrueOnceOpened, Form::Tree,
         [](const std::string& out) {
             ArmImageExtractor extractor;
             const OutputOneViewArmImageParm parm{{{0}}, {"D:\\in\\arm\\"}, out, 1};  // view 0, mode 1: all frames
             std::vector<int> failed[1];
             return extractor.OutputOneViewArmImages(parm, failed, 1) && extractor.GetCounters().extracted[0] == 1;
         }},
    };
}

bool Expected(Answer answer, bool opened) {
    return answer == Answer::AlwaysTrue || (answer == Answer::TrueOnceOpened && opened);
}

using Bytes = std::vector<unsigned char>;
using Files = std::map<std::string, Bytes>;

// The information block closing a file: stream form, its u32 length, then
// "VXIMINFO". 0 when the file does not end in one.
size_t BlockBytes(const Bytes& f) {
    if (f.size() < 12 || std::memcmp(f.data() + f.size() - 8, "VXIMINFO", 8) != 0) return 0;
    const unsigned char* n = f.data() + f.size() - 12;
    const size_t block = 12 + (n[0] | n[1] << 8 | n[2] << 16 | uint32_t{n[3]} << 24);
    return block < f.size() ? block : 0;
}

// How many files a faulted run left whole. Besides them only the cut forms
// IImgP::SaveFile keeps ("a failed write shows only as a missing or short
// file") may be there: the file without its block, when the block's append
// failed and was cut back, or the block alone, when the pixels failed and
// the block was appended to nothing. At most one file is cut, the one being
// written when the fault hit; nothing half written, no temporary file.
size_t CountWhole(const Files& clean, const Files& left, Form form, const std::string& what) {
    size_t whole = 0, cut = 0;
    for (const auto& [name, bytes] : left) {
        const auto it = clean.find(name);
        const Bytes& c = it != clean.end() ? it->second : bytes;
        if (it != clean.end() && bytes == c) {
            ++whole;
            continue;
        }
        ++cut;
        const size_t block = it == clean.end() || form == Form::File ? 0 : BlockBytes(c);
        const auto split = c.end() - static_cast<long>(block);
        EXPECT_TRUE(block != 0 && (bytes == Bytes(c.begin(), split) || bytes == Bytes(split, c.end())))
            << what << " left " << name;
    }
    EXPECT_LE(cut, 1u) << what;
    return whole;
}

class DiskFaults : public ::testing::Test {
protected:
    void SetUp() override {
        for (const Writer& w : writers) fs::create_directories(Host(w));
        ASSERT_TRUE(FileToolP::CreateDirectoryRecursively("D:\\in\\arm"));
        ASSERT_TRUE(Find("imgpkg").write("D:\\in\\pkg"));
        ASSERT_TRUE(Find("armraw").write("D:\\in\\arm\\0.armraw"));
    }

    const Writer& Find(const std::string& folder) const {
        return *std::find_if(writers.begin(), writers.end(), [&](const Writer& w) { return w.folder == folder; });
    }
    std::string Host(const Writer& w) const { return dir.File("D/" + w.folder); }
    bool Write(const Writer& w) { return w.write("D:\\" + w.folder + "\\out"); }
    Files Left(const Writer& w) const {
        Files files;
        for (const std::string& name : grabsys_test::Tree(Host(w))) files[name] = ReadAll(Host(w) + "/" + name);
        return files;
    }
    void Reset(const Writer& w) {
        fs::remove_all(Host(w));
        fs::create_directories(Host(w));
    }
    // The files written without a fault; env.Appends() then counts the writes.
    Files CleanRun(const Writer& w) {
        env.Clear();
        EXPECT_TRUE(Write(w)) << w.folder;
        const Files clean = Left(w);
        EXPECT_TRUE(w.form == Form::Tree ? clean.size() > 1 : clean.size() == 1) << w.folder << ": " << clean.size();
        Reset(w);
        return clean;
    }
    void ExpectWritesAsBefore(const Writer& w, const Files& clean, const std::string& what) {
        env.Clear();
        EXPECT_TRUE(Write(w)) << what;
        EXPECT_TRUE(Left(w) == clean) << what << ": not written as without a fault";
        Reset(w);
    }

    grabsys_test::TempDir dir;  // first: the Env below forwards to its drive mapping
    platform::FaultEnv env{platform::Env::Default()};
    platform::ScopedEnv installed{&env};
    const std::vector<Writer> writers = Writers();
};

}  // namespace

TEST_F(DiskFaults, EveryWriteFailingOrCutShortLeavesOnlyWholeFiles) {
    for (const Writer& w : writers) {
        const Files clean = CleanRun(w);
        const uint64_t appends = env.Appends();
        for (const bool cutShort : {false, true}) {
            for (uint64_t i = 1; i <= appends; ++i) {
                const std::string what = w.folder + (cutShort ? ", write cut short: " : ", write failing: ") +
                                         std::to_string(i) + " of " + std::to_string(appends);
                env.Clear();
                cutShort ? env.ShortWrite(i) : env.FailWrite(i);
                EXPECT_EQ(Write(w), Expected(w.answer, true)) << what;
                // One write failed: its file is gone (or cut as SaveFile
                // keeps it), every other file of a tree is written whole.
                const Files left = Left(w);
                EXPECT_EQ(CountWhole(clean, left, w.form, what), clean.size() - 1) << what;
                EXPECT_EQ(left.size(), w.form == Form::File ? 0 : clean.size()) << what;
                Reset(w);
            }
        }
    }
}

TEST_F(DiskFaults, FullDiskLeavesOnlyWholeFilesAndWritingGoesOnOnceThereIsRoom) {
    for (const Writer& w : writers) {
        const Files clean = CleanRun(w);
        uint64_t total = 0;
        for (const auto& file : clean) total += file.second.size();
        for (const uint64_t room : {uint64_t{0}, total / 2, total - 1}) {
            const std::string what = w.folder + ", room for " + std::to_string(room) + " of " + std::to_string(total);
            env.Clear();
            env.FillDiskAfter(room);
            EXPECT_EQ(Write(w), Expected(w.answer, true)) << what;
            // What was finished before the disk filled may stay; not all of it was.
            EXPECT_LT(CountWhole(clean, Left(w), w.form, what), clean.size()) << what;
            Reset(w);
            ExpectWritesAsBefore(w, clean, what);
        }
    }
}

// A read-only folder (the Env refuses to create anything in it) and a folder
// that is a plain file: the writer writes nothing there and keeps the file,
// and writes as before once the folder can be written again.
TEST_F(DiskFaults, ReadOnlyFolderOrParentThatIsAFileRefusesAndKeepsWhatIsThere) {
    const Bytes plain{1, 2, 3};
    for (const Writer& w : writers) {
        const Files clean = CleanRun(w);
        for (const bool parentIsFile : {false, true}) {
            const std::string what = w.folder + (parentIsFile ? " under a file" : " in a read-only folder");
            if (parentIsFile) {
                fs::remove_all(Host(w));
                WriteAll(Host(w), plain);
            } else {
                env.RefuseFolder("D:\\" + w.folder + "\\");
            }
            EXPECT_EQ(Write(w), Expected(w.answer, false)) << what;
            EXPECT_FALSE(FileToolP::CreateDirectoryRecursively("D:\\" + w.folder + "\\sub")) << what;
            EXPECT_TRUE(parentIsFile ? ReadAll(Host(w)) == plain : fs::is_empty(Host(w))) << what;
            Reset(w);
            ExpectWritesAsBefore(w, clean, what);
        }
    }
}

// As root, a writer that put a temporary file in place of /dev/full would
// replace the device. The Env writes whatever is no regular file in place;
// a link in the test's folder goes the same way and proves it for each
// writer before that writer touches the device.
TEST_F(DiskFaults, FullDeviceGivesTheDocumentedAnswerAndStaysADevice) {
#ifdef _WIN32
    GTEST_SKIP() << "needs /dev/full, which Windows lacks; checked by the Linux build";
#else
    ASSERT_TRUE(fs::is_character_file("/dev/full"));
    fs::create_directories(dir.File("D/dev"));
    WriteAll(dir.File("D/dev/target"), {});
    fs::create_symlink(dir.File("D/dev/target"), dir.File("D/dev/link"));
    for (const Writer& w : writers) {
        if (w.form == Form::Tree) continue;
        const Files clean = CleanRun(w);
        ASSERT_TRUE(w.write("D:\\dev\\link")) << w.folder;
        ASSERT_TRUE(fs::is_symlink(dir.File("D/dev/link"))) << w.folder << " replaced the link";
        ASSERT_EQ(ReadAll(dir.File("D/dev/target")), clean.begin()->second) << w.folder << " did not write in place";
        ASSERT_EQ(std::distance(fs::directory_iterator(dir.File("D/dev")), {}), 2) << w.folder << " left a file beside";
        EXPECT_EQ(w.write("/dev/full"), Expected(w.answer, true)) << w.folder;
        EXPECT_TRUE(fs::is_character_file("/dev/full")) << w.folder << " must not replace the device";
    }
#endif
}

// The output manager's and the extractor's counters count a view whose file
// failed for any reason, a write cut short included, while the system's
// answers stay as they are (the view written, the view extracted).
TEST_F(DiskFaults, CountersCountEveryViewWhoseFileFailed) {
    grabsys_test::View frames(kSide, kSide, 1, 1, 1, 3, 1);
    const auto addView = [&](const std::string& path) {
        CArmImageOutputMng mng;
        auto* view = new COneViewArmImageData(0);
        view->SetSinImages(frames.sin, {eCam0}, 1, 1, 3);
        view->SetWhitePatternImage(frames.white);
        view->SetOutputFileFullPath(path);
        EXPECT_EQ(mng.AddOneViewImages(view), eAddRltOk) << path;
        return mng.GetCounters();
    };
    const auto extract = [] {
        ArmImageExtractor extractor;
        const OutputOneViewArmImageParm parm{{{0}}, {"D:\\in\\arm\\"}, "D:\\extract\\out", 1};
        std::vector<int> failed[1];
        extractor.OutputOneViewArmImages(parm, failed, 1);
        return extractor.GetCounters();
    };
    env.Clear();
    EXPECT_EQ(addView("D:\\armraw\\v.armraw").saveFailed, 0u);
    const uint64_t viewAppends = env.Appends();
    const uint64_t viewBytes = ReadAll(dir.File("D/armraw/v.armraw")).size();
    env.Clear();
    const ExtractCounters clean = extract();
    const uint64_t treeAppends = env.Appends();
    EXPECT_TRUE(clean.extracted[0] == 1 && clean.filesFailed[0] == 0 && clean.failed[0] == 0);

    // Each fault is given the Appends and the bytes of the clean writes.
    const std::vector<std::pair<std::string, std::function<void(uint64_t appends, uint64_t bytes)>>> faults{
        {"the first write failing", [&](uint64_t, uint64_t) { env.FailWrite(1); }},
        {"the last write cut short", [&](uint64_t appends, uint64_t) { env.ShortWrite(appends); }},
        {"a full disk", [&](uint64_t, uint64_t bytes) { env.FillDiskAfter(bytes / 2); }},
        {"a refused folder", [&](uint64_t, uint64_t) {
             env.RefuseFolder("D:\\armraw\\");
             env.RefuseFolder("D:\\extract\\out\\Cam0P\\");
         }},
    };
    for (const auto& [what, inject] : faults) {
        Reset(Find("armraw"));
        Reset(Find("extract"));
        env.Clear();
        inject(viewAppends, viewBytes);
        const OutputCounters out = addView("D:\\armraw\\v.armraw");
        EXPECT_TRUE(out.written == 1 && out.saveFailed == 1) << what;
        env.Clear();
        inject(treeAppends, kFrame);
        const ExtractCounters c = extract();
        // A folder that cannot be made fails the view; a file that fails
        // leaves it extracted, with its files counted as failed.
        const bool folder = what == "a refused folder";
        EXPECT_EQ(c.failed[0], folder ? 1u : 0u) << what;
        EXPECT_EQ(c.extracted[0], folder ? 0u : 1u) << what;
        EXPECT_EQ(c.filesFailed[0], folder ? 0u : 1u) << what;
    }
}
