// Faults on the reading side, through the fault-injecting Env: every open,
// every read and every read cut short of every reader (image files, both
// package forms, views, the extractor's folder scan, the strict readers and
// the previews) fails that reader, and the Env the call was given names the
// file and the cause. A read that fails is never taken for a short file.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../arm/arm_test_support.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/capture/ffc_file.h"
#include "grabsystem/debug_package/debug_package.h"
#include "grabsystem/platform/fault_env.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/tracking_env.h"
#include "grabsystem/preview/contact_sheet.h"
#include "test_support.h"

using namespace GrabSystem;
using platform::Env;

namespace {

// A reader: what it reads (a name its messages carry) and the read, through
// `env`; OK when it took the file, else its own answer (a Status, or
// "refused" for the system's bool calls).
struct Reader {
    std::string name;
    std::string file;
    std::function<Status(Env* env)> read;
};

Status Answer(bool ok) { return ok ? Status::OK() : Status::IOError("", "refused"); }

std::vector<Reader> Readers() {
    return {
        {"raw image", "img.raw", [](Env* env) { CImg8P img; img.SetEnv(env); return Answer(img.LoadFile("D:\\in\\img.raw")); }},
        {"BMP image", "img.bmp", [](Env* env) { CImg8P img; img.SetEnv(env); return Answer(img.LoadFile("D:\\in\\img.bmp")); }},
        {"float raw", "f.fraw", [](Env* env) { CImgFloatP img; img.SetEnv(env); return Answer(img.LoadFromRaw("D:\\in\\f.fraw")); }},
        {"flat-field tables", "t.ffc", [](Env* env) {
             std::vector<std::unique_ptr<CFFCTableP>> tables;
             return capture::ReadFfcTables("D:\\in\\t.ffc", tables, env);
         }},
        {"image package", "img.dbg", [](Env* env) { CDebugImgPackageP p; p.SetEnv(env); return Answer(p.LoadDebugPackage("D:\\in\\img.dbg")); }},
        {"general package", "gen.dbg", [](Env* env) { CDebugPackageP p; p.SetEnv(env); return Answer(p.LoadDebugPackage("D:\\in\\gen.dbg")); }},
        {"strict image package", "img.dbg", [](Env* env) { capture::PackageContent c; return capture::ReadPackage("D:\\in\\img.dbg", c, env); }},
        {"strict general package", "gen.dbg", [](Env* env) { capture::PackageContent c; return capture::ReadPackage("D:\\in\\gen.dbg", c, env); }},
        {"strict view", "0.armraw", [](Env* env) { capture::ArmViewContent v; return capture::ReadArmView("D:\\in\\arm\\0.armraw", v, env); }},
        {"preview of a view", "0.armraw", [](Env* env) {
             preview::Sheet sheet;
             return preview::RenderFileSheet("D:\\in\\arm\\0.armraw", preview::SheetOptions(), sheet, env);
         }},
        {"extractor's view", "0.armraw", [](Env* env) {
             ArmImageExtractor extractor;
             extractor.SetEnv(env);
             std::vector<int> failed[1];
             extractor.OutputOneViewArmImages({{{0}}, {"D:\\in\\arm"}, "D:\\out", 1}, failed, 1);
             return Answer(failed[0].empty() && extractor.GetCounters().extracted[0] == 1);
         }},
        {"extractor's folder scan", "arm", [](Env* env) {
             ArmImageExtractor extractor;
             extractor.SetEnv(env);
             std::vector<int> views;
             return Answer(extractor.ParseArmRawFile("D:\\in\\arm", views) && views == std::vector<int>{0});
         }},
    };
}

class ReadFaults : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\in\\arm"));
        std::shared_ptr<CImg8P> frame = grabsys_test::Frame(40, 30, 2);
        frame->SaveFile("D:\\in\\img.raw", VormexDataStructure::eImgFmtRaw);
        frame->SaveBmp("D:\\in\\img.bmp");
        CImgFloatP values;
        values.SetSize(5, 4, 1, false);
        ASSERT_TRUE(values.SaveToRaw("D:\\in\\f.fraw"));
        CFFCTableP a, b;
        a.SetSize(6, 2, 1, false);
        b.SetSize(3, 3, 1, false);
        ASSERT_TRUE(capture::WriteFfcTables("D:\\in\\t.ffc", {&a, &b}).ok());
        CDebugImgPackageP image;
        image.AddPackageInfo({40, 30, 2, 1, 0});
        image.CreatePackageBuffer();
        ASSERT_TRUE(image.AddData(0, frame->GetImg(), 0) && image.AddData(0, frame->GetImg(), 1) &&
                    image.SaveDebugPackage("D:\\in\\img.dbg"));
        CDebugPackageP general;
        general.InitialPackageBuffer();
        general.AddPackageInfo({0, 1, 1, 1, 0, 0});
        const unsigned char project[] = "project", lz4OfOneZero[] = {0x10, 0x00};
        ASSERT_TRUE(general.AddData(0, const_cast<unsigned char*>(project), 0, 7) &&
                    general.AddData(0, const_cast<unsigned char*>(lz4OfOneZero), 0, 2));
        general.AllocateDebugImgBuffer();
        ASSERT_TRUE(general.SaveDebugPackage("D:\\in\\gen.dbg", true));
        ASSERT_TRUE(DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\vormex"));
        grabsys_test::View view(40, 30, 1, 1, 1, 3, 1);
        CArmImageOutputMemory block;
        ASSERT_TRUE(grabsys_test::WriteViewFile(view, 0, {eCam0}, 1, 1, 3, "D:\\in\\arm\\0.armraw", block));
    }

    grabsys_test::TempDir dir;
};

}  // namespace

TEST_F(ReadFaults, EveryOpenReadAndShortReadOfEveryReaderIsAnErrorNamingTheFile) {
    platform::FaultEnv fault(Env::Default());
    for (const Reader& r : Readers()) {
        fault.Clear();
        const Status clean = r.read(&fault);
        ASSERT_TRUE(clean.ok()) << r.name << ": " << clean.ToString();
        const uint64_t opens = fault.Opens(), reads = fault.Reads();
        ASSERT_GE(opens, 1u) << r.name;
        ASSERT_GE(reads, r.name == "extractor's folder scan" ? 0u : 1u) << r.name;

        struct Fault {
            const char* what;
            uint64_t count;
            void (platform::FaultEnv::*inject)(uint64_t);
        };
        for (const Fault& f : {Fault{"open failing", opens, &platform::FaultEnv::FailOpen},
                               Fault{"read failing", reads, &platform::FaultEnv::FailRead},
                               Fault{"read cut short", reads, &platform::FaultEnv::ShortRead}}) {
            for (uint64_t i = 1; i <= f.count; ++i) {
                const std::string what = r.name + ", " + f.what + ": " + std::to_string(i) + " of " + std::to_string(f.count);
                fault.Clear();
                (fault.*f.inject)(i);
                platform::TrackingEnv call(&fault);
                const Status answer = r.read(&call);
                EXPECT_FALSE(answer.ok()) << what;
                // What the call's own Env heard names the file and the cause,
                // and so does a reader that answers with a Status.
                const Status heard = call.status();
                EXPECT_NE(heard.subject().find(r.file), std::string::npos) << what << ": " << heard.ToString();
                EXPECT_NE(heard.cause().find("injected fault"), std::string::npos) << what << ": " << heard.ToString();
                if (answer.cause() != "refused") {
                    EXPECT_NE(answer.subject().find(r.file), std::string::npos) << what << ": " << answer.ToString();
                }
            }
        }
    }
}
