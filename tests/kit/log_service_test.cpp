#include "kit/log_service.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "common/capture_logger.h"

using qzextensionkit::QZELogService;

namespace {

TEST(LogService, FormatsAndTagsEachLineAndPassesTheLevelUnchanged) {
    auto log = qzetest::CaptureLog();
    QZELogService::GetInstance()->LogMessage(0, "class id:%s, count %d", "{x}", 42);
    QZELogService::GetInstance()->LogMessage(2, "plain");
    QZELogService::GetInstance()->LogMessage(-7, "%s", "negative level");
    ASSERT_EQ(log->lines.size(), 3u);
    EXPECT_EQ(log->lines[0],
              std::make_pair(0, std::string("[QZExtensionKit] class id:{x}, count 42")));
    EXPECT_EQ(log->lines[1], std::make_pair(2, std::string("[QZExtensionKit] plain")));
    EXPECT_EQ(log->lines[2].first, -7);
}

TEST(LogService, EmptyFormatGivesTheTagAlone) {
    auto log = qzetest::CaptureLog();
    QZELogService::GetInstance()->LogMessage(0, "%s", "");
    ASSERT_EQ(log->lines.size(), 1u);
    EXPECT_EQ(log->lines[0].second, "[QZExtensionKit] ");
}

TEST(LogService, HugeMessageArrivesWhole) {
    auto log = qzetest::CaptureLog();
    std::string big(1 << 20, 'x');
    big[12345] = 'y';
    QZELogService::GetInstance()->LogMessage(0, "<%s>", big.c_str());
    ASSERT_EQ(log->lines.size(), 1u);
    EXPECT_EQ(log->lines[0].second, "[QZExtensionKit] <" + big + ">");
}

TEST(LogService, FormatErrorStillReachesTheSinkWithItsLevel) {
    auto log = qzetest::CaptureLog();
    const char* noFormat = nullptr;
    QZELogService::GetInstance()->LogMessage(3, noFormat);
#if !defined(_WIN32)
    // A wide character that the C locale cannot convert makes glibc's
    // counting print fail. (The Windows C runtime drops such a character
    // instead of failing, so there is no such case there.)
    wchar_t bad[] = {static_cast<wchar_t>(0x4E2D), 0};
    QZELogService::GetInstance()->LogMessage(4, "%ls", bad);
#endif
    auto lines = log->lines;
    ASSERT_FALSE(lines.empty());
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].first, 3 + static_cast<int>(i));
        EXPECT_EQ(lines[i].second, "[QZExtensionKit] log format error!!!");
    }
}

TEST(LogService, NullSinkIsRefusedAndThePresentOneKept) {
    auto log = qzetest::CaptureLog();
    EXPECT_FALSE(QZELogService::GetInstance()->RegisterLogger(nullptr));
    QZELogService::GetInstance()->LogMessage(0, "still here");
    EXPECT_TRUE(log->Contains("[QZExtensionKit] still here"));
    EXPECT_EQ(log->destroyed, 0);
}

TEST(LogService, ReplacingTheSinkDestroysTheOldOneBeforeReturning) {
    auto first = qzetest::CaptureLog();
    QZELogService::GetInstance()->LogMessage(0, "to first");
    auto second = std::make_shared<qzetest::CapturedLines>();
    EXPECT_TRUE(QZELogService::GetInstance()->RegisterLogger(new qzetest::CaptureLogger(second)));
    EXPECT_EQ(first->destroyed, 1);
    QZELogService::GetInstance()->LogMessage(0, "to second");
    EXPECT_EQ(first->lines.size(), 1u);
    ASSERT_EQ(second->lines.size(), 1u);
    EXPECT_EQ(second->lines[0].second, "[QZExtensionKit] to second");
}

TEST(LogService, IsOneObjectPerProcess) {
    EXPECT_EQ(QZELogService::GetInstance(), QZELogService::GetInstance());
}

}  // namespace
