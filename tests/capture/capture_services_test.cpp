#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "../arm/arm_test_support.h"
#include "fringe.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/capture/capture_reader.h"
#include "grabsystem/capture/describe.h"
#include "grabsystem/capture/file_kind.h"
#include "grabsystem/capture/heads.h"
#include "grabsystem/capture/image_file.h"
#include "grabsystem/capture/package_writer.h"
#include "grabsystem/capture/single_file.h"
#include "grabsystem/debug_package/debug_package_exporter.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/fault_env.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/tracking_env.h"
#include "test_support.h"

using namespace GrabSystem;
using namespace GrabSystem::capture;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::Tree;
using grabsys_test::WriteAll;

namespace {

// One file of every kind, written by the library into D:\files.
class CaptureFiles : public ::testing::Test {
protected:
    void SetUp() override {
        DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\files");
        view = std::make_unique<grabsys_test::View>(24, 16, 2, 1, 2, 3, 2);
        CArmImageOutputMemory block;
        ASSERT_TRUE(grabsys_test::WriteViewFile(*view, 3, {eCam0, eCamIdx(11)}, 1, 2, 3, "D:\\files\\3.armraw", block));
        for (int i = 0; i < 4; ++i) {
            frames.emplace_back(24 * 16);
            grabsys_test::FillFringe(frames.back().data(), 24, 16, 8, i, static_cast<uint32_t>(i));
        }
        run.info = CDebugPackageInfoP{5, 24, 16, 4, 2, 1};
        for (const auto& f : frames) run.frames.push_back(f.data());
        ASSERT_TRUE(WriteImagePackage("D:\\files\\image.dbg", {run}, 9).ok());
        const std::string project = "project";
        const format::Bytes projectBytes(reinterpret_cast<const uint8_t*>(project.data()), project.size());
        ASSERT_TRUE(WriteGeneralPackage("D:\\files\\general.dbg", {run}, &projectBytes).ok());
        CImg8P img;
        img.SetSize(24, 16, 1, false);
        std::memcpy(img.GetImg(), frames[0].data(), frames[0].size());
        img.GetInfo().camIdx = eCam4;
        img.SaveFile("D:\\files\\frame.raw", VormexDataStructure::eImgFmtRaw);
        img.SaveBmp("D:\\files\\frame.bmp");
        CImgFloatP values;
        values.SetSize(5, 3, 1, false);
        values.SaveToRaw("D:\\files\\values.fraw");
        CImgDoubleP doubles;
        doubles.SetSize(5, 3, 1, false);
        doubles.SaveToRaw("D:\\files\\values.draw");
    }

    std::vector<unsigned char> Bytes(const std::string& name) { return ReadAll(dir.File("D/files/" + name)); }
    void Put(const std::string& name, const std::vector<unsigned char>& bytes) { WriteAll(dir.File("D/files/" + name), bytes); }
    FileKind Kind(const std::string& name, const std::vector<unsigned char>& bytes) {
        return IdentifyFile(name, format::Bytes(bytes.data(), bytes.size()));
    }

    TempDir dir;
    std::unique_ptr<grabsys_test::View> view;
    std::vector<std::vector<uint8_t>> frames;
    FrameRun run;
};

}  // namespace

TEST_F(CaptureFiles, EveryKindIsToldByItsBytesAndClaimedByNameOrHeadOnlyWhenNoneMatches) {
    const std::pair<const char*, FileKind> kinds[] = {
        {"3.armraw", FileKind::kArmView},         {"image.dbg", FileKind::kImagePackage},
        {"general.dbg", FileKind::kGeneralPackage}, {"frame.raw", FileKind::kRawImage},
        {"frame.bmp", FileKind::kBmpImage},       {"values.fraw", FileKind::kFloatRaw},
        {"values.draw", FileKind::kDoubleRaw},
    };
    for (const auto& [name, kind] : kinds) {
        EXPECT_EQ(Kind(name, Bytes(name)), kind) << name;
        // The name decides nothing when the bytes speak.
        EXPECT_EQ(Kind("renamed.dat", Bytes(name)), kind) << name;
    }
    EXPECT_EQ(Kind("x.armraw", Bytes("frame.bmp")), FileKind::kBmpImage);
    // Damaged files are claimed, so that reading them says why.
    const auto view = Bytes("3.armraw");
    EXPECT_EQ(Kind("3.armraw", {view.begin(), view.begin() + 100}), FileKind::kArmView);
    const auto general = Bytes("general.dbg");
    EXPECT_EQ(Kind("cut.dbg", {general.begin(), general.begin() + 40}), FileKind::kGeneralPackage);
    EXPECT_EQ(Kind("cut.raw", {0, 0, 0}), FileKind::kRawImage);
    EXPECT_EQ(Kind("notes.txt", {'h', 'i', '!', '\n'}), FileKind::kUnknown);
    EXPECT_STREQ(FileKindName(FileKind::kFloatRaw), "float raw");
    EXPECT_STREQ(ImageFormatName(VormexDataStructure::eImgFmtFFC), "flat-field table");

    // A float raw is exactly its geometry's values: one byte more and it is
    // no longer one.
    auto values = Bytes("values.fraw");
    EXPECT_EQ(ValueRawBytes(format::Bytes(values.data(), values.size())), 4u);
    values.push_back(0);
    EXPECT_EQ(ValueRawBytes(format::Bytes(values.data(), values.size())), 0u);
}

