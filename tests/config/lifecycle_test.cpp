#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "common/capture_logger.h"
#include "config/configuration_manager_impl.h"
#include "config/extension_auth_info.h"
#include "config/support/installation.h"
#include "kit/qzextensionkit.h"
#include "model/extension.h"

namespace qzextensionkit {

// Reaches what no public operation shows: the adapter mapping kept between
// loads, the auth records, and the debug reader that nothing calls.
class QZEConfigurationManagerImplTestPeer {
public:
    static bool HasMappingEntry(QZEConfigurationManagerImpl& manager, const std::string& point) {
        return manager.GetAdapterMappingEntry(point) != nullptr;
    }
    static std::vector<std::string> AuthInfos(QZEConfigurationManagerImpl& manager) {
        std::vector<std::string> texts;
        for (auto& info : manager.extensionAuthInfos) {
            texts.push_back(info->GetHost() + "|" + info->GetBundleId() + "|" +
                            info->GetAccessKey());
        }
        return texts;
    }
    static void HandleDebug(QZEConfigurationManagerImpl& manager) {
        manager.HandleDebugExtensionConfigurations(
            [&](const std::string& id) { return manager.GetAdapterMappingEntry(id); },
            [&](const std::string& id) { return manager.FindAdapterExtensionPoint(id); });
    }
};

namespace {

using Peer = QZEConfigurationManagerImplTestPeer;
using qzetest::LoadedSample;

std::size_t CountRecords(IQZEConfigurationManager& manager) {
    std::vector<Extension*> records;
    manager.GetAllExtensionInfos(records);
    return records.size();
}

TEST_F(LoadedSample, UnloadEmptiesTheTablesButKeepsModulesAndMapping) {
    EXPECT_EQ(CountRecords(manager), 13u);
    EXPECT_EQ(Peer::AuthInfos(manager),
              (std::vector<std::string>{"https://a.example.com:8443|web|k1",
                                        "https://b.example.com|web|k2", "|native|k3"}));

    // A second load without unloading adds the bundles again, but no record
    // twice and no second derived record.
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    EXPECT_EQ(artifacts.size(), 14u);
    EXPECT_EQ(CountRecords(manager), 13u);

    log->Clear();
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
    EXPECT_EQ(qzetest::Joined(*log), "unload all extension infos success");
    artifacts.clear();
    manager.GetAllArtifacts(artifacts);
    EXPECT_TRUE(artifacts.empty());
    EXPECT_EQ(CountRecords(manager), 0u);
    EXPECT_TRUE(Peer::AuthInfos(manager).empty());
    EXPECT_TRUE(qzetest::InForce(manager, "host.menu").empty());

    bool enabled = false;
    EXPECT_TRUE(manager.IsModuleEnabled(kModuleCore, enabled));
    EXPECT_TRUE(enabled);
    EXPECT_TRUE(Peer::HasMappingEntry(manager, "host.menu"));
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
}

TEST_F(LoadedSample, DebugReaderStandsReadyButNothingCallsIt) {
    install.Remove("vplus-toolkit-extension.json");
    Peer::HandleDebug(manager);
    install.Write("vplus-toolkit-extension.json", "[1,]");
    Peer::HandleDebug(manager);
    const std::string failed = "handle debug extension configurations failed, becuase of ";
    EXPECT_EQ(qzetest::Joined(*log),
              failed + "debug_extension_configuration.json file path not exist\n" + failed +
                  "read debug_extension_configuration.json failed, Line: 1, column: 4, Trailing "
                  "comma not allowed.");

    // The binding at index i reads extension i, once per extension it has.
    install.Write("vplus-toolkit-extension.json", R"({
        "extensionAuths": {"https://d.example.com": {"bundleId": "dbg"}, "e": {"bundleId": ""}},
        "extensionBindings": [
            {"extensionPointId": "host.menu", "extensions": [
                {"payloads": [{"key": "p", "value": "first"}, {"key": "q", "value": ""}],
                 "settingMap": {"uri": "/x"}}, {"payloads": [{"key": "p", "value": "second"}]}]},
            {"extensionPointId": "host.menu", "extensions": [{"payloads": []}]}]})");
    Peer::HandleDebug(manager);
    auto records = qzetest::InForce(manager, "adapter.web");
    ASSERT_EQ(records.size(), 5u);  // three from the load, two from the debug file
    EXPECT_EQ(qzetest::Describe(*records[3]), "9.9|{CLS}|{POINT-IID}|single||p=first;||,,,/x");
    EXPECT_EQ(qzetest::Describe(*records[4]), qzetest::Describe(*records[3]));
    EXPECT_EQ(Peer::AuthInfos(manager).back(), "https://d.example.com|dbg|");
}

TEST(ConfigurationLifecycle, DebugModeAndTheDebugFileChangeNoLoad) {
    qzetest::Installation install;
    qzetest::WriteSampleInstallation(install);
    install.Write("vplus-toolkit-extension.json", R"({"extensionBindings": [
        {"extensionPointId": "host.menu", "extensions": [{}]}]})");
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.SetDebugModeEnable(true));
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    EXPECT_EQ(CountRecords(manager), 13u);
}

TEST(ConfigurationLifecycle, InitSdkPutsTheSharedImplementationBehindTheFacade) {
    QZExtensionKit::InitSDK();
    QZEConfigurationManager::GetInstance()->UnInitialize();
    QZExtensionKit::InitSDK();
    auto log = qzetest::CaptureLog();
    EXPECT_FALSE(QZEConfigurationManager::GetInstance()->SetSecKey("short"));
    EXPECT_EQ(qzetest::Joined(*log),
              "set sec key failed, becuase of the length of key is not equal to 32");
    EXPECT_EQ(QZEConfigurationManagerImpl::GetInstance(),
              QZEConfigurationManagerImpl::GetInstance());
}

}  // namespace
}  // namespace qzextensionkit
