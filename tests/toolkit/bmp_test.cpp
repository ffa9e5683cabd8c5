#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "grabsystem/format/image_io_tool.h"
#include "test_support.h"

using namespace DrasselSpace;
using grabsys_test::ReadAll;
using grabsys_test::TempDir;
using grabsys_test::WriteAll;

namespace {

std::vector<unsigned char> Pattern(size_t n, unsigned seed) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 7 + seed);
    return v;
}

struct Decoded {
    bool ok;
    std::unique_ptr<unsigned char[]> pixels;
    unsigned width, height;
    ePixelFormatP format;
};

Decoded Load(const std::string& path) {
    Decoded d{};
    unsigned char* p = nullptr;
    d.ok = ImageIOToolP::LoadBMP(path.c_str(), p, d.width, d.height, d.format);
    d.pixels.reset(p);
    return d;
}

}  // namespace

TEST(Bmp, RoundTripsEveryFormatWithRowPadding) {
    TempDir dir;
    for (ePixelFormatP format : {ePixelFormatGray8, ePixelFormatBGR24, ePixelFormatBGRA32}) {
        for (unsigned width : {1u, 3u, 5u, 64u}) {
            const unsigned height = 7;
            auto pixels = Pattern(size_t{width} * height * format, width);
            const std::string path = dir.File("rt.bmp");
            ASSERT_TRUE(ImageIOToolP::SaveBMP(path.c_str(), pixels.data(), width, height, format));
            const auto bytes = ReadAll(path);
            const size_t stride = (size_t{width} * format * 8 + 31) / 32 * 4;
            EXPECT_EQ(bytes.size(), 54 + (format == 1 ? 1024 : 0) + stride * height);
            Decoded d = Load(path);
            ASSERT_TRUE(d.ok);
            EXPECT_EQ(d.width, width);
            EXPECT_EQ(d.height, height);
            EXPECT_EQ(d.format, format);
            EXPECT_EQ(std::vector<unsigned char>(d.pixels.get(), d.pixels.get() + pixels.size()), pixels);
        }
    }
    unsigned char px = 0;
    EXPECT_FALSE(ImageIOToolP::SaveBMP(dir.File("x.bmp").c_str(), &px, 1, 1, static_cast<ePixelFormatP>(2)));
    EXPECT_FALSE(ImageIOToolP::SaveBMP(dir.File("x.bmp").c_str(), &px, 0, 1, ePixelFormatGray8));
    EXPECT_FALSE(ImageIOToolP::SaveBMP(dir.File("no/such/dir/x.bmp").c_str(), &px, 1, 1, ePixelFormatGray8));
}

TEST(Bmp, ReadsBothRowOrdersAndColourPalettes) {
    TempDir dir;
    auto pixels = Pattern(4 * 3, 1);
    const std::string path = dir.File("td.bmp");
    ASSERT_TRUE(ImageIOToolP::SaveBMP(path.c_str(), pixels.data(), 4, 3, ePixelFormatGray8));
    auto bytes = ReadAll(path);
    int32_t height = 0;
    std::memcpy(&height, &bytes[22], 4);
    EXPECT_EQ(height, -3);  // written top-down
    // Make it bottom-up: positive height, rows in reverse order.
    const int32_t positive = 3;
    std::memcpy(&bytes[22], &positive, 4);
    const size_t off = 54 + 1024;
    std::vector<unsigned char> rows(bytes.begin() + off, bytes.end());
    for (size_t r = 0; r < 3; ++r) std::copy_n(rows.begin() + (2 - r) * 4, 4, bytes.begin() + off + r * 4);
    // A red palette entry becomes its luminance.
    bytes[54 + 4 * pixels[0] + 0] = 0;
    bytes[54 + 4 * pixels[0] + 1] = 0;
    bytes[54 + 4 * pixels[0] + 2] = 255;
    WriteAll(path, bytes);
    Decoded d = Load(path);
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.pixels[0], 76);  // 0.299 x 255
    EXPECT_EQ(std::vector<unsigned char>(d.pixels.get() + 1, d.pixels.get() + 12),
              std::vector<unsigned char>(pixels.begin() + 1, pixels.end()));
}