TEST_F(CaptureFiles, DescriptionsNameTheHeadersFieldsAndTheCauseOfADamagedFile) {
    auto describe = [&](const std::string& name, const std::vector<unsigned char>& bytes, FileDescription& d) {
        return DescribeFile(name, format::Bytes(bytes.data(), bytes.size()), d);
    };
    auto text = [](const FileDescription& d, const std::string& key) {
        for (const auto& f : d.fields)
            if (f.key == key) return f.isText ? f.text : std::to_string(static_cast<long long>(f.number));
        return std::string("(none)");
    };
    FileDescription d;
    ASSERT_TRUE(describe("3.armraw", Bytes("3.armraw"), d).ok());
    EXPECT_EQ(text(d, "type"), "arm view (.armraw)");
    EXPECT_EQ(text(d, "sin_frames"), "12");
    EXPECT_EQ(text(d, "complete"), "yes");
    EXPECT_EQ(d.records.size(), 14u);
    ASSERT_TRUE(describe("general.dbg", Bytes("general.dbg"), d).ok());
    EXPECT_EQ(text(d, "project_file_bytes"), "7");
    EXPECT_EQ(text(d, "frame_blocks"), "4");
    ASSERT_TRUE(describe("frame.raw", Bytes("frame.raw"), d).ok());
    EXPECT_EQ(text(d, "camera"), "4");
    ASSERT_TRUE(describe("values.draw", Bytes("values.draw"), d).ok());
    EXPECT_EQ(text(d, "value_bytes"), "8");

    const auto image = Bytes("image.dbg");
    Status status = describe("cut.dbg", {image.begin(), image.begin() + 30}, d);
    EXPECT_TRUE(status.IsCorruption());
    EXPECT_EQ(status.ToString(), "cut.dbg: image package: truncated");
    status = describe("notes.txt", {'h', 'i'}, d);
    EXPECT_NE(status.ToString().find("notes.txt: not a file of this system"), std::string::npos) << status.ToString();
}

TEST_F(CaptureFiles, ImagesLoadIntoTheClassOfTheirDepthOrSayWhyNot) {
    std::unique_ptr<IImgP> img;
    ASSERT_TRUE(ReadImageFile("D:\\files\\frame.raw", img).ok());
    EXPECT_EQ(img->GetInfo().camIdx, 4u);
    EXPECT_EQ(std::vector<uint8_t>(img->GetImg(), img->GetImg() + frames[0].size()), frames[0]);
    ASSERT_TRUE(ReadImageFile("D:\\files\\frame.bmp", img).ok());
    EXPECT_NE(dynamic_cast<CImg8P*>(img.get()), nullptr);
    ASSERT_TRUE(ReadValueRawFile("D:\\files\\values.draw", 0, img).ok());
    EXPECT_NE(dynamic_cast<CImgDoubleP*>(img.get()), nullptr);
    ASSERT_TRUE(ReadValueRawFile("D:\\files\\values.fraw", 0, img).ok());
    EXPECT_NE(dynamic_cast<CImgFloatP*>(img.get()), nullptr);

    Status status = ReadImageFile("D:\\files\\3.armraw", img);
    EXPECT_EQ(status.cause(), "arm view file, not a raw or BMP image");
    auto raw = Bytes("frame.raw");
    Put("cut.raw", {raw.begin(), raw.begin() + 100});
    status = ReadImageFile("D:\\files\\cut.raw", img);
    EXPECT_EQ(status.cause(), "raw image: the pixels end early");
    status = ReadValueRawFile("D:\\files\\values.fraw", 8, img);
    EXPECT_EQ(status.cause(), "float raw: 60 bytes of values for 5 x 3 x 1");
    EXPECT_TRUE(ReadImageFile("D:\\files\\missing.raw", img).IsNotFound());

    // A read that fails on the way names the file's own error.
    platform::FaultEnv faults(platform::Env::Default());
    faults.FailRead(1);
    status = ReadImageFile("D:\\files\\frame.raw", img, &faults);
    EXPECT_TRUE(status.IsIOError()) << status.ToString();
    EXPECT_NE(status.ToString().find("frame.raw"), std::string::npos) << status.ToString();
}

