#include "grabsystem/arm/arm_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "arm_test_support.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "test_support.h"

using namespace GrabSystem;
using grabsys_test::Tree;
using grabsys_test::View;

namespace {

OneViewArmImageDataHeader Header(uint32_t sin, uint32_t white, int cams, int a, int b, int c,
                                 std::vector<uint8_t> table = {}) {
    OneViewArmImageDataHeader h = {};
    h.version = table.empty() ? 1 : 2;
    h.sinFrameCount = sin;
    h.whiteFrameCount = white;
    h.camCount = cams;
    h.sinDimA = a;
    h.sinDimB = b;
    h.sinDimC = c;
    std::copy(table.begin(), table.end(), h.camTable);
    return h;
}

// The files of a tree below its root, as Tree() lists a folder.
std::map<std::string, uint32_t> Files(const ArmTree& tree, const std::string& root) {
    std::map<std::string, uint32_t> files;
    for (const ArmTreeFrame& f : tree.frames) {
        std::string name = f.file.substr(root.size());
        std::replace(name.begin(), name.end(), '\\', '/');
        files[name] = f.frame;  // a later frame overwrites an earlier one's file
    }
    return files;
}

}  // namespace

TEST(ArmTree, NumbersFoldersAndFilesAsTheExtractorWritesThem) {
    // One camera, two groups of twelve, one white frame: the P group starts
    // at 4 and wraps, the Q group keeps its numbers.
    const ArmTree tree = LayOutArmTree(Header(24, 1, 1, 1, 2, 12), 7, "D:\\scan\\");
    ASSERT_TRUE(tree.complete) << tree.error;
    ASSERT_EQ(tree.frames.size(), 25u);
    EXPECT_EQ(tree.frames[0].file, "D:\\scan\\Cam0P\\7\\img4.bmp");
    EXPECT_EQ(tree.frames[8].file, "D:\\scan\\Cam0P\\7\\img0.bmp");
    EXPECT_EQ(tree.frames[11].number, 3);
    EXPECT_EQ(tree.frames[12].file, "D:\\scan\\Cam0Q\\7\\img0.bmp");
    EXPECT_FALSE(tree.frames[23].p);
    EXPECT_EQ(tree.frames[23].number, 11);
    EXPECT_TRUE(tree.frames[24].white);
    EXPECT_EQ(tree.frames[24].file, "D:\\scan\\Cam0P\\7\\imgW.bmp");

    // Version 2 names cameras by the table; past camera 7 nothing is
    // renumbered.
    const ArmTree named = LayOutArmTree(Header(4, 2, 2, 1, 1, 2, {3, 12}), 1, "");
    ASSERT_TRUE(named.complete);
    std::vector<std::string> files;
    for (const ArmTreeFrame& f : named.frames) files.push_back(f.file);
    EXPECT_EQ(files, (std::vector<std::string>{"Cam3P\\1\\img4.bmp", "Cam3P\\1\\img5.bmp", "Cam12P\\1\\img0.bmp",
                                               "Cam12P\\1\\img1.bmp", "Cam3P\\1\\imgW.bmp", "Cam12P\\1\\imgW.bmp"}));

    // A root naming Cam0P..Cam7P renumbers Q folders as well.
    EXPECT_EQ(LayOutArmTree(Header(2, 0, 1, 1, 2, 1), 0, "D:\\Cam0Pruns\\").frames[1].file,
              "D:\\Cam0Pruns\\Cam0Q\\0\\img4.bmp");
    EXPECT_TRUE(IsPFolder("x\\Cam7P\\3\\"));
    EXPECT_FALSE(IsPFolder("x\\Cam8P\\3\\"));
    EXPECT_FALSE(IsPFolder("x\\Cam10P\\3\\"));
    EXPECT_EQ(PFrameNumber(11), 3);
    EXPECT_EQ(PFrameNumber(12), 0);
    EXPECT_EQ(PFrameNumber(-1), 0);
}

TEST(ArmTree, ViewsWithoutATreeSayWhy) {
    ArmTree tree = LayOutArmTree(Header(9, 0, 9, 1, 1, 1), 0, "");
    EXPECT_FALSE(tree.complete);
    EXPECT_TRUE(tree.frames.empty());
    EXPECT_EQ(tree.error, "9 cameras, the extractor takes at most 8");

    tree = LayOutArmTree(Header(3, 0, 1, 1, 1, 0), 0, "");
    EXPECT_FALSE(tree.complete);
    EXPECT_TRUE(tree.frames.empty());

    // Two white frames for one camera: the first is placed, the second has
    // no folder.
    tree = LayOutArmTree(Header(1, 2, 1, 1, 1, 1), 0, "");
    EXPECT_FALSE(tree.complete);
    EXPECT_EQ(tree.frames.size(), 2u);
    EXPECT_EQ(tree.error, "frame 2 lies past the cameras' folders");

    // No frame at all is a whole, empty tree.
    tree = LayOutArmTree(Header(0, 0, 0, 0, 0, 0), 0, "");
    EXPECT_TRUE(tree.complete);
    EXPECT_TRUE(tree.frames.empty());
}

// For trees where the folder test by path and a test by camera index would
// differ, the extractor writes exactly the files of the layout, each with
// the pixels of the frame the layout puts there.
TEST(ArmTree, TheExtractorWritesExactlyTheLaidOutTree) {
    grabsys_test::TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\in");
    int view = 0;
    for (const grabsys_test::OddTree& c : grabsys_test::OddTrees()) {
        SCOPED_TRACE(c.root);
        View v(12, 6, c.cams, c.a, c.b, c.c, c.whites);
        ASSERT_TRUE(grabsys_test::WriteOddView(c, v, view, "D:\\in\\" + std::to_string(view) + ".armraw"));
        const std::vector<unsigned char> bytes = grabsys_test::ReadAll(dir.File("D/in/" + std::to_string(view) + ".armraw"));
        const OneViewArmImageDataHeader header = format::DecodeArmHeader(format::Bytes(bytes.data(), bytes.size()));

        ArmImageExtractor extractor;
        EXPECT_EQ(extractor.ExtractView({view, "D:\\in\\", c.root, 1}), c.whole);
        const ArmTree tree = LayOutArmTree(header, view, c.root);
        EXPECT_EQ(tree.complete, c.whole);
        const std::string rootDir = dir.File("D/" + c.root.substr(3, c.root.size() - 4));
        const std::map<std::string, uint32_t> files = Files(tree, c.root);
        const std::set<std::string> written = Tree(rootDir);
        EXPECT_EQ(written.size(), files.size());
        for (const auto& [name, frame] : files) {
            ASSERT_EQ(written.count(name), 1u) << name;
            const unsigned char* px = v.frames[frame]->GetImg();
            EXPECT_EQ(grabsys_test::BmpPixels(rootDir + "/" + name), std::vector<unsigned char>(px, px + 72)) << name;
        }
        ++view;
    }
}
