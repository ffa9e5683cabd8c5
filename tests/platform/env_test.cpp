#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "grabsystem/platform/fault_env.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/mem_env.h"
#include "grabsystem/platform/tracking_env.h"
#include "../arm/arm_test_support.h"
#include "test_support.h"

using namespace GrabSystem::platform;
using GrabSystem::Status;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::WriteAll;
namespace fs = std::filesystem;

namespace {

std::vector<unsigned char> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

bool Put(WritableFile& file, const std::string& text) { return file.Append(text.data(), text.size()).ok(); }

// The file, or null when the Env refuses it.
std::unique_ptr<WritableFile> Writable(Env* env, const std::string& path) {
    std::unique_ptr<WritableFile> file;
    env->NewWritableFile(path, &file);
    return file;
}

std::unique_ptr<WritableFile> Appendable(Env* env, const std::string& path) {
    std::unique_ptr<WritableFile> file;
    env->NewAppendableFile(path, &file);
    return file;
}

std::vector<std::string> Sorted(Env* env, const std::string& dir) {
    std::vector<std::string> names;
    EXPECT_TRUE(env->ListFiles(dir, &names).ok()) << dir;
    std::sort(names.begin(), names.end());
    return names;
}

// What reaches the disk, to see how many bytes a fault lets through.
class RecordingEnv : public EnvWrapper {
public:
    RecordingEnv() : EnvWrapper(Env::System()) {}
    Status NewWritableFile(const std::string&, std::unique_ptr<WritableFile>* result) override {
        struct File : WritableFile {
            explicit File(std::string* out) : out(out) {}
            Status Append(const void* data, size_t size) override {
                out->append(static_cast<const char*>(data), size);
                return Status::OK();
            }
            Status Sync() override { return Status::OK(); }
            Status Close() override { return Status::OK(); }
            void Abandon() override {}
            std::string* out;
        };
        *result = std::make_unique<File>(&written);
        return Status::OK();
    }
    std::string written;
};

}  // namespace

TEST(EnvFiles, WholeFileAppearsAtCloseAndNoTemporaryStays) {
    TempDir dir;
    Env* env = Env::System();
    const std::string path = dir.Path() + "/a.bin";
    const std::vector<std::string> justA{"a.bin"};

    auto file = Writable(env, path);
    ASSERT_NE(file, nullptr);
    const std::vector<unsigned char> big = grabsys_test::FrameBytes(512, 400, 3);  // past the write buffer
    ASSERT_TRUE(file->Append(big.data(), big.size()).ok());
    EXPECT_FALSE(env->FileExists(path));
    ASSERT_TRUE(file->Close().ok());
    EXPECT_EQ(ReadAll(path), big);
    EXPECT_EQ(Sorted(env, dir.Path()), justA);

    // A rewrite that is abandoned, dropped unclosed or fails leaves the old file.
    file = Writable(env, path);
    ASSERT_TRUE(Put(*file, "other"));
    file->Abandon();
    EXPECT_FALSE(file->Close().ok());
    static_cast<void>(Writable(env, path)->Append("x", 1));
    FaultEnv fault(env);
    fault.FailWrite(2);
    file = Writable(&fault, path);
    EXPECT_TRUE(Put(*file, "one"));
    EXPECT_FALSE(Put(*file, "two"));
    EXPECT_FALSE(file->Close().ok());
    EXPECT_EQ(ReadAll(path), big);
    EXPECT_EQ(Sorted(env, dir.Path()), justA);

    file = Writable(env, path);
    ASSERT_TRUE(Put(*file, "new") && file->Sync().ok() && file->Close().ok());
    EXPECT_EQ(ReadAll(path), Bytes("new"));
    EXPECT_EQ(Writable(env, dir.Path()), nullptr);
    EXPECT_EQ(Writable(env, dir.Path() + "/missing/a.bin"), nullptr);

    std::unique_ptr<unsigned char[]> data;
    uint64_t size = 9;
    ASSERT_TRUE(env->ReadFile(path, data, size).ok());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data.get()), size), "new");
    WriteAll(dir.Path() + "/empty", {});
    EXPECT_TRUE(env->ReadFile(dir.Path() + "/empty", data, size).ok());
    EXPECT_TRUE(data == nullptr && size == 0);
    size = 9;
    EXPECT_FALSE(env->ReadFile(dir.Path() + "/none", data, size).ok());
    EXPECT_FALSE(env->ReadFile(dir.Path(), data, size).ok());
    EXPECT_TRUE(data == nullptr && size == 0);
}

