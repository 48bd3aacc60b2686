#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "config/extension_auth_info.h"
#include "config/remote_config_data_source.h"
#include "config/support/installation.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "model/setting_map.h"

namespace qzetest {

using RemoteExtensions =
    std::map<std::string, std::list<std::shared_ptr<qzextensionkit::Extension>>>;
using RemoteAuthInfos = std::list<std::shared_ptr<qzextensionkit::QZExtensionAuthInfo>>;

// A remote record as a host makes it: no extension point, so not native.
inline std::shared_ptr<qzextensionkit::Extension> RemoteRecord(
    const std::string& id, const std::string& pointId,
    std::map<std::string, std::string> payloads = {}) {
    std::map<std::string, std::vector<std::string>> constraints;
    return qzextensionkit::ExtensionFactory::createExtension(
        id, pointId, payloads, constraints, qzextensionkit::SettingMap(), "u-" + id);
}

inline std::shared_ptr<qzextensionkit::QZExtensionAuthInfo> RemoteAuth(const std::string& host,
                                                                       const std::string& bundle,
                                                                       const std::string& key) {
    return std::make_shared<qzextensionkit::QZExtensionAuthInfo>(host, bundle, key);
}

// A host's data source whose answer to FetchConfig the test chooses.
class FakeSource : public qzextensionkit::IQZERemoteConfigDataSource {
public:
    void FetchConfig(const std::function<void()>& onSuccess,
                     const std::function<void(const std::string&)>& onFailure) override {
        fail ? onFailure("timeout") : onSuccess();
    }
    void GetConfig(RemoteExtensions& outExtensions, RemoteAuthInfos& outAuthInfos) override {
        ++getConfigCalls;
        if (fill) {
            outExtensions = extensions;
            outAuthInfos = authInfos;
        }
    }
    bool HasFetchedConfig() override { return true; }
    bool HasCachedConfig() override { return cached; }

    bool fail = false;
    bool cached = true;
    bool fill = true;
    int getConfigCalls = 0;
    RemoteExtensions extensions;
    RemoteAuthInfos authInfos;
};

// A loaded installation for the remote merge and the access key lookups.
//   host.tools     native bundle "bundle.tools": t1, t2
//   adapter.panel  the adapter bundle's point: panel.local
// Mapped sources: web.src -> adapter.panel, native.src -> host.tools,
// none.src -> adapter.none (no such point).
class RemoteSample : public ::testing::Test {
protected:
    void SetUp() override {
        install.WriteMapping(R"({"web": {"src": {"extensionPointId": "adapter.panel",
                "version": "2.0", "clsid": "{ACLS}", "iid": "{AIID}"}},
            "native": {"src": {"extensionPointId": "host.tools"}},
            "none": {"src": {"extensionPointId": "adapter.none"}}})");
        install.WriteConfig(R"({"artifacts": ["tools", "adapter"], "ExtensionAuthInfo": {
            "H5": {"https://a.example.com": [{"bundleId": "dup", "accessKey": "ka"}],
                   "https://b.example.com": [{"bundleId": "dup", "accessKey": "kb"}],
                   "https://h5.example.com": [{"bundleId": "web.app", "accessKey": "wk"},
                                              {"bundleId": "shop", "accessKey": "sk"}],
                   "https://port.example.com:8443": [{"bundleId": "portal", "accessKey": "pk"}]},
            "Native": [{"bundleId": "bundle.tools", "accessKey": "nk"}]}})");
        install.WriteManifest("tools", Manifest("bundle.tools", "", R"([{"id": "host.tools",
            "iid": "{TOOLS-IID}", "extensions": [
            {"id": "t1", "version": "1.1", "clsid": "{T1}", "isSingleton": true},
            {"id": "t2", "version": "2.2", "clsid": "{T2}"}]}])"));
        install.WriteManifest("adapter", Manifest("extension_adapter", "", R"([
            {"id": "adapter.panel", "iid": "{PANEL-IID}", "extensions": [{"id": "panel.local"}]}])",
                                                  "bin/adapter.dll"));
        ASSERT_TRUE(manager.LoadAllExtensionInfos());
        source = std::make_shared<FakeSource>();
        log = CaptureLog();
    }

    // Ids in force under a point: "derived(<source id>)", or "<absent>".
    static std::vector<std::string> Shape(qzextensionkit::IQZEConfigurationManager& of,
                                          const std::string& point) {
        std::vector<std::shared_ptr<qzextensionkit::Extension>> records;
        if (!of.GetExtensionInfosByExntensionPointID(point, records)) {
            return {"<absent>"};
        }
        std::vector<std::string> shape;
        for (auto& record : records) {
            auto payloads = record->GetPayloads();
            auto source = payloads.find("extensionId");
            shape.push_back(source == payloads.end() ? record->GetId()
                                                     : "derived(" + source->second + ")");
        }
        return shape;
    }
    static std::map<std::string, std::vector<std::string>> AllShapes(
        qzextensionkit::IQZEConfigurationManager& of) {
        std::map<std::string, std::vector<std::string>> shapes;
        for (const char* point : {"host.tools", "adapter.panel", "adapter.none"}) {
            shapes[point] = Shape(of, point);
        }
        return shapes;
    }

    Installation install;
    qzextensionkit::QZEConfigurationManagerImpl manager;
    std::shared_ptr<FakeSource> source;
    std::shared_ptr<CapturedLines> log;
};

}  // namespace qzetest
