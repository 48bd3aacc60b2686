#include "kit/log_service.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/capture_logger.h"

using qzextensionkit::QZELogService;

namespace {

TEST(LogService, FormatsAndTagsEachLineAndPassesTheLevelUnchanged) {
    auto log = qzetest::CaptureLog();
    QZELogService* service = QZELogService::GetInstance();
    const std::string big(1 << 16, 'x');
    const char* noFormat = nullptr;
    service->LogMessage(0, "class id:%s, count %d", "{x}", 42);
    service->LogMessage(-7, "%s", "");
    service->LogMessage(0, "<%s>", big.c_str());
    service->LogMessage(3, noFormat);
    const std::vector<std::pair<int, std::string>> want = {
        {0, "[QZExtensionKit] class id:{x}, count 42"},
        {-7, "[QZExtensionKit] "},
        {0, "[QZExtensionKit] <" + big + ">"},  // no length limit
        {3, "[QZExtensionKit] log format error!!!"},
    };
    EXPECT_EQ(log->lines, want);
}

TEST(LogService, NullSinkIsRefusedAndAReplacedSinkIsDestroyedAtOnce) {
    auto first = qzetest::CaptureLog();
    auto second = std::make_shared<qzetest::CapturedLines>();
    EXPECT_FALSE(QZELogService::GetInstance()->RegisterLogger(nullptr));
    QZELogService::GetInstance()->LogMessage(0, "to first");
    EXPECT_TRUE(QZELogService::GetInstance()->RegisterLogger(new qzetest::CaptureLogger(second)));
    EXPECT_EQ(first->destroyed, 1);
    QZELogService::GetInstance()->LogMessage(0, "to second");
    EXPECT_EQ(first->Texts(), std::vector<std::string>{"[QZExtensionKit] to first"});
    EXPECT_EQ(second->Texts(), std::vector<std::string>{"[QZExtensionKit] to second"});
}

}  // namespace
