#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "grabsystem/format/binary_io.h"
#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/win_helper.h"
#include "test_support.h"

using namespace DrasselSpace;
using grabsys_test::TempDir;

TEST(FileTool, SavesLoadsAndCreatesThroughDrivePaths) {
    TempDir dir;
    std::vector<unsigned char> data{1, 2, 3, 4, 5};
    EXPECT_FALSE(FileToolP::SaveDataToFile("D:\\a\\b\\f.bin", data.data(), data.size()));  // no folder yet
    EXPECT_FALSE(FileToolP::IsDirectoryExists("D:\\a\\b"));
    ASSERT_TRUE(FileToolP::CreateDirectoryRecursively("D://a//b//"));
    EXPECT_TRUE(CWinHelper::IsDirectoryExists("D:\\a\\b\\"));
    ASSERT_TRUE(FileToolP::SaveDataToFile("D:\\a\\b\\f.bin", data.data(), data.size()));
    EXPECT_TRUE(FileToolP::FileExists(dir.File("D/a/b/f.bin")));
    EXPECT_FALSE(FileToolP::FileExists("D:\\a\\b"));  // a folder is not a file

    unsigned char* loaded = nullptr;
    unsigned long long size = 0;
    ASSERT_TRUE(FileToolP::LoadDataFromFile("D:\\a\\b\\f.bin", loaded, size));
    EXPECT_EQ(std::vector<unsigned char>(loaded, loaded + size), data);
    delete[] loaded;
    EXPECT_FALSE(FileToolP::LoadDataFromFile("D:\\a\\missing", loaded, size));
    EXPECT_EQ(loaded, nullptr);
    EXPECT_EQ(size, 0u);

    // A folder that is a file cannot be created.
    EXPECT_FALSE(FileToolP::CreateDirectoryRecursively("D:\\a\\b\\f.bin\\sub"));
}

TEST(FileTool, ListsFilesAndSplitsNames) {
    TempDir dir;
    FileToolP::CreateDirectoryRecursively("D:\\arm\\sub");
    unsigned char byte = 0;
    for (const char* name : {"3.armraw", "7.armraw", "notes.txt"})
        FileToolP::SaveDataToFile(std::string("D:\\arm\\") + name, &byte, 1);
    std::vector<std::string> paths;
    ASSERT_TRUE(CWinHelper::GetDirectoryAllFilePath("D:\\arm", paths));
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, (std::vector<std::string>{"D:\\arm\\3.armraw", "D:\\arm\\7.armraw", "D:\\arm\\notes.txt"}));
    EXPECT_FALSE(CWinHelper::GetDirectoryAllFilePath("D:\\nowhere", paths));

    EXPECT_EQ(CWinHelper::GetFileExtension("D:\\arm\\12.armraw"), ".armraw");
    EXPECT_EQ(CWinHelper::GetFileExtension("D:\\dir.x\\name"), "");
    EXPECT_EQ(CWinHelper::GetFileExtension("img.tar.bmp"), ".bmp");
    EXPECT_EQ(CWinHelper::GetFileNameWithoutExtension("D:\\arm\\12.armraw"), "12");
    EXPECT_EQ(CWinHelper::GetFileNameWithoutExtension("a/b/noext"), "noext");
    EXPECT_TRUE(StringToolP::IsNumber("0123"));
    EXPECT_FALSE(StringToolP::IsNumber(""));
    EXPECT_FALSE(StringToolP::IsNumber("12a"));
    EXPECT_FALSE(StringToolP::IsNumber("-1"));
}

TEST(BinaryIo, WritesAndReadsLittleEndianAndStopsAtTheEnd) {
    TempDir dir;
    FileToolP::CreateDirectoryRecursively("D:\\");
    BinaryWriter writer;
    ASSERT_TRUE(writer.Open("D:\\bin.dat"));
    writer.WriteUInt(0x11223344u);
    const unsigned char tail[3] = {9, 8, 7};
    writer.Write(tail, 3);
    ASSERT_TRUE(writer.Close());
    EXPECT_EQ(grabsys_test::ReadAll(dir.File("D/bin.dat")),
              (std::vector<unsigned char>{0x44, 0x33, 0x22, 0x11, 9, 8, 7}));

    BinaryReader reader;
    ASSERT_NE(reader.Open("D:\\bin.dat"), 0);
    EXPECT_EQ(reader.ReadUInt(), 0x11223344u);
    EXPECT_EQ(reader.Remaining(), 3u);
    unsigned char got[5] = {0, 0, 0, 0, 0xEE};
    EXPECT_EQ(reader.ReadByteArray(got, 4), 3u);
    EXPECT_EQ(got[4], 0xEE);  // never past what was asked
    EXPECT_TRUE(reader.Failed());
    EXPECT_EQ(reader.ReadUInt(), 0u);
    reader.Close();
    EXPECT_EQ(reader.Open("D:\\missing"), 0);
}
