#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "grabsystem/platform/logger/logger.h"

using namespace PelvaneSpace;

TEST(Logger, RecordsFormatLikePrintfAndCutLongText) {
    CMsgLogP line(eLogTagOutcome, "%d>Push #%lld done", 3, 12345678901LL);
    EXPECT_EQ(line.GetTag(), 1);
    EXPECT_STREQ(line.GetText(), "3>Push #12345678901 done");
    CMsgLogP sized(eLogTagDetail, "%d>Assign %0.2f KB", 1, 1536 / 1024.0);
    EXPECT_STREQ(sized.GetText(), "1>Assign 1.50 KB");
    const std::string longText(1000, 'x');
    CMsgLogP cut(eLogTagDetail, "%s", longText.c_str());
    EXPECT_EQ(std::string(cut.GetText()), longText.substr(0, CMsgLogP::kMaxText - 1));
}

TEST(Logger, ManagersAndLoggerDeliverOnlyToAnInstalledSink) {
    CMsgLogMngP mng;
    CMsgLogP line(eLogTagOutcome, "x");
    EXPECT_FALSE(mng.AddLog(line));
    std::vector<std::string> got;
    mng.SetSink([&](const CMsgLogP& l) { got.push_back(l.GetText()); });
    EXPECT_TRUE(mng.AddLog(line));
    EXPECT_EQ(got, std::vector<std::string>{"x"});

    Logger* logger = Logger::GetInstance();
    EXPECT_EQ(logger, Logger::GetInstance());
    logger->Info(2, "dropped");
    std::vector<std::pair<int, std::string>> infos;
    logger->SetSink([&](int kind, const std::string& text) { infos.emplace_back(kind, text); });
    logger->Info(2, "SaveDebugPackage Start");
    logger->SetSink(nullptr);
    logger->Info(2, "dropped too");
    ASSERT_EQ(infos.size(), 1u);
    EXPECT_EQ(infos[0], std::make_pair(2, std::string("SaveDebugPackage Start")));
}
