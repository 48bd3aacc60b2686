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
using qzetest::ConfigLine;
using qzetest::ConfigWithArtifacts;
using qzetest::Installation;
using qzetest::Manifest;

void WriteInstallation(const Installation& install) {
    // A path lookup: "host.menu" is found through nested objects.
    install.WriteMapping(R"({"host": {"menu": {"extensionPointId": "adapter.web"}}})");
    install.WriteConfig(ConfigWithArtifacts({"adapter", "src"}, R"("modules": [{"id": "core"}],
        "ExtensionAuthInfo": {
            "H5": {"https://b.example.com": [{"bundleId": "web", "accessKey": "k2"}],
                   "https://a.example.com:8443": [{"bundleId": "web", "accessKey": "k1"},
                                                 {"bundleId": "web", "accessKey": ""},
                                                 {"bundleId": "", "accessKey": "x"}, {}, 7],
                   "https://c.example.com": "not a list"},
            "Native": [{"bundleId": "native", "accessKey": "k3"}, {"accessKey": "k4"}]})"));
    install.WriteManifest("adapter", Manifest("extension_adapter", "", R"([
        {"id": "adapter.web", "extensions": [{"id": "local"}]}])"));
    install.WriteManifest("src", Manifest("bundle.src", "", R"([
        {"id": "host.menu", "extensions": [{"id": "s1"}]}])"));
}

std::size_t CountRecords(IQZEConfigurationManager& manager) {
    std::vector<Extension*> records;
    manager.GetAllExtensionInfos(records);
    return records.size();
}

TEST(ConfigurationLifecycle, UnloadEmptiesTheTablesButKeepsModulesAndMapping) {
    Installation install;
    WriteInstallation(install);
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    EXPECT_EQ(CountRecords(manager), 3u);
    EXPECT_EQ(Peer::AuthInfos(manager),
              (std::vector<std::string>{"https://a.example.com:8443|web|k1",
                                        "https://b.example.com|web|k2", "|native|k3"}));

    // A second load without unloading adds the bundles again, but no record
    // twice and no second derived record.
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    EXPECT_EQ(artifacts.size(), 4u);
    EXPECT_EQ(CountRecords(manager), 3u);

    auto log = qzetest::CaptureLog();
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
    EXPECT_EQ(log->Texts(),
              std::vector<std::string>{ConfigLine("unload all extension infos success")});
    artifacts.clear();
    manager.GetAllArtifacts(artifacts);
    EXPECT_TRUE(artifacts.empty());
    EXPECT_EQ(CountRecords(manager), 0u);
    EXPECT_TRUE(Peer::AuthInfos(manager).empty());
    std::vector<std::shared_ptr<Extension>> records;
    EXPECT_FALSE(manager.GetExtensionInfosByExntensionPointID("host.menu", records));

    bool enabled = false;
    EXPECT_TRUE(manager.IsModuleEnabled(kModuleCore, enabled));
    EXPECT_TRUE(enabled);
    EXPECT_TRUE(Peer::HasMappingEntry(manager, "host.menu"));
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
}

TEST(ConfigurationLifecycle, DebugReaderStandsReadyButNothingCallsIt) {
    Installation install;
    WriteInstallation(install);
    install.Write("vplus-toolkit-extension.json", "{}");
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.SetDebugModeEnable(true));
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    // Neither the flag nor the file changed the load.
    EXPECT_EQ(CountRecords(manager), 3u);

    auto log = qzetest::CaptureLog();
    install.Remove("vplus-toolkit-extension.json");
    Peer::HandleDebug(manager);
    const std::string failed = "handle debug extension configurations failed, becuase of ";
    EXPECT_EQ(log->Texts().back(),
              ConfigLine(failed + "debug_extension_configuration.json file path not exist"));
    install.Write("vplus-toolkit-extension.json", "{,}");
    Peer::HandleDebug(manager);
    EXPECT_EQ(log->Texts().back().rfind(
                  ConfigLine(failed + "read debug_extension_configuration.json failed, ")),
              0u);

    // The binding at index i reads extension i, once per extension it has.
    install.Write("vplus-toolkit-extension.json", R"({
        "extensionAuths": {"https://d.example.com": {"bundleId": "dbg"},
                           "https://e.example.com": {"bundleId": ""}},
        "extensionBindings": [
            {"extensionPointId": "host.menu", "extensions": [
                {"payloads": [{"key": "p", "value": "first"}, {"key": "q", "value": ""}],
                 "settingMap": {"uri": "/x"}},
                {"payloads": [{"key": "p", "value": "second"}]}]},
            {"extensionPointId": "host.menu", "extensions": [{"payloads": []}]},
            {"extensionPointId": "unmapped", "extensions": [{}, {}]}]})");
    Peer::HandleDebug(manager);
    std::vector<std::shared_ptr<Extension>> records;
    ASSERT_TRUE(manager.GetExtensionInfosByExntensionPointID("adapter.web", records));
    ASSERT_EQ(records.size(), 4u);  // "local", one derived, two from the debug file
    for (std::size_t i = 2; i < records.size(); ++i) {
        EXPECT_EQ(records[i]->GetPayloads(), (std::map<std::string, std::string>{{"p", "first"}}));
        EXPECT_EQ(records[i]->GetSettingMap().url, "/x");
        EXPECT_EQ(records[i]->GetId().size(), 38u);
    }
    EXPECT_EQ(Peer::AuthInfos(manager).back(), "https://d.example.com|dbg|");
}

