#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "kit/bundle_manager.h"
#include "kit/configuration_manager.h"
#include "manager/support/kit_host.h"
#include "platform/platform.h"

namespace qzetest {
namespace {

namespace pf = qzextensionkit::platform;
using Op = pf::testing::Operation;

class FaultsTest : public KitHost {
protected:
    void TearDown() override {
        pf::testing::ClearFailures();
        pf::SetLibraryDirectory(L"");
        KitHost::TearDown();
    }
};

// Bundle loads that fail on files as they are (missing root or library, a
// file that is no library, a wrong digest) are the bundle tests' rows; a
// library missing at the request is a case of the bad installations.
TEST_F(FaultsTest, EachPlatformFailureIsToldLeavesWhatItShouldAndTheNextCallWorks) {
    const std::string config = "configuration manager impl - load ";
    const std::string findFailed =
        config + "all extension infos failed, because of find extensions failed";
    const std::string loaded = config + "all extension infos success";
    const std::string loadCom = "Bundle Loader - load bundle failed, because of load com failed";
    const std::string setDirectory = "Bundle Loader - Failed to set DLL directory, code:0x57";
    // kAtRequest: the load works and the failure comes at the request.
    enum Outcome { kFailed, kNoRecords, kLoaded, kAtRequest };
    // What stays: "p" a loader in the pool, "o" its library opened, "b" the
    // search directory at "bin".
    const struct {
        const char* name;
        Op op;
        int skip;
        std::string line;
        Outcome outcome;
        std::string left;
        bool laterRequest;  // once the failure is gone
    } rows[] = {
        {"executable path empty", Op::kExecutablePath, 0,
         "configuration manager impl - get extension adapter mapping file path failed, becuase of "
         "extension_adapter_mapping.json is not exist",
         kFailed, "", true},
        {"executable path empty for config.json", Op::kExecutablePath, 1,
         config + "local configurations failed, because of get extensions dir failed", kFailed, "",
         true},
        // Existence tests: mapping 1, config.json 2. Reads: mapping 2, config.json 3.
        {"mapping not found", Op::kFileExists, 0, findFailed, kFailed, "", true},
        {"mapping read part way", Op::kReadFile, 1, findFailed, kFailed, "", true},
        {"config.json not found", Op::kFileExists, 1,
         config + "local configurations failed, becuase of config.json is not exist", kFailed, "",
         true},
        {"config.json not opened", Op::kOpenFile, 1,
         config + "local configurations failed, becuase of load config.json failed", kFailed, "",
         true},
        {"manifest not opened", Op::kOpenFile, 2, loaded, kNoRecords, "", true},
        {"class getter not exported", Op::kFindExport, 0, loadCom, kLoaded, "pob", false},
        {"last export missing: the getter is there", Op::kFindExport, 3, loadCom, kLoaded, "pob",
         true},
        {"search directory not set", Op::kSetLibraryDirectory, 0, setDirectory, kLoaded, "p",
         false},
        {"search directory not put back", Op::kSetLibraryDirectory, 1, setDirectory, kLoaded, "pob",
         true},
        // Every identifier asked for fails.
        {"no identifier for the derived record", Op::kCreateGuid, 0, loaded, kLoaded, "po", true},
        {"root gone at the request", Op::kFileExists, 0,
         "extension manager impl - create extension instance from dynamic library failed, "
         "because of root path not exist",
         kAtRequest, "po", true},
    };
    const std::string padding(70000, ' ');
    const std::wstring marker = Backslashed(base::UTF8ToWide(install.RootText()));
    auto* configuration = qzextensionkit::QZEConfigurationManager::GetInstance();
    auto has = [](const std::string& left, char what) {
        return left.find(what) != std::string::npos;
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string number = std::to_string(++n), folder = "fault" + number;
        const std::string id = "f" + number, source = "src" + number, target = "web" + number;
        // The adapter of its own second point, so a Load derives a record.
        bundles.clear();
        AddBundle(folder, "");
        install.WriteManifest(folder, BundleManifest("extension_adapter",
                                                     Point(source, kProbeIid, {{id, kProbeClass}}) +
                                                         ", " + Point(target, kProbeIid, {}),
                                                     "", true));
        install.WriteMapping("{\"" + source + R"(": {"extensionPointId": ")" + target +
                             R"(", "clsid": ")" + kProbeClass + R"(", "iid": ")" + kProbeIid +
                             "\"}}");
        install.WriteConfig(ConfigWithArtifacts(bundles) + padding);
        pf::SetLibraryDirectory(marker.c_str());
        const long loads = QzeTestCounter(kLoadsCounter);
        log->Clear();
        const int times = row.op == Op::kCreateGuid ? -1 : 1;
        if (row.outcome != kAtRequest) {
            pf::testing::InjectFailure(row.op, times, 0x57, row.skip);
        }
        EXPECT_EQ(kit()->Load(), row.outcome != kFailed);
        if (row.outcome == kAtRequest) {
            pf::testing::InjectFailure(row.op, times, 0x57, row.skip);
            void* object = nullptr;
            EXPECT_FALSE(kit()->GetExtensionById(id, &object) || object != nullptr);
        }
        pf::testing::ClearFailures();
        std::vector<std::string> lines = Lines();
        EXPECT_NE(std::find(lines.begin(), lines.end(), row.line), lines.end());
        std::vector<std::shared_ptr<qzextensionkit::Extension>> records;
        const bool recordsRead = row.outcome == kLoaded || row.outcome == kAtRequest;
        EXPECT_EQ(configuration->GetExtensionInfosByExntensionPointID(source, records),
                  recordsRead);
        records.clear();
        configuration->GetExtensionInfosByExntensionPointID(target, records);
        if (recordsRead) {
            ASSERT_EQ(records.size(), 1u);
            const std::string derived = records[0]->GetId();
            EXPECT_TRUE(row.op == Op::kCreateGuid ? derived == "{}"
                                                  : derived.size() == 38 && derived[0] == '{')
                << derived;
        }
        EXPECT_EQ(SearchDirectory(), has(row.left, 'b')
                                         ? Backslashed(base::UTF8ToWide(RootText(folder) + "\\bin"))
                                         : marker);
        EXPECT_EQ(qzextensionkit::QZEBundleManager::GetInstance()->ComLoaderIsExist(
                      RootText(folder) + "\\" + kExtensionLibrary),
                  has(row.left, 'p'));
        EXPECT_EQ(QzeTestCounter(kLoadsCounter) - loads, has(row.left, 'o'));

        kit()->Unload();
        log->Clear();
        const std::string next = "n" + number;
        AddBundle("next" + number, Point("p.next" + number, kProbeIid, {{next, kProbeClass}}));
        install.WriteConfig(ConfigWithArtifacts(bundles));
        EXPECT_TRUE(kit()->Load());
        lines = Lines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "Bundle Loader - bundle has been loaded"),
                  has(row.left, 'p') ? 1 : 0);
        for (const std::string& asked : {id, next}) {
            void* object = nullptr;
            EXPECT_EQ(kit()->GetExtensionById(asked, &object), asked == next || row.laterRequest)
                << asked;
            ReleaseObject(object);
        }
        kit()->Unload();
    }
}

}  // namespace
}  // namespace qzetest
