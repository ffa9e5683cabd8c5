// Every grabsys command that writes files, run as a user runs it, against a
// disk that fills up, a write cut short, a folder that refuses writes and a
// sync that fails (through the fault-injecting Env, so the same on Linux and
// under Wine), and as root on Linux against a real full and a read-only
// tmpfs. Each must exit non-zero, name a file and its cause, report counts
// that agree with what is on disk, and leave only whole files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#ifdef __linux__
#include <sys/mount.h>
#include <unistd.h>
#endif

#include "../../tools/grabsys/cli_common.h"
#include "grabsystem/camera/camera.h"
#include "grabsystem/platform/fault_env.h"
#include "test_support.h"

namespace fs = std::filesystem;
using GrabSystem::platform::Env;
using GrabSystem::platform::FaultEnv;

namespace {

struct Outcome {
    int code;
    std::string out, err;
};

// grabsys with these arguments, its output captured.
Outcome Grabsys(std::vector<std::string> args) {
    args.insert(args.begin(), "grabsys");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    std::ostringstream out, err;
    std::streambuf* oldOut = std::cout.rdbuf(out.rdbuf());
    std::streambuf* oldErr = std::cerr.rdbuf(err.rdbuf());
    const int code = grabsys::Main(static_cast<int>(argv.size()), argv.data());
    std::cout.rdbuf(oldOut);
    std::cerr.rdbuf(oldErr);
    return {code, out.str(), err.str()};
}

using Files = std::map<std::string, std::vector<unsigned char>>;

Files Left(const std::string& root) {
    Files files;
    for (const std::string& name : grabsys_test::Tree(root)) files[name] = grabsys_test::ReadAll(root + "/" + name);
    return files;
}

uint64_t Bytes(const Files& files) {
    uint64_t n = 0;
    for (const auto& f : files) n += f.second.size();
    return n;
}

// How many files the tool says it could not write: its count line, or the
// one file it names alone.
uint64_t ReportedFailed(const std::string& err) {
    std::smatch m;
    if (std::regex_search(err, m, std::regex("(\\d+) files were not written whole"))) return std::stoull(m[1]);
    return std::regex_search(err, std::regex("; (nothing of it is left|nothing was written|the earlier file)")) ? 1 : 0;
}

uint64_t Number(const std::string& text, const std::string& pattern) {
    std::smatch m;
    EXPECT_TRUE(std::regex_search(text, m, std::regex(pattern))) << pattern << " in " << text;
    return m.empty() ? 0 : std::stoull(m[1]);
}

// One command: its arguments for an output folder, and what its own counts
// must say given the whole files it left beside the clean run's.
struct Command {
    std::string name;
    std::function<std::vector<std::string>(const std::string& out)> args;
    std::function<void(const Outcome&, const Files& clean, const Files& left)> counts;
    // Where its files land, when not in the output folder: on Windows the
    // export writes to drive D: itself (the test runner's scratch drive).
    bool onDriveD = false;
    // The camera's frames come as it streams: the files differ by run, and
    // the grab stops at its first failed file, so later ones are never
    // started.
    bool grab = false;
};

// Empties the folder (a drive's root stays), making it first if need be.
void Reset(const std::string& folder) {
    fs::create_directories(folder);
    // Wine will not list an empty drive's root: an error here is an empty folder.
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec); !ec && it != fs::directory_iterator(); it.increment(ec))
        fs::remove_all(it->path());
}