TEST_F(CaptureFiles, HeadsAreReadWithoutTheRestOfTheFile) {
    ArmHead arm;
    ASSERT_TRUE(ReadArmHead("D:\\files\\3.armraw", arm).ok());
    EXPECT_EQ(arm.cameras, (std::vector<int>{0, 11}));
    EXPECT_EQ(arm.fileBytes, Bytes("3.armraw").size());
    auto bytes = Bytes("3.armraw");
    Put("5.armraw", {bytes.begin(), bytes.begin() + 1000});
    EXPECT_EQ(ReadArmHead("D:\\files\\5.armraw", arm).cause(), "arm view: truncated header");
    EXPECT_EQ(arm.fileBytes, 1000u);
    bytes[20] = 0xFF;  // a camera count of -1 wherever the rest is
    bytes[21] = bytes[22] = bytes[23] = 0xFF;
    Put("6.armraw", bytes);
    EXPECT_EQ(ReadArmHead("D:\\files\\6.armraw", arm).cause(), "arm view: camera count -1 outside 0..988");

    PackageHead head;
    ASSERT_TRUE(ReadPackageHead("D:\\files\\image.dbg", head).ok());
    EXPECT_FALSE(head.general);
    EXPECT_EQ(head.jumpIdx, 9u);
    ASSERT_EQ(head.records.size(), 1u);
    EXPECT_EQ(head.records[0].JumpIdx, 9u);  // the head's, as ReadPackage gives it
    ASSERT_TRUE(ReadPackageHead("D:\\files\\general.dbg", head).ok());
    EXPECT_TRUE(head.general && head.projectFile);
    EXPECT_EQ(head.records[0].JumpIdx, 5u);
    const auto general = Bytes("general.dbg");
    Put("cut.dbg", {general.begin(), general.begin() + 20});
    EXPECT_EQ(ReadPackageHead("D:\\files\\cut.dbg", head).cause(), "general package: the file ends inside its 1 records");
}

TEST_F(CaptureFiles, PackagesFromFramesAreTheSystemsOwnAndRefuseWhatTheFormatCannotHold) {
    PackageContent content;
    ASSERT_TRUE(ReadPackage("D:\\files\\general.dbg", content).ok());
    ASSERT_EQ(content.runs.size(), 1u);
    EXPECT_EQ(std::vector<uint8_t>(content.runs[0].frames.Frame(3), content.runs[0].frames.Frame(3) + 24 * 16), frames[3]);
    ASSERT_TRUE(ReadPackage("D:\\files\\image.dbg", content).ok());
    EXPECT_EQ(std::vector<uint8_t>(content.runs[0].frames.Frame(1), content.runs[0].frames.Frame(1) + 24 * 16), frames[1]);

    // The image form places run i's frames at FrameCount x i frames: a
    // second run of fewer frames would overwrite the first one's.
    FrameRun shorter = run;
    shorter.info.FrameCount = 2;
    shorter.frames.resize(2);
    Status status = WriteImagePackage("D:\\files\\bad.dbg", {run, shorter}, 0);
    EXPECT_TRUE(status.IsInvalidArgument());
    EXPECT_NE(status.cause().find("run 1 does not fit"), std::string::npos) << status.ToString();
    shorter.info.FrameCount = 3;  // a record that disagrees with its frames
    EXPECT_TRUE(WriteGeneralPackage("D:\\files\\bad.dbg", {shorter}, nullptr).IsInvalidArgument());
    EXPECT_TRUE(WriteGeneralPackage("D:\\files\\bad.dbg", {}, nullptr).IsInvalidArgument());
    EXPECT_FALSE(std::filesystem::exists(dir.File("D/files/bad.dbg")));

    // A failed write leaves no package and says so through the Env.
    platform::FaultEnv faults(platform::Env::Default());
    platform::TrackingEnv files(&faults);
    faults.FillDiskAfter(100);
    status = WriteImagePackage("D:\\files\\full.dbg", {run}, 0, &files);
    EXPECT_FALSE(files.ok());
    EXPECT_NE(files.status().ToString().find("full.dbg"), std::string::npos) << files.status().ToString();
    EXPECT_FALSE(std::filesystem::exists(dir.File("D/files/full.dbg")));
}