TEST(EnvFiles, LinksAndDevicesAreWrittenInPlace) {
#ifdef _WIN32
    GTEST_SKIP() << "symbolic links and /dev need POSIX";
#else
    TempDir dir;
    Env* env = Env::System();
    const std::string target = dir.Path() + "/target", link = dir.Path() + "/link";
    WriteAll(target, Bytes("old"));
    fs::create_symlink(target, link);
    auto file = Writable(env, link);
    ASSERT_TRUE(file != nullptr && Put(*file, "new") && file->Close().ok());
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(ReadAll(target), Bytes("new"));
    EXPECT_EQ(Sorted(env, dir.Path()), (std::vector<std::string>{"link", "target"}));
    EXPECT_FALSE(env->RemoveFile(link).ok());
    EXPECT_TRUE(fs::is_symlink(link));

    // A pipe first: should it be replaced, the damage stays in the test's
    // folder, and the devices below are not touched.
    const std::string pipe = dir.Path() + "/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    file = Writable(env, pipe);
    EXPECT_TRUE(file != nullptr && Put(*file, "piped") && file->Close().ok());
    char got[8] = {};
    EXPECT_EQ(::read(reader, got, sizeof got), 5);
    ::close(reader);
    EXPECT_EQ(std::string(got), "piped");
    EXPECT_FALSE(env->RemoveFile(pipe).ok());
    ASSERT_TRUE(fs::is_fifo(fs::symlink_status(pipe)));

    file = Writable(env, "/dev/null");
    ASSERT_TRUE(file != nullptr && Put(*file, "gone") && file->Close().ok());
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    if (fs::is_character_file("/dev/full")) {
        file = Writable(env, "/dev/full");
        ASSERT_NE(file, nullptr);
        EXPECT_FALSE(Put(*file, "x") && file->Close().ok());
        EXPECT_TRUE(fs::is_character_file("/dev/full"));
    }
    // An appended link is never cut back: what it points to is not ours.
    FaultEnv fault(env);
    fault.ShortWrite(1);
    file = Appendable(&fault, link);
    EXPECT_FALSE(Put(*file, "1234"));
    EXPECT_EQ(ReadAll(target), Bytes("new12"));
#endif
}

TEST(EnvFiles, AppendCutsBackWhatFailed) {
    TempDir dir;
    Env* env = Env::System();
    FaultEnv fault(env);
    const std::string path = dir.Path() + "/log";
    WriteAll(path, Bytes("abc"));

    auto file = Appendable(&fault, path);
    ASSERT_TRUE(file != nullptr && Put(*file, "def") && file->Close().ok());
    EXPECT_EQ(ReadAll(path), Bytes("abcdef"));

    file = Appendable(&fault, path);
    ASSERT_TRUE(Put(*file, "ghi"));
    fault.ShortWrite(1);
    EXPECT_FALSE(Put(*file, "jklm"));
    EXPECT_FALSE(file->Close().ok());
    EXPECT_EQ(ReadAll(path), Bytes("abcdef"));

    file = Appendable(env, path);
    ASSERT_TRUE(Put(*file, "xyz"));
    file->Abandon();
    EXPECT_EQ(ReadAll(path), Bytes("abcdef"));

    // A file the append created goes again, abandoned or dropped.
    const std::string fresh = dir.Path() + "/fresh";
    static_cast<void>(Appendable(env, fresh)->Append("x", 1));
    EXPECT_FALSE(fs::exists(fresh));
    EXPECT_EQ(Appendable(env, dir.Path()), nullptr);
}

TEST(FaultEnv, FaultsPassWhatFitsAndCountEveryAppend) {
    RecordingEnv disk;
    FaultEnv fault(&disk);
    fault.FillDiskAfter(10);
    auto file = Writable(&fault, "a");
    EXPECT_TRUE(Put(*file, "abcdef"));
    EXPECT_FALSE(Put(*file, "ghijkl"));
    EXPECT_FALSE(file->Close().ok());
    EXPECT_FALSE(Put(*Writable(&fault, "b"), "z"));
    EXPECT_EQ(disk.written, "abcdefghij");

    fault.Clear();
    EXPECT_EQ(fault.Appends(), 0u);
    fault.ShortWrite(2);
    file = Writable(&fault, "c");
    EXPECT_TRUE(Put(*file, "12"));
    EXPECT_FALSE(Put(*file, "345678"));
    EXPECT_EQ(disk.written, "abcdefghij12345");

    // Counted across threads: exactly the chosen Append fails, and only its
    // file is missing afterwards.
    TempDir dir;
    FaultEnv real(Env::System());
    real.FailWrite(250);
    std::atomic<int> failedFiles{0};
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t)
        writers.emplace_back([&, t] {
            auto own = Writable(&real, dir.Path() + "/t" + std::to_string(t));
            for (int i = 0; i < 100; ++i) Put(*own, "x");
            failedFiles += own->Close().ok() ? 0 : 1;
        });
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(real.Appends(), 400u);
    EXPECT_EQ(failedFiles.load(), 1);
    EXPECT_EQ(grabsys_test::Tree(dir.Path()).size(), 3u);
}

