#include <gtest/gtest.h>

#include "common/capture_logger.h"
#include "kit/qzextensionkit.h"

namespace qzextensionkit {

namespace {

TEST(ExtensionManagerFacade, EmptyFacadeLogsEachOperationsMessageAtLevelZeroAndFails) {
    QZExtensionManager* facade = QZExtensionManager::GetInstance();
    facade->UnInitialize();
    auto log = qzetest::CaptureLog();
    void* p = nullptr;
    std::vector<void*> list;
    const ExtensionCreator creator = [](auto&&...) { return true; };
    // Each call runs, in order, while all fail.
    EXPECT_FALSE(
        (facade->SetFoundationVersion("1.2.3"), false) || facade->Load() || facade->Unload() ||
        facade->GetExtension("p", &p) || facade->GetExtensionList("p", list) ||
        facade->GetExtensionById("e", &p) || facade->unRegisterExtension("c") ||
        facade->RegisterExtension(creator, "c", true) || facade->GetLibFileVerifyEnable() ||
        (facade->SetLibFileVerifyEnable(true), false) || facade->GetSignVerifyEnable() ||
        (facade->SetSignVerifyEnable(true), false) || facade->SetSecKey(std::string(32, 'k')) ||
        facade->SetDebugModeEnable(true) ||
        (facade->SetFetchExtensionAuthInfoCallback(nullptr), false));
    std::vector<std::pair<int, std::string>> want;
    for (const char* what :
         {"set foundation version (1.2.3)", "load", "unload", "get extension by extension point id",
          "get extension list by extension point id", "get extension by extension id",
          "unregister extension", "register extension"}) {
        want.emplace_back(0, "[QZExtensionKit] extension manager " + std::string(what) +
                                 " failed, because of extension manager impl is null");
    }
    // The seven settings after it share the registration message.
    want.insert(want.end(), 7, want.back());
    EXPECT_EQ(log->lines, want);
}

// InitSDK again, after UnInitialize too, brings back the same implementation
// with its settings.
TEST(ExtensionManagerFacade, InitSdkRestoresTheImplementationAfterUnInitialize) {
    QZExtensionKit::InitSDK();
    QZExtensionManager* facade = QZExtensionManager::GetInstance();
    facade->SetLibFileVerifyEnable(true);
    facade->UnInitialize();
    EXPECT_FALSE(facade->GetLibFileVerifyEnable());
    QZExtensionKit::InitSDK();
    QZExtensionKit::InitSDK();
    EXPECT_TRUE(facade->GetLibFileVerifyEnable());
    facade->SetLibFileVerifyEnable(false);
}

}  // namespace
}  // namespace qzextensionkit
