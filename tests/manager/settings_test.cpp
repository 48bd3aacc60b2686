#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kit/bundle_manager.h"
#include "kit/configuration_manager.h"
#include "kit/qzextensionkit.h"
#include "manager/support/kit_host.h"
#include "model/artifact.h"
#include "model/extension_impl.h"

namespace qzextensionkit {
namespace {

using ::testing::ElementsAre;

// A configuration that answers from hand-made records and notes the calls
// that reach it.
class FakeConfiguration : public IQZEConfigurationManager {
public:
    std::vector<std::string> calls;
    bool loadResult = true;
    bool setResult = true;
    std::vector<Artifact*> artifacts;
    std::map<std::string, std::vector<std::shared_ptr<Extension>>> points;
    FetchExtensionAuthInfoCallback callback;

    void SetFoundationVersion(const std::string& version) override {
        calls.push_back("SetFoundationVersion " + version);
    }
    bool LoadAllExtensionInfos() override {
        calls.push_back("LoadAllExtensionInfos");
        return loadResult;
    }
    bool UnloadAllExtensionInfos() override {
        calls.push_back("UnloadAllExtensionInfos");
        return loadResult;
    }
    bool GetExtensionInfoByID(const std::string& id, Extension** extension) override {
        for (auto& point : points) {
            for (auto& record : point.second) {
                if (record->GetId() == id) {
                    *extension = new ExtensionImpl(static_cast<ExtensionImpl&>(*record));
                    return true;
                }
            }
        }
        return false;
    }
    bool GetExtensionInfosByExntensionPointID(
        const std::string& id, std::vector<std::shared_ptr<Extension>>& extensions) override {
        auto found = points.find(id);
        if (found == points.end()) {
            return false;
        }
        extensions.insert(extensions.end(), found->second.begin(), found->second.end());
        return true;
    }
    bool GetConfigurationsByID(ModuleCode, std::map<std::string, std::string>*) override {
        return false;
    }
    bool IsModuleEnabled(ModuleCode, bool&) override { return false; }
    bool IsFeatueEnabled(FeatureCode, bool&) override { return false; }
    std::string GetH5ExtensionBundleId(const std::string&) override { return ""; }
    std::string GetExtensionAccessKey(const std::string&) override { return ""; }
    bool SetSecKey(const std::string& key) override {
        calls.push_back("SetSecKey " + key);
        return setResult;
    }
    bool SetDebugModeEnable(bool enable) override {
        calls.push_back(std::string("SetDebugModeEnable ") + (enable ? "true" : "false"));
        return setResult;
    }
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback& c) override {
        calls.push_back("SetFetchExtensionAuthInfoCallback");
        callback = c;
    }
    void CheckAndFetchExtensionAuthInfo() override {}
    void GetAllExtensionInfos(std::vector<Extension*>&) override {}
    void GetAllArtifacts(std::vector<Artifact*>& out) override {
        calls.push_back("GetAllArtifacts");
        out.insert(out.end(), artifacts.begin(), artifacts.end());
    }
    void FetchRemoteConfig(bool, const std::function<void()>&,
                           const std::function<void(const std::string&)>&) override {}
    bool LoadRemoteConfig() override { return false; }
    void SetRemoteConfigDataSource(std::shared_ptr<IQZERemoteConfigDataSource>) override {}
    bool GetMuduleConfig(const std::string&, const std::string&, std::string&) override {
        return false;
    }
};

// Bundles that never load, noting which artifacts were offered.
class FakeBundles : public IQZEBundleManager {
public:
    std::vector<Artifact*> offered;
    bool LoadBundle(Artifact* artifact) override {
        offered.push_back(artifact);
        return false;
    }
    bool GetComLoader(const std::string&, by::CComLoader**) override { return false; }
    bool ComLoaderIsExist(const std::string&) override { return false; }
};

class ManagerWithFakes : public ::testing::Test {
protected:
    void SetUp() override {
        QZExtensionKit::InitSDK();
        QZEConfigurationManager::GetInstance()->Initialize(configuration);
        QZEBundleManager::GetInstance()->Initialize(bundles);
        log = qzetest::CaptureLog();
    }
    // The real implementations go back behind their facades.
    void TearDown() override { QZExtensionKit::InitSDK(); }

    std::vector<std::string> ManagerLines() {
        const std::string tag = "[QZExtensionKit] extension manager impl - ";
        std::vector<std::string> out;
        for (const std::string& line : log->Texts()) {
            if (line.compare(0, tag.size(), tag) == 0) {
                out.push_back(line.substr(tag.size()));
            }
        }
        return out;
    }