TEST(FaultEnv, RefusedFolderCreatesNothingInside) {
    TempDir dir;
    DriveMappingEnv mapped(Env::System(), dir.Path());
    FaultEnv fault(&mapped);
    ASSERT_TRUE(fault.CreateDirectories("D:/ro/old").ok());
    fault.RefuseFolder("D:\\ro\\");
    EXPECT_EQ(Writable(&fault, "D://ro//a"), nullptr);
    EXPECT_EQ(Appendable(&fault, "D:/ro/sub/b"), nullptr);
    EXPECT_FALSE(fault.CreateDirectories("D:\\ro\\new").ok());
    EXPECT_TRUE(fault.CreateDirectories("D:/ro/old").ok());  // there already
    EXPECT_TRUE(fault.CreateDirectories("D:/ro").ok());
    auto file = Writable(&fault, "D:/rope");
    ASSERT_TRUE(file != nullptr && Put(*file, "ok") && file->Close().ok());
    EXPECT_EQ(ReadAll(dir.Path() + "/D/rope"), Bytes("ok"));
    fault.Clear();
    file = Writable(&fault, "D:/ro/a");
    EXPECT_TRUE(file != nullptr && file->Close().ok());
}

TEST(Env, DriveMappingMapsDrivesUnderItsRoot) {
    DriveMappingEnv plain(Env::System(), ""), rooted(Env::System(), "/r");
    const char* cases[][3] = {
        {"D://ImgTest//Cam1//img2.bmp", "D/ImgTest/Cam1/img2.bmp", "/r/D/ImgTest/Cam1/img2.bmp"},
        {"D:\\vormex\\importTmp.fpz", "D/vormex/importTmp.fpz", "/r/D/vormex/importTmp.fpz"},
        {"d:x", "D/x", "/r/D/x"},
        {"rel\\a//b", "rel/a/b", "rel/a/b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(plain.Map(c[0]), c[1]);
        EXPECT_EQ(rooted.Map(c[0]), c[2]);
        EXPECT_EQ(rooted.NativePath(c[0]), c[2]);
    }

    TempDir dir;
    DriveMappingEnv env(Env::System(), dir.Path());
    ASSERT_TRUE(env.CreateDirectories("D:\\a\\sub").ok());
    auto file = Writable(&env, "D://a//f");
    ASSERT_TRUE(file != nullptr && Put(*file, "f") && file->Close().ok());
    EXPECT_TRUE(env.FileExists("D:\\a\\f"));
    EXPECT_TRUE(env.RenameFile("D:/a/f", "D:\\a\\g").ok());
    WriteAll(dir.Path() + "/D/a/h", Bytes("h"));
    // Folders are not files.
    EXPECT_EQ(Sorted(&env, "D:/a"), (std::vector<std::string>{"g", "h"}));
    EXPECT_TRUE(env.IsDirectory("D:/a/sub") && !env.FileExists("D:/a/sub") && !env.RemoveFile("D:/a/sub").ok());
    EXPECT_TRUE(env.RemoveFile("d:/a/g").ok());
    EXPECT_FALSE(fs::exists(dir.Path() + "/D/a/g"));
    std::unique_ptr<RandomAccessFile> read;
    ASSERT_TRUE(env.NewRandomAccessFile("D:\\a\\h", &read).ok());
    char h = 0;
    size_t got = 0;
    EXPECT_TRUE(read->Read(0, 2, &h, &got).ok());
    EXPECT_TRUE(got == 1 && h == 'h' && read->Size() == 1);
    std::vector<std::string> names{"stale"};
    const Status none = env.ListFiles("D:/none", &names);
    EXPECT_TRUE(none.IsNotFound()) << none.ToString();
    EXPECT_NE(none.subject().find("D/none"), std::string::npos);
    EXPECT_TRUE(names.empty());
}

TEST(Env, ThreadsRunAndDefaultsNest) {
    Env* env = Env::Default();
    ThreadFunc body = [](void* arg) -> unsigned long { return *static_cast<unsigned long*>(arg) + 1; };
    unsigned long value = 41, code = 0;
    const uint32_t before = env->NowMs();
    ThreadHandle thread = env->StartThread(body, &value);
    ASSERT_NE(thread, nullptr);
    env->SetThreadPriority(thread, eThreadPriorityNormal);
    ASSERT_TRUE(env->WaitThread(thread, &code));
    EXPECT_EQ(code, 42u);
    env->CloseThread(thread);
    env->SleepMs(20);
    EXPECT_GE(static_cast<uint32_t>(env->NowMs() - before), 19u);

#ifdef _WIN32
    EXPECT_EQ(env, Env::System());
#else
    auto* builtIn = dynamic_cast<DriveMappingEnv*>(env);
    ASSERT_NE(builtIn, nullptr);
    EXPECT_EQ(builtIn->Root(), "");
    EXPECT_EQ(builtIn->Target(), Env::System());
#endif
    EnvWrapper outer(env), inner(env);
    {
        ScopedEnv a(&outer);
        EXPECT_EQ(Env::Default(), &outer);
        {
            ScopedEnv b(&inner);
            EXPECT_EQ(Env::Default(), &inner);
        }
        EXPECT_EQ(Env::Default(), &outer);
        EXPECT_EQ(Env::Install(nullptr), &outer);
        EXPECT_EQ(Env::Default(), env);
        EXPECT_EQ(Env::Install(&outer), nullptr);
    }
    EXPECT_EQ(Env::Default(), env);
}

TEST(MemEnv, FilesLiveInFoldersGoIntoPlaceWholeAndNeverTouchTheDisk) {
    TempDir dir;  // the drive root: nothing may appear in it
    MemEnv mem(Env::System());
    EXPECT_TRUE(Writable(&mem, "D://a//f") == nullptr);  // no such folder
    ASSERT_TRUE(mem.CreateDirectories("D:\\a\\b\\").ok());
    EXPECT_TRUE(mem.IsDirectory("D:/a") && mem.IsDirectory("D:") && !mem.FileExists("D:/a"));

    auto file = Writable(&mem, "D://a//b//f");
    ASSERT_TRUE(file != nullptr && Put(*file, "one"));
    EXPECT_FALSE(mem.FileExists("D:/a/b/f"));  // not before Close
    ASSERT_TRUE(file->Close().ok());
    file = Writable(&mem, "D:\\a\\b\\f");
    ASSERT_TRUE(Put(*file, "two"));
    file->Abandon();  // the earlier file stays
    file = Appendable(&mem, "D:/a/b/f");
    ASSERT_TRUE(Put(*file, "+") && file->Close().ok());
    file = Appendable(&mem, "D:/a/b/f");
    ASSERT_TRUE(Put(*file, "lost"));
    file.reset();  // dropped unclosed: the append is gone
    std::unique_ptr<unsigned char[]> data;
    uint64_t size = 0;
    ASSERT_TRUE(mem.ReadFile("D:/a/b/f", data, size).ok());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data.get()), size), "one+");

    EXPECT_EQ(Sorted(&mem, "D:/a/b"), std::vector<std::string>{"f"});
    EXPECT_TRUE(Sorted(&mem, "D:/a").empty());  // folders are not files
    std::vector<std::string> none;
    EXPECT_TRUE(mem.ListFiles("D:/none", &none).IsNotFound());
    EXPECT_FALSE(mem.CreateDirectories("D:/a/b/f/g").ok());  // a file in the way
    EXPECT_FALSE(mem.ReadFile("D:/a/b", data, size).ok());
    EXPECT_TRUE(mem.RenameFile("D:/a/b/f", "D:/a/g").ok());
    EXPECT_TRUE(mem.FileExists("D:\\a\\g") && !mem.FileExists("D:/a/b/f"));
    EXPECT_TRUE(mem.RemoveFile("D:/a/g").ok());
    EXPECT_TRUE(mem.RemoveFile("D:/a/g").IsNotFound());

    // The system's classes write and read through it as through a disk.
    std::shared_ptr<GrabSystem::CImg8P> frame = grabsys_test::Frame(24, 16, 1);
    frame->SetEnv(&mem);
    ASSERT_TRUE(frame->SaveFile("D:\\a\\img.raw", VormexDataStructure::eImgFmtRaw));
    GrabSystem::CImg8P back;
    back.SetEnv(&mem);
    ASSERT_TRUE(back.LoadFile("D:\\a\\img.raw"));
    EXPECT_EQ(0, std::memcmp(back.GetImg(), frame->GetImg(), 24 * 16));
    EXPECT_EQ(back.GetInfo().fileFormat, VormexDataStructure::eImgFmtRaw);
    EXPECT_EQ(mem.FileCount(), 1u);
    EXPECT_TRUE(grabsys_test::Tree(dir.Path()).empty());
}

