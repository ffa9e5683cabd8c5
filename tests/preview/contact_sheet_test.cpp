#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "../arm/arm_test_support.h"
#include "fringe.h"
#include "grabsystem/arm/arm_image_extractor.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/preview/arm_sheet.h"
#include "grabsystem/preview/canvas.h"
#include "grabsystem/preview/contact_sheet.h"
#include "test_support.h"

using namespace GrabSystem;
using namespace GrabSystem::preview;

namespace {

double Mean(const std::vector<uint8_t>& v) {
    double sum = 0;
    for (uint8_t b : v) sum += b;
    return sum / static_cast<double>(v.size());
}

// The mean of the sheet's red channel over a w x h box at (x, y).
double BoxMean(const Sheet& s, uint32_t x, uint32_t y, uint32_t w, uint32_t h) {
    double sum = 0;
    for (uint32_t r = y; r < y + h; ++r)
        for (uint32_t c = x; c < x + w; ++c) sum += s.pixels[(uint64_t{r} * s.width + c) * 3];
    return sum / (double{1} * w * h);
}

}  // namespace

TEST(PreviewSheet, ThumbnailsKeepTheFrameMeanAndSize) {
    uint32_t tw = 0, th = 0;
    ThumbnailSize(1224, 1024, 96, tw, th);
    EXPECT_EQ(tw * 1000 + th, 96u * 1000 + 80);
    ThumbnailSize(10, 5, 96, tw, th);  // never enlarged
    EXPECT_EQ(tw * 1000 + th, 10u * 1000 + 5);
    ThumbnailSize(1, 65535, 96, tw, th);  // at most four cells tall
    EXPECT_EQ(tw * 1000 + th, 1u * 1000 + 384);
    ThumbnailSize(0, 5, 96, tw, th);
    EXPECT_EQ(tw + th, 0u);

    std::mt19937 rng(7);
    const uint32_t sizes[][5] = {{97, 61, 1, 13, 8}, {50, 7, 3, 7, 1}, {1224, 1024, 1, 96, 80}, {5, 5, 1, 5, 5}};
    for (const auto& s : sizes) {
        std::vector<uint8_t> frame(size_t{s[0]} * s[1] * s[2]), thumb(size_t{s[3]} * s[4] * s[2]);
        for (uint8_t& b : frame) b = static_cast<uint8_t>(rng() % 4 == 0 ? 255 : rng() % 256);
        ASSERT_TRUE(Downscale(frame.data(), s[0], s[1], s[2], s[3], s[4], thumb.data()));
        EXPECT_NEAR(Mean(thumb), MeasureFrame(frame.data(), frame.size()).mean, 0.5) << s[0] << " x " << s[1];
        if (s[0] == s[3]) {
            EXPECT_EQ(thumb, frame);  // the same size copies
        }
    }
    // 2 x 2 blocks average to the nearest level.
    const std::vector<uint8_t> quad = {0, 1, 10, 20, 2, 3, 30, 41};
    std::vector<uint8_t> half(2);
    ASSERT_TRUE(Downscale(quad.data(), 4, 2, 1, 2, 1, half.data()));
    EXPECT_EQ(half, (std::vector<uint8_t>{2, 25}));
    EXPECT_FALSE(Downscale(quad.data(), 4, 2, 1, 5, 1, half.data()));
    const FrameStats st = MeasureFrame(quad.data(), quad.size());
    EXPECT_DOUBLE_EQ(st.zeroShare, 1.0 / 8);
    EXPECT_DOUBLE_EQ(st.fullShare, 0);
}