TEST(Bmp, DamagedFilesGiveFalseAndNoOutput) {
    TempDir dir;
    auto pixels = Pattern(9 * 5, 3);
    const std::string path = dir.File("d.bmp");
    ASSERT_TRUE(ImageIOToolP::SaveBMP(path.c_str(), pixels.data(), 9, 5, ePixelFormatGray8));
    const auto good = ReadAll(path);

    auto expectRefused = [&](const std::vector<unsigned char>& bytes, const char* what) {
        unsigned char* p = reinterpret_cast<unsigned char*>(1);
        unsigned w = 1, h = 1;
        ePixelFormatP f = ePixelFormatGray8;
        EXPECT_FALSE(ImageIOToolP::DecodeBMP(bytes.data(), bytes.size(), p, w, h, f)) << what;
        EXPECT_EQ(p, nullptr) << what;
        EXPECT_EQ(w + h + static_cast<unsigned>(f), 0u) << what;
    };
    for (size_t cut = 0; cut < good.size(); ++cut)
        expectRefused(std::vector<unsigned char>(good.begin(), good.begin() + static_cast<long>(cut)), "truncated");
    auto patch32 = [&](size_t at, uint32_t value) {
        auto bad = good;
        std::memcpy(&bad[at], &value, 4);
        return bad;
    };
    expectRefused(patch32(10, 0xFFFFFFF0u), "offset past the end");
    expectRefused(patch32(10, 20), "offset inside the headers");
    expectRefused(patch32(14, 0x7FFFFFFFu), "info header larger than the file");
    expectRefused(patch32(18, 0), "zero width");
    expectRefused(patch32(18, 0x80000000u), "negative width");
    expectRefused(patch32(18, 100000), "width beyond the pixel data");
    expectRefused(patch32(22, 0x80000000u), "height INT_MIN");
    expectRefused(patch32(22, 60000), "height beyond the pixel data");
    expectRefused(patch32(30, 1), "compressed");
    expectRefused(patch32(28, 4), "4-bit");
    expectRefused(patch32(46, 300), "palette larger than 256");
    auto notBmp = good;
    notBmp[0] = 'X';
    expectRefused(notBmp, "no signature");

    unsigned char* p = nullptr;
    unsigned w = 0, h = 0;
    ePixelFormatP f{};
    EXPECT_FALSE(ImageIOToolP::LoadBMP(dir.File("missing.bmp").c_str(), p, w, h, f));
}

// What this library writes must open in a reader it did not write.
TEST(Bmp, PillowReadsWhatWeWrite) {
    GRABSYS_SKIP_ON_WINDOWS("python3 with Pillow");
    if (std::system("/usr/bin/python3 -c 'import PIL' 2>/dev/null") != 0) GTEST_FAIL() << "python3-pil is not installed";
    TempDir dir;
    std::ofstream manifest(dir.File("manifest.txt"));
    for (ePixelFormatP format : {ePixelFormatGray8, ePixelFormatBGR24}) {
        const unsigned width = 13, height = 6;
        auto pixels = Pattern(size_t{width} * height * format, format);
        const std::string name = "pil" + std::to_string(format) + ".bmp";
        ASSERT_TRUE(ImageIOToolP::SaveBMP(dir.File(name).c_str(), pixels.data(), width, height, format));
        // An information block behind the pixels must not disturb a reader.
        std::ofstream(dir.File(name), std::ios::app | std::ios::binary) << "trailing block";
        manifest << name << ' ' << (format == 1 ? "L" : "RGB") << ' ' << width << ' ' << height;
        for (unsigned char v : pixels) manifest << ' ' << int(v);
        manifest << '\n';
    }
    manifest.close();
    const std::string cmd = "/usr/bin/python3 " GRABSYS_TEST_SOURCE_DIR "/image/check_bmp_with_pillow.py " + dir.Path();
    EXPECT_EQ(std::system(cmd.c_str()), 0);
}