    std::shared_ptr<FakeConfiguration> configuration = std::make_shared<FakeConfiguration>();
    std::shared_ptr<FakeBundles> bundles = std::make_shared<FakeBundles>();
    std::shared_ptr<qzetest::CapturedLines> log;
    QZExtensionManager* kit = QZExtensionManager::GetInstance();
};

TEST_F(ManagerWithFakes, LoadReturnsTheRecordsResultAndOffersEveryArtifactThere) {
    Artifact first(base::FilePath(L"a"));
    Artifact second(base::FilePath(L"b"));
    struct Row {
        bool recordsLoaded;
        std::vector<Artifact*> artifacts;
        std::vector<Artifact*> offered;
    } const rows[] = {
        {true, {&first, nullptr, &second}, {&first, &second}},
        {false, {&second, &first}, {&second, &first}},
        {true, {}, {}},
    };
    for (const Row& row : rows) {
        configuration->calls.clear();
        configuration->loadResult = row.recordsLoaded;
        configuration->artifacts = row.artifacts;
        bundles->offered.clear();
        EXPECT_EQ(kit->Load(), row.recordsLoaded);
        EXPECT_EQ(bundles->offered, row.offered);
        EXPECT_THAT(configuration->calls, ElementsAre("LoadAllExtensionInfos", "GetAllArtifacts"));
    }
    configuration->calls.clear();
    configuration->loadResult = false;
    EXPECT_FALSE(kit->Unload());
    EXPECT_THAT(configuration->calls, ElementsAre("UnloadAllExtensionInfos"));
}

TEST_F(ManagerWithFakes, SettingsReachTheConfigurationAndTheirResultsComeBack) {
    for (bool result : {true, false}) {
        configuration->setResult = result;
        configuration->calls.clear();
        kit->SetFoundationVersion("3.2.0");
        EXPECT_EQ(kit->SetSecKey("key"), result);
        EXPECT_EQ(kit->SetDebugModeEnable(true), result);
        std::vector<std::string> asked;
        kit->SetFetchExtensionAuthInfoCallback(
            [&asked](std::vector<std::string> ids,
                     const std::function<void(const std::map<std::string, std::string>&)>&,
                     const std::function<void(const std::string&)>&) { asked = ids; });
        EXPECT_THAT(configuration->calls,
                    ElementsAre("SetFoundationVersion 3.2.0", "SetSecKey key",
                                "SetDebugModeEnable true", "SetFetchExtensionAuthInfoCallback"));
        ASSERT_TRUE(configuration->callback);
        configuration->callback({"bundle"}, nullptr, nullptr);
        EXPECT_EQ(asked, std::vector<std::string>{"bundle"});
    }
    // The switches are the manager's own and touch nothing else.
    configuration->calls.clear();
    for (bool on : {true, false}) {
        kit->SetLibFileVerifyEnable(on);
        kit->SetSignVerifyEnable(!on);
        EXPECT_EQ(kit->GetLibFileVerifyEnable(), on);
        EXPECT_EQ(kit->GetSignVerifyEnable(), !on);
    }
    kit->SetSignVerifyEnable(false);
    EXPECT_TRUE(configuration->calls.empty());
}

std::shared_ptr<Extension> Record(const std::string& id, const std::string& point,
                                  const std::string& clsid) {
    // No extension point object behind it: no interface id, no library.
    auto record = std::make_shared<ExtensionImpl>(nullptr);
    record->SetId(id);
    record->SetExtensionPointId(point);
    record->SetClsid(clsid);
    return record;
}

TEST_F(ManagerWithFakes, TheDispatcherChecksThePointThenTheInterfaceThenTheClass) {
    configuration->points["p"] = {Record("nopoint", "", ""), Record("noiid", "p", "{c}")};
    struct Row {
        const char* id;
        const char* line;
    } const rows[] = {
        {"nopoint", "create extension instance failed, because of extension point id empty"},
        // A record that lost its extension point has no interface id.
        {"noiid", "create extension instance failed, because of iid empty"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.id);
        log->Clear();
        void* object = &object;
        EXPECT_FALSE(kit->GetExtensionById(row.id, &object));
        EXPECT_EQ(object, nullptr);
        EXPECT_THAT(ManagerLines(),
                    ElementsAre("get extension by extension id:" + std::string(row.id), row.line,
                                "get extension by extension id failed, because of create "
                                "extension instance failed"));
        // The container is asked first, whatever the record holds.
        EXPECT_NE(log->Texts()[1].find("object container impl - "), std::string::npos);
    }
    log->Clear();
    std::vector<void*> list;
    EXPECT_FALSE(kit->GetExtensionList("p", list));
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("get extension list by extension point id:p", rows[0].line, rows[1].line,
                    "get extension list by extension point id failed, because of "
                    "extension vector empty"));
}