TEST(PreviewSheet, ArmRowsFollowTheExtractedTree) {
    // One camera of index 9, two passes of one group, three phases: both
    // passes write Cam9P\<view>\img0..2 (no renumbering past camera 7), so
    // the tree keeps the second pass; the white frame goes to Cam9P as well.
    std::vector<uint8_t> frames(7 * 4 * 2);
    for (size_t i = 0; i < frames.size(); ++i) frames[i] = static_cast<uint8_t>(10 * (i / 8) + 5);
    capture::ArmViewContent view;
    view.header.version = 2;
    view.header.sinFrameCount = 6;
    view.header.whiteFrameCount = 1;
    view.header.camCount = 1;
    view.header.sinDimA = 2;
    view.header.sinDimB = 1;
    view.header.sinDimC = 3;
    view.header.camTable[0] = 9;
    view.cameras = {9};
    view.sin = capture::FrameStack{4, 2, 6, frames.data()};
    view.white = capture::FrameStack{4, 2, 1, frames.data() + 6 * 8};
    SheetOptions o;
    o.thumbWidth = 8;
    Sheet labelled, plain;
    Status status = RenderArmViewSheet(view, 3, o, labelled);
    ASSERT_TRUE(status.ok()) << status.ToString();
    o.labels = false;
    status = RenderArmViewSheet(view, 3, o, plain);
    ASSERT_TRUE(status.ok()) << status.ToString();
    ASSERT_EQ(labelled.width, kMinSheetWidth);
    ASSERT_EQ(labelled.height, 2 * kMargin + kLineHeight + 2 + kStripHeight + kGap);
    ASSERT_EQ(plain.height, labelled.height);
    const uint32_t y = kMargin + kLineHeight;
    const double expected[] = {35, 45, 55, 65};  // frames 3, 4, 5, then white
    for (uint32_t j = 0; j < 4; ++j) EXPECT_EQ(BoxMean(labelled, kMargin + j * (8 + kGap), y, 4, 2), expected[j]) << j;
    EXPECT_NE(BoxMean(labelled, 0, kMargin, labelled.width, kLineHeight),
              BoxMean(plain, 0, kMargin, plain.width, kLineHeight));

    view.header.camCount = 9;  // more than the extractor takes
    status = RenderArmViewSheet(view, 3, o, labelled);
    EXPECT_TRUE(status.IsCorruption());
    EXPECT_NE(status.cause().find("at most 8"), std::string::npos) << status.ToString();
}

TEST(PreviewSheet, HostileSizesAreRefusedBeforeMemoryIsTaken) {
    Sheet sheet;
    capture::PackageContent package;
    package.runs.resize(1);
    package.runs[0].frames = capture::FrameStack{0, 0, 0xFFFFFFFFu, nullptr};  // frames of nothing cost no bytes
    Status status = RenderPackageSheet(package, SheetOptions(), sheet);
    EXPECT_NE(status.cause().find("limit"), std::string::npos) << status.ToString();

    // 5000 distinct Q frames of one pixel, one to a line: too tall.
    std::vector<uint8_t> frames(10000, 1);
    capture::ArmViewContent view;
    view.header.sinFrameCount = 10000;
    view.header.camCount = 1;
    view.header.sinDimA = 1;
    view.header.sinDimB = 2;
    view.header.sinDimC = 5000;
    view.cameras = {0};
    view.sin = capture::FrameStack{1, 1, 10000, frames.data()};
    SheetOptions o;
    o.perRow = 1;
    status = RenderArmViewSheet(view, 0, o, sheet);
    EXPECT_NE(status.cause().find("passes the limit"), std::string::npos) << status.ToString();
    EXPECT_TRUE(sheet.pixels.empty());
    o.thumbWidth = 4;
    status = RenderArmViewSheet(view, 0, o, sheet);
    EXPECT_TRUE(status.IsInvalidArgument());
    EXPECT_NE(status.cause().find("outside 8..2048"), std::string::npos) << status.ToString();
}

TEST(PreviewSheet, FloatImagesLookAsTheirBmp) {
    grabsys_test::TempDir dir;
    std::filesystem::create_directories(dir.File("D"));
    CImgFloatP img;
    img.SetSize(7, 3, 1, false);
    const float values[21] = {-3.5f, 0, 1e6f, CImgFloatP::kNoData, 2.25f, -1, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                              16,    17, 18, 19,  20,                  21};
    std::memcpy(img.GetImg(), values, sizeof values);
    ASSERT_TRUE(img.SaveToRaw("D:\\f.fraw"));
    img.SaveBmp("D:\\f.bmp");
    const std::vector<unsigned char> bmp = grabsys_test::BmpPixels("D:\\f.bmp");
    ASSERT_EQ(bmp.size(), 21u);
    Sheet sheet;
    const Status status = RenderFileSheet("D:\\f.fraw", SheetOptions(), sheet);
    ASSERT_TRUE(status.ok()) << status.ToString();
    for (uint32_t i = 0; i < 21; ++i)
        EXPECT_EQ(BoxMean(sheet, kMargin + i % 7, kMargin + 3 * kLineHeight + i / 7, 1, 1), bmp[i]) << i;
}