class ToolFaults : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_inputs = new grabsys_test::TempDir;
        const Outcome demo = Grabsys({"demo", "-q", "--frames", "4", "--camera-fps", "0", "--consumer-ms", "0", "--width",
                                  "64", "--height", "48", "--views", "1", "--cameras", "1", "--arm-width", "64",
                                  "--arm-height", "48", "--package-frames", "3", "--camera-frames", "0", "-o", In("demo")});
        ASSERT_EQ(demo.code, 0) << demo.err;
        grabsys_test::WriteAll(In("project.fpz"), {'<', 'p', '/', '>'});
    }
    static void TearDownTestSuite() {
        delete s_inputs;
        s_inputs = nullptr;
    }
    static std::string In(const std::string& name) { return s_inputs->Path() + "/" + name; }

    void TearDown() override { grabsys::SetBaseEnv(nullptr); }

    static std::vector<Command> Commands() {
        const auto none = [](const Outcome&, const Files&, const Files&) {};
        std::vector<Command> commands = {
            {"arm extract", [](const std::string& out) { return std::vector<std::string>{"arm", "extract", In("demo/armraw"), "-o", out}; },
             [](const Outcome& r, const Files& clean, const Files& left) {
                 // One view: extracted only when every file of it is there.
                 EXPECT_EQ(Number(r.out, "extracted (\\d+) of 1 views"), left == clean ? 1u : 0u) << r.out;
             }},
            {"package export", [](const std::string& out) { return std::vector<std::string>{"package", "export", In("demo/packages/image.dbg"), "--root", out}; },
             [](const Outcome& r, const Files&, const Files& left) {
                 EXPECT_EQ(Number(r.out, "(\\d+) files written"), left.size()) << r.out;
                 EXPECT_GE(Number(r.out, "(\\d+) failed"), 1u) << r.out;
             }, true},
            {"package export general", [](const std::string& out) { return std::vector<std::string>{"package", "export", In("demo/packages/general.dbg"), "--root", out}; },
             [](const Outcome& r, const Files&, const Files& left) {
                 EXPECT_EQ(Number(r.out, "(\\d+) files written"), left.size()) << r.out;
             }, true},
            {"package create", [](const std::string& out) { return std::vector<std::string>{"package", "create", "--from", In("demo/armbmp/Cam0Q/0"), "-o", out + "/p.dbg"}; },
             none},
            {"package create general", [](const std::string& out) { return std::vector<std::string>{"package", "create", "--general", "--project", In("project.fpz"), "--from", In("demo/armbmp/Cam0Q/0"), "-o", out + "/p.dbg"}; },
             none},
            {"preview", [](const std::string& out) { return std::vector<std::string>{"preview", In("demo/armraw"), In("demo/packages/general.dbg"), In("demo/frame0.raw"), "-o", out + "/"}; },
             [](const Outcome& r, const Files&, const Files& left) {
                 EXPECT_EQ(static_cast<size_t>(std::count(r.out.begin(), r.out.end(), '\n')), left.size()) << r.out;
             }},
            {"demo", [](const std::string& out) { return std::vector<std::string>{"demo", "-q", "--frames", "3", "--camera-fps", "0", "--consumer-ms", "0", "--width", "32", "--height", "24", "--saved-frames", "1", "--views", "1", "--cameras", "1", "--arm-width", "32", "--arm-height", "24", "--package-frames", "2", "--camera-frames", "0", "-o", out}; },
             [](const Outcome& r, const Files&, const Files&) { EXPECT_NE(r.out.find("VERIFICATION FAILED"), std::string::npos) << r.out; }},
        };
        if (!GrabSystem::camera::CameraSupport()) return commands;
        // A view is compressed: it needs larger frames than the files of
        // single frames to fill half a page of tmpfs.
        const auto grab = [](const char* write) {
            const bool view = std::string(write) == "armraw";
            return [write, view](const std::string& out) {
                return std::vector<std::string>{"grab", "-q", "--simulated", "--fps", "200", "--frames", view ? "7" : "3",
                                                "--width", view ? "640" : "32", "--height", view ? "480" : "24", "--cameras", "1",
                                                "--sin", "1", "1", "6", "--white", "1", "--write", write, "-o", out};
            };
        };
        const auto grabCounts = [](const Outcome& r, const Files&, const Files& left) {
            EXPECT_EQ(Number(r.out, "written: (\\d+)"), left.size()) << r.out;
        };
        commands.push_back({"grab raw", grab("raw"), grabCounts, false, true});
        commands.push_back({"grab bmp", grab("bmp"), grabCounts, false, true});
        commands.push_back({"grab armraw", grab("armraw"), grabCounts, false, true});
        return commands;
    }

    // What every failed run must show: a non-zero exit, the files it could
    // not write named with their cause (`cause` on one of the lines), only
    // whole files left, and a count of the failed files that agrees with
    // what is missing.
    static void ExpectReported(const Command& c, const Outcome& r, const Files& clean, const Files& left,
                               const std::string& root, const std::string& cause, const std::string& what) {
        EXPECT_NE(r.code, 0) << what;
        const std::string native = fs::path(root).filename().string();
        EXPECT_TRUE(std::regex_search(r.err, std::regex("grabsys: [^\n]*" + native + "[^\n]*: [^\n]*" + cause)))
            << what << ": " << r.err;
        for (const auto& [name, bytes] : left) {
            const auto it = clean.find(name);
            // The demo writes noise and tick-named files that differ by run;
            // elsewhere every file left is the clean run's, byte for byte.
            if (c.name != "demo" && !c.grab) {
                EXPECT_TRUE(it != clean.end() && it->second == bytes) << what << " left " << name;
            }
            EXPECT_EQ(name.find(".tmp-"), std::string::npos) << what << " left " << name;
        }
        // A view whose folders cannot be made fails as a view (the demo's
        // stages skip what an earlier failure took away): its files were
        // never started.
        if (c.name != "demo" && !c.grab && r.err.find("view 0 failed") == std::string::npos) {
            EXPECT_EQ(ReportedFailed(r.err), clean.size() - left.size()) << what << ": " << r.err;
        }
        c.counts(r, clean, left);
    }

    static grabsys_test::TempDir* s_inputs;
};

grabsys_test::TempDir* ToolFaults::s_inputs = nullptr;

}  // namespace