// Through the real facade, with its implementation taken away and given back.
TEST(ManagerFacade, WithoutItsImplementationEachCallLogsAndFailsAndInitSdkRestoresIt) {
    QZExtensionKit::InitSDK();
    QZExtensionManager* kit = QZExtensionManager::GetInstance();
    kit->SetLibFileVerifyEnable(true);
    kit->UnInitialize();
    auto log = qzetest::CaptureLog();
    const std::string tail = " failed, because of extension manager impl is null";
    const std::string registerLine = "extension manager register extension" + tail;
    int sentinel = 0;
    void* object = &sentinel;
    std::vector<void*> list{&sentinel};
    struct Row {
        std::function<bool()> call;
        std::string line;
    } const rows[] = {
        {[&] { return kit->SetFoundationVersion("9.9"), false; },
         "extension manager set foundation version (9.9)" + tail},
        {[&] { return kit->Load(); }, "extension manager load" + tail},
        {[&] { return kit->Unload(); }, "extension manager unload" + tail},
        {[&] { return kit->GetExtension("p", &object); },
         "extension manager get extension by extension point id" + tail},
        {[&] { return kit->GetExtensionList("p", list); },
         "extension manager get extension list by extension point id" + tail},
        {[&] { return kit->GetExtensionById("e", &object); },
         "extension manager get extension by extension id" + tail},
        {[&] { return kit->unRegisterExtension("{c}"); },
         "extension manager unregister extension" + tail},
        {[&] { return kit->RegisterExtension(nullptr, "{c}", true); }, registerLine},
        {[&] { return kit->GetLibFileVerifyEnable(); }, registerLine},
        {[&] { return kit->SetLibFileVerifyEnable(false), false; }, registerLine},
        {[&] { return kit->GetSignVerifyEnable(); }, registerLine},
        {[&] { return kit->SetSignVerifyEnable(true), false; }, registerLine},
        {[&] { return kit->SetSecKey(std::string(32, 'k')); }, registerLine},
        {[&] { return kit->SetDebugModeEnable(true); }, registerLine},
        {[&] { return kit->SetFetchExtensionAuthInfoCallback(nullptr), false; }, registerLine},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        log->Clear();
        EXPECT_FALSE(row.call());
        EXPECT_THAT(log->Texts(), ElementsAre("[QZExtensionKit] " + row.line));
    }
    EXPECT_EQ(object, &sentinel);
    EXPECT_EQ(list, std::vector<void*>{&sentinel});

    // The same implementation comes back, with the switch it had.
    QZExtensionKit::InitSDK();
    EXPECT_TRUE(kit->GetLibFileVerifyEnable());
    kit->SetLibFileVerifyEnable(false);
}

}  // namespace
}  // namespace qzextensionkit

namespace qzetest {
namespace {

class LoadTest : public KitHost {};

TEST_F(LoadTest, EveryBundleIsTriedAndNoneDecidesTheResult) {
    // A bundle without its library, one whose manifest is a list (no
    // artifact), and one that loads.
    AddBundle("nolib", Point("p.nolib", kProbeIid, {{"a", kProbeClass}}), "", "");
    install.WriteManifest("list", "[]");
    bundles.push_back("list");
    AddBundle("good", Point("p.good", kProbeIid, {{"b", kProbeClass}}));
    const long loads = QzeTestCounter(kLoadsCounter);
    EXPECT_TRUE(Load());
    EXPECT_EQ(QzeTestCounter(kLoadsCounter), loads + 1);
    std::vector<std::string> bundleLines;
    for (const std::string& line : Lines()) {
        if (line.find("Bundle Loader - load bundle failed") == 0) {
            bundleLines.push_back(line);
        }
    }
    EXPECT_THAT(bundleLines,
                ::testing::ElementsAre("Bundle Loader - load bundle failed, because of library "
                                       "file path not exist or empty"));
    kit()->Unload();

    // Without the mapping file the records fail, and so does Load.
    install.Remove("extension_adapter_mapping.json");
    EXPECT_FALSE(kit()->Load());
}

}  // namespace
}  // namespace qzetest