// Where a test of folders by camera index and the extractor's test of the
// whole path would differ, the sheet shows what the extractor writes: the
// same files, each with the frame the extractor put there.
TEST(PreviewSheet, ArmRowsShowExactlyWhatTheExtractorWrites) {
    grabsys_test::TempDir dir;
    DrasselSpace::FileToolP::CreateDirectoryRecursively("D:\\in");
    int viewIdx = 0;
    for (const grabsys_test::OddTree& c : grabsys_test::OddTrees()) {
        SCOPED_TRACE(c.root);
        grabsys_test::View v(12, 6, c.cams, c.a, c.b, c.c, c.whites);
        for (size_t i = 0; i < v.frames.size(); ++i)
            grabsys_test::FillFringe(v.frames[i]->GetImg(), 12, 6, 5, 0.3 * static_cast<double>(i), static_cast<uint32_t>(i));
        const std::string file = "D:\\in\\" + std::to_string(viewIdx) + ".armraw";
        ASSERT_TRUE(grabsys_test::WriteOddView(c, v, viewIdx, file));
        ArmImageExtractor extractor;
        EXPECT_EQ(extractor.ExtractView({viewIdx, "D:\\in\\", c.root, 1}), c.whole);

        capture::ArmViewContent view;
        ASSERT_TRUE(capture::ReadArmView(file, view).ok());
        std::vector<preview::Row> rows;
        std::string error;
        ASSERT_EQ(preview::ArmRows(view, viewIdx, c.root, 8, rows, error), c.whole) << error;
        const std::string rootDir = dir.File("D/" + c.root.substr(3, c.root.size() - 4));
        std::set<std::string> shown;
        for (const preview::Row& row : rows) {
            const std::string folder = "Cam" + row.tag + "/" + std::to_string(viewIdx) + "/";
            for (const preview::FrameRef& f : row.frames) {
                const std::string name = folder + "img" + (f.name == "IMGW" ? "W" : f.name.substr(3)) + ".bmp";
                shown.insert(name);
                EXPECT_EQ(grabsys_test::BmpPixels(rootDir + "/" + name), std::vector<unsigned char>(f.pixels, f.pixels + 72))
                    << name;
            }
        }
        if (c.whole) {
            EXPECT_EQ(shown, grabsys_test::Tree(rootDir));
        }
        ++viewIdx;
    }
}

TEST(PreviewSheet, LabelsDropWholeFieldsAtEveryWidth) {
    // Five glyphs fit 32 pixels: "59 0.0%" keeps its mean and drops the
    // share, never "59 0.".
    EXPECT_EQ(preview::FitFields({"59", "0.0%"}, " ", 32), "59");
    EXPECT_EQ(preview::FitFields({"59", "0.0%"}, " ", 41), "59 0.0%");
    EXPECT_EQ(preview::FitFields({"IMG11"}, " ", 28), "");
    EXPECT_EQ(preview::FitFields({"GENERAL PACKAGE V3", "2 RUNS", "PROJECT FILE 41 BYTES"}, "  ", 248),
              "GENERAL PACKAGE V3  2 RUNS");

    // Whatever the width the tool takes, a label holds only whole fields,
    // and all of them once there is room; the sheet is drawn at each.
    std::vector<uint8_t> frames(4 * 3 * 13, 128);
    capture::ArmViewContent view;
    view.header.sinFrameCount = 12;
    view.header.whiteFrameCount = 1;
    view.header.camCount = 1;
    view.header.sinDimA = view.header.sinDimB = 1;
    view.header.sinDimC = 12;
    view.cameras = {0};
    view.sin = capture::FrameStack{4, 3, 12, frames.data()};
    view.white = capture::FrameStack{4, 3, 1, frames.data() + 12 * 12};
    for (uint32_t width = 8; width <= 2048; width += width < 64 ? 1 : 97) {
        const std::string fitted = preview::FitFields({"128", "12.5%"}, " ", width);
        EXPECT_TRUE(fitted.empty() || fitted == "128" || fitted == "128 12.5%") << width;
        EXPECT_EQ(fitted == "128 12.5%", width >= 6 * 9 - 1) << width;
        preview::SheetOptions o;
        o.thumbWidth = width;
        Sheet sheet;
        ASSERT_TRUE(RenderArmViewSheet(view, 0, o, sheet).ok()) << width;
    }
}