TEST_F(CaptureFiles, OneFileAtATimeWritesWhatTheWholeRunWrites) {
    // A package alone, as ExprotPackage exports it.
    ASSERT_TRUE(ExportOnePackage("D:\\files\\image.dbg", -1, "").ok());
    const auto one = Tree(dir.File("D/ImgTest"));
    std::filesystem::remove_all(dir.File("D/ImgTest"));
    CDebugPackageExporterP exporter;
    ASSERT_TRUE(exporter.ExprotPackage({"D:\\files\\image.dbg"}));
    EXPECT_EQ(Tree(dir.File("D/ImgTest")), one);
    EXPECT_EQ(one.size(), 4u);
    // Entry 1 of a list: its folders carry the position.
    ASSERT_TRUE(ExportOnePackage("D:\\files\\image.dbg", 1, "D:\\files\\image.dbg").ok());
    EXPECT_EQ(Tree(dir.File("D/ImgTest/CamImgInput/Cam2_1")).size(), 4u);
    // As a list reads a general package's frames, from the first block's
    // length (the project file's here), they stop at once: said, not lost.
    const Status listed = ExportOnePackage("D:\\files\\general.dbg", 1, "D:\\files\\general.dbg");
    EXPECT_NE(listed.cause().find("the export stopped at a frame that does not decompress"), std::string::npos)
        << listed.ToString();
    // A package that does not load says why, as the strict reader sees it.
    const Status status = ExportOnePackage("D:\\files\\missing.dbg", -1, "");
    EXPECT_TRUE(status.IsCorruption());
    EXPECT_NE(status.ToString().find("missing.dbg: no such file"), std::string::npos) << status.ToString();
    EXPECT_TRUE(ImportProjectFile("D:\\files\\general.dbg").ok());
    EXPECT_EQ(ReadAll(dir.File("D/vormex/importTmp.fpz")), (std::vector<unsigned char>{'p', 'r', 'o', 'j', 'e', 'c', 't'}));

    // A view file, as the extractor extracts it from its folder.
    ASSERT_TRUE(ExtractViewFile("D:\\files\\3.armraw", "D:\\one", 1).ok());
    ArmImageExtractor extractor;
    ASSERT_TRUE(extractor.ExtractView({3, "D:\\files\\", "D:\\all\\", 1}));
    EXPECT_EQ(Tree(dir.File("D/one")), Tree(dir.File("D/all")));
    EXPECT_EQ(ExtractViewFile("D:\\files\\image.dbg", "D:\\one", 1).cause(),
              "not a view file: its name is not <view number>.armraw");
}

TEST(TemporaryFiles, TheEnvNamesThemAndKnowsThemAgain) {
    const std::string name = platform::TemporaryFileName("D:\\out\\frame.bmp");
    EXPECT_EQ(name.rfind("D:\\out\\frame.bmp.tmp-", 0), 0u) << name;
    EXPECT_NE(platform::TemporaryFileName("a"), platform::TemporaryFileName("a"));
    EXPECT_TRUE(platform::IsTemporaryFileName(name.substr(name.find_last_of('\\') + 1)));
    for (const char* other : {"frame.bmp", ".tmp-1-2", "frame.tmp-1", "frame.tmp-1-", "frame.tmp-1-2x", "frame.tmp-a-2"})
        EXPECT_FALSE(platform::IsTemporaryFileName(other)) << other;
    EXPECT_TRUE(platform::IsTemporaryFileName("a.tmp-1-2.tmp-33-4"));
}