// A call's own account: every failure named, no incomplete file left, and
// nothing whole removed.
TEST(TrackingEnv, NamesEveryFailureAndLeavesNoIncompleteFile) {
    TempDir dir;
    FaultEnv fault(Env::Default());
    std::shared_ptr<GrabSystem::CImg8P> frame = grabsys_test::Frame(32, 8, 3);
    const std::string bmp = dir.Path() + "/f.bmp";
    const auto save = [&](Env* env) {
        frame->SetEnv(env);
        EXPECT_TRUE(frame->SaveBmp(bmp.c_str()));  // the system's answer, whatever happened
        frame->SetEnv(nullptr);
    };
    save(&fault);
    const std::vector<unsigned char> whole = ReadAll(bmp);
    fs::remove(bmp);

    struct Case {
        const char* what;
        std::function<void()> inject;
        bool cleanUp;
        const char* cause;   // of the first failure
        bool left;           // a file stays at the path
        size_t removed;
    };
    const Case cases[] = {
        // The pixels fail: the system then appends the block to nothing,
        // which its own files show as a block alone; the call's Env refuses.
        {"pixels failing", [&] { fault.FailWrite(2); }, true, "nothing of it is left", false, 0},
        {"pixels failing, kept as the system leaves it", [&] { fault.FailWrite(2); }, false, "nothing of it is left", true, 0},
        // The block fails after whole pixels: the pixels go too.
        {"block failing", [&] { fault.FailWrite(3); }, true, "write failed", false, 1},
        {"block cut short, kept", [&] { fault.ShortWrite(3); }, false, "write cut short", true, 0},
        {"folder refused", [&] { fault.RefuseFolder(dir.Path()); }, true, "nothing was written", false, 0},
    };
    for (const Case& c : cases) {
        fault.Clear();
        c.inject();
        TrackingEnv call(&fault, TrackingEnv::Options{c.cleanUp, false});
        save(&call);
        ASSERT_FALSE(call.ok()) << c.what;
        const Status first = call.status();
        EXPECT_EQ(first.subject(), bmp) << c.what;
        EXPECT_NE(first.cause().find(c.cause), std::string::npos) << c.what << ": " << first.ToString();
        EXPECT_EQ(call.FilesFailed(), 1u) << c.what;
        EXPECT_EQ(call.FilesWritten(), 0u) << c.what;
        EXPECT_EQ(fs::exists(bmp), c.left) << c.what;
        EXPECT_EQ(call.Removed().size(), c.removed) << c.what;
        fs::remove(bmp);
    }

    // An earlier file that a failed write could not replace stays, and the
    // message says so; a whole file counts as written.
    grabsys_test::WriteAll(bmp, whole);
    fault.Clear();
    fault.FailWrite(1);
    TrackingEnv call(&fault);
    save(&call);
    EXPECT_NE(call.status().cause().find("the earlier file of that name stays"), std::string::npos)
        << call.status().ToString();
    EXPECT_EQ(ReadAll(bmp), whole);
    fault.Clear();
    TrackingEnv again(&fault);
    save(&again);
    EXPECT_TRUE(again.ok() && again.FilesWritten() == 1 && ReadAll(bmp) == whole);

    // A sync only when asked, and its failure reported; reads are heard too.
    fault.Clear();
    fault.FailSync(1);
    TrackingEnv synced(&fault, TrackingEnv::Options{true, true});
    save(&synced);
    EXPECT_NE(synced.status().cause().find("failed to sync"), std::string::npos) << synced.status().ToString();
    EXPECT_EQ(fault.Syncs(), 1u);
    std::unique_ptr<unsigned char[]> data;
    uint64_t size = 0;
    EXPECT_TRUE(synced.ReadFile(dir.Path() + "/missing", data, size).IsNotFound());
    EXPECT_EQ(synced.Failures().size(), 2u);
}

TEST(TrackingEnv, CountsTheWritesOfManyThreadsOnce) {
    TempDir dir;
    FaultEnv fault(Env::System());
    fault.FailWrite(123);
    TrackingEnv call(&fault);
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t)
        writers.emplace_back([&, t] {
            for (int f = 0; f < 25; ++f) {
                auto file = Writable(&call, dir.Path() + "/" + std::to_string(t) + "_" + std::to_string(f));
                if (file != nullptr && Put(*file, "a") && Put(*file, "b")) static_cast<void>(file->Close());
            }
        });
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(call.FilesWritten(), 99u);
    EXPECT_EQ(call.FilesFailed(), 1u);
    EXPECT_EQ(call.Failures().size(), 1u);
    EXPECT_EQ(grabsys_test::Tree(dir.Path()).size(), 99u);
}