TEST(ConfigurationLifecycle, RemoteOperationsFailPlainlyForNow) {
    QZEConfigurationManagerImpl manager;
    auto log = qzetest::CaptureLog();
    const std::string notYet = " failed, because of it is not supported yet";
    EXPECT_EQ(manager.GetH5ExtensionBundleId("https://a.example.com/appName_web/x"), "");
    EXPECT_EQ(log->Texts().back(), ConfigLine("get h5 extension bundle id" + notYet));
    EXPECT_EQ(manager.GetExtensionAccessKey("web"), "");
    EXPECT_EQ(log->Texts().back(), ConfigLine("get extension access key" + notYet));
    EXPECT_FALSE(manager.LoadRemoteConfig());
    EXPECT_EQ(log->Texts().back(), ConfigLine("load remote config" + notYet));
    manager.CheckAndFetchExtensionAuthInfo();
    EXPECT_EQ(log->Texts().back(), ConfigLine("check and fetch extension auth info" + notYet));
    int calls = 0;
    manager.FetchRemoteConfig(
        true, [&] { ++calls; }, [&](const std::string&) { ++calls; });
    EXPECT_EQ(log->Texts().back(), ConfigLine("fetch remote config" + notYet));
    EXPECT_EQ(calls, 0);
}

TEST(ConfigurationLifecycle, InitSdkPutsTheSharedImplementationBehindTheFacade) {
    QZExtensionKit::InitSDK();
    auto impl = QZEConfigurationManagerImpl::GetInstance();
    ASSERT_NE(impl, nullptr);
    EXPECT_EQ(impl, QZEConfigurationManagerImpl::GetInstance());
    auto log = qzetest::CaptureLog();
    QZEConfigurationManager* facade = QZEConfigurationManager::GetInstance();
    EXPECT_FALSE(facade->SetSecKey("short"));
    EXPECT_EQ(log->Texts().back(),
              ConfigLine("set sec key failed, becuase of the length of key is not equal to 32"));
    facade->UnInitialize();
    QZExtensionKit::InitSDK();
    EXPECT_EQ(QZEConfigurationManagerImpl::GetInstance(), impl);
    bool enabled = true;
    EXPECT_FALSE(facade->IsModuleEnabled(kModuleInvalid, enabled));
    EXPECT_FALSE(enabled);
}

}  // namespace
}  // namespace qzextensionkit