TEST_F(ToolFaults, EveryWritingCommandReportsAFullDiskAShortWriteARefusedFolderAndAFailedSync) {
    grabsys_test::TempDir scratch;
    FaultEnv env(Env::System());
    grabsys::SetBaseEnv(&env);
    const std::string out = scratch.Path() + "/fault_out";
    for (const Command& c : Commands()) {
#ifdef _WIN32
        const std::string root = c.onDriveD ? scratch.File("D/") : out;
#else
        const std::string root = out;
#endif
        Reset(out);
        Reset(root);
        env.Clear();
        const Outcome ok = Grabsys(c.args(out));
        ASSERT_EQ(ok.code, 0) << c.name << ": " << ok.err;
        const Files clean = Left(root);
        const uint64_t appends = env.Appends();
        ASSERT_FALSE(clean.empty()) << c.name << ": " << ok.out << ok.err;

        struct Fault {
            const char* what;
            const char* cause;
            std::function<void()> apply;
            bool sync;
        };
        const Fault faults[] = {
            {"a full disk", "no space left on device", [&] { env.FillDiskAfter(Bytes(clean) / 2); }, false},
            {"a write cut short", "write cut short", [&] { env.ShortWrite(appends / 2 + 1); }, false},
            {"a folder that refuses writes", "read-only", [&] { env.RefuseFolder(root); }, false},
            {"a failed sync", "failed to sync", [&] { env.FailSync(1); }, true},
        };
        for (const Fault& f : faults) {
            const std::string what = c.name + " on " + f.what;
            Reset(out);
            Reset(root);
            env.Clear();
            f.apply();
            std::vector<std::string> args = c.args(out);
            if (f.sync) args.insert(args.begin(), "--sync");
            const Outcome r = Grabsys(args);
            ExpectReported(c, r, clean, Left(root), root, f.cause, what);
        }
    }
}

// The same commands on a real disk: a tmpfs too small for what they write,
// and one mounted read-only. Needs root and a kernel that lets the test
// mount.
TEST_F(ToolFaults, EveryWritingCommandReportsARealFullAndReadOnlyTmpfs) {
#ifndef __linux__
    GTEST_SKIP() << "mounts a tmpfs, which only Linux has; the fault-injecting Env covers this build";
#else
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a tmpfs needs root; the fault-injecting Env covers the rest";
    grabsys_test::TempDir scratch;
    const std::string root = scratch.Path() + "/tmpfs_out";
    for (const Command& c : Commands()) {
        fs::remove_all(root);
        fs::create_directories(root);
        const Outcome ok = Grabsys(c.args(root));
        ASSERT_EQ(ok.code, 0) << c.name << ": " << ok.err;
        const Files clean = Left(root);
        fs::remove_all(root);
        fs::create_directories(root);
        for (const bool readOnly : {false, true}) {
            const std::string what = c.name + (readOnly ? " on a read-only tmpfs" : " on a full tmpfs");
            // Room for half of what the command writes (tmpfs rounds it up to pages).
            const std::string size = "size=" + std::to_string(std::max<uint64_t>(4096, Bytes(clean) / 2));
            if (::mount("tmpfs", root.c_str(), "tmpfs", readOnly ? MS_RDONLY : 0, size.c_str()) != 0)
                GTEST_SKIP() << "cannot mount a tmpfs here: " << std::strerror(errno);
            const Outcome r = Grabsys(c.args(root));
            const Files left = Left(root);
            ::umount2(root.c_str(), MNT_DETACH);
            ExpectReported(c, r, clean, left, root, readOnly ? "Read-only file system" : "No space left on device", what);
        }
    }
#endif
}

// A command whose input fails to open or to read, or reads short, stops
// with an error naming the input and the cause.
TEST_F(ToolFaults, EveryReadingCommandNamesTheInputThatFailed) {
    grabsys_test::TempDir scratch;
    FaultEnv env(Env::System());
    grabsys::SetBaseEnv(&env);
    const std::string out = scratch.Path() + "/read_out";
    const std::vector<std::pair<std::string, std::vector<std::string>>> commands{
        {"0.armraw", {"info", In("demo/armraw/0.armraw")}},
        {"image.dbg", {"info", In("demo/packages/image.dbg")}},
        {"armraw", {"arm", "list", In("demo/armraw")}},
        {"0.armraw", {"arm", "extract", In("demo/armraw"), "-o", out}},
        {"general.dbg", {"package", "export", In("demo/packages/general.dbg"), "--root", out}},
        {"frame0.raw", {"preview", In("demo/frame0.raw"), "-o", out + "/s.png"}},
    };
    for (const auto& [input, args] : commands) {
        env.Clear();
        ASSERT_EQ(Grabsys(args).code, 0) << args[0] << " " << input;
        const uint64_t opens = env.Opens(), reads = env.Reads();
        for (int fault = 0; fault < 3; ++fault) {
            const std::string what = args[0] + " " + args[1] + " with " + input + (fault == 0 ? " not opening" : fault == 1 ? " failing" : " read short");
            env.Clear();
            if (fault == 0) env.FailOpen(opens);
            if (fault == 1) env.FailRead(reads);
            if (fault == 2) env.ShortRead(reads);
            if (fault != 0 && reads == 0) continue;  // a folder is only listed
            const Outcome r = Grabsys(args);
            EXPECT_NE(r.code, 0) << what;
            EXPECT_TRUE(std::regex_search(r.err, std::regex("grabsys: [^\n]*" + input + "[^\n]*injected fault")))
                << what << ": " << r.err;
        }
    }
}
