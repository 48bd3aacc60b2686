#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "bundle/support/verify_pki.h"
#include "kit/bundle_manager.h"
#include "kit/configuration_manager.h"
#include "manager/support/kit_host.h"
#include "platform/platform.h"

namespace qzetest {
namespace {

namespace pf = qzextensionkit::platform;
using pf::testing::Operation;

class FaultsTest : public KitHost {
protected:
    void TearDown() override {
        pf::testing::ClearFailures();
        pf::SetLibraryDirectory(L"");
        KitHost::TearDown();
    }
};

// Each row makes one platform operation fail during a full Load (or during
// the request after it), then checks the line that tells, the results, what
// the bundle manager was left with, and that with the failure gone the next
// Load and requests work again.
TEST_F(FaultsTest, EachPlatformFailureIsToldLeavesWhatItShouldAndTheNextCallWorks) {
    const std::string config = "configuration manager impl - ";
    const std::string loadFailed =
        config + "load all extension infos failed, because of find extensions failed";
    const std::string loaded = config + "load all extension infos success";
    const std::string readConfigFailed =
        config + "load local configurations failed, becuase of load config.json failed";
    const std::string loadCom = "Bundle Loader - load bundle failed, because of load com failed";
    const std::string setDirectory = "Bundle Loader - Failed to set DLL directory, code:0x57";
    const std::string route =
        "extension manager impl - create extension instance from dynamic "
        "library failed, because of ";
    enum class Dir { kUnchanged, kAtBin };
    struct Row {
        const char* name;
        Operation op;
        int times, skip;
        // The failure hits the request after a clean Load instead.
        bool duringRequest;
        bool verify;
        std::string line;
        bool loadResult;
        // The bundle's records came in.
        bool recordsIn;
        // Left behind: a loader in the pool, the library opened, the search
        // directory.
        bool inPool, opened;
        Dir dir;
        // The request once the failure is gone and the kit has loaded again.
        bool laterRequest;
        // The id of the record derived through the adapter mapping; empty
        // for a fresh braced one.
        std::string derivedId;
    } const rows[] = {
        {"executable path empty", Operation::kExecutablePath, 1, 0, false, false,
         config + "get extension adapter mapping file path failed, becuase of "
                  "extension_adapter_mapping.json is not exist",
         false, false, false, false, Dir::kUnchanged, true, ""},
        {"executable path empty for config.json", Operation::kExecutablePath, 1, 1, false, false,
         config + "load local configurations failed, because of get extensions dir failed", false,
         false, false, false, Dir::kUnchanged, true, ""},
        {"mapping not found", Operation::kFileExists, 1, 0, false, false, loadFailed, false, false,
         false, false, Dir::kUnchanged, true, ""},
        {"config.json not found", Operation::kFileExists, 1, 1, false, false,
         config + "load local configurations failed, becuase of config.json is not exist", false,
         false, false, false, Dir::kUnchanged, true, ""},
        // Existence tests: the mapping one, config.json two, the manifest
        // two, then the bundle's root and library.
        {"bundle root not found", Operation::kFileExists, 1, 5, false, false,
         "Bundle Loader - load bundle failed, because of root path not exist", true, true, false,
         false, Dir::kUnchanged, true, ""},
        {"library not found", Operation::kFileExists, 1, 6, false, false,
         "Bundle Loader - load bundle failed, because of library file path not exist or empty",
         true, true, false, false, Dir::kUnchanged, true, ""},
        {"mapping not opened", Operation::kOpenFile, 1, 0, false, false, loadFailed, false, false,
         false, false, Dir::kUnchanged, true, ""},
        {"config.json not opened", Operation::kOpenFile, 1, 1, false, false, readConfigFailed,
         false, false, false, false, Dir::kUnchanged, true, ""},
        {"manifest not opened", Operation::kOpenFile, 1, 2, false, false, loaded, true, false,
         false, false, Dir::kUnchanged, true, ""},
        // Reads: the mapping takes two, config.json (over 64 KiB) three, the
        // manifest two, and the library's digest one per KiB.
        {"mapping read part way", Operation::kReadFile, 1, 1, false, false, loadFailed, false,
         false, false, false, Dir::kUnchanged, true, ""},
        {"config.json read part way", Operation::kReadFile, 1, 3, false, false, readConfigFailed,
         false, false, false, false, Dir::kUnchanged, true, ""},
        {"manifest read part way", Operation::kReadFile, 1, 6, false, false, loaded, true, false,
         false, false, Dir::kUnchanged, true, ""},
        {"library read part way for its digest", Operation::kReadFile, 1, 17, false, true,
         "Bundle Loader - load bundle failed, because of lib file verify failed", true, true, false,
         false, Dir::kUnchanged, true, ""},
        {"library not opened", Operation::kOpenLibrary, 1, 0, false, false, loadCom, true, true,
         true, false, Dir::kAtBin, false, ""},
        {"class getter not exported", Operation::kFindExport, 1, 0, false, false, loadCom, true,
         true, true, true, Dir::kAtBin, false, ""},
        {"last export missing: the getter is there", Operation::kFindExport, 1, 3, false, false,
         loadCom, true, true, true, true, Dir::kAtBin, true, ""},
        {"search directory not set", Operation::kSetLibraryDirectory, 1, 0, false, false,
         setDirectory, true, true, true, false, Dir::kUnchanged, false, ""},
        {"search directory not put back", Operation::kSetLibraryDirectory, 1, 1, false, false,
         setDirectory, true, true, true, true, Dir::kAtBin, true, ""},
        {"no identifier for the derived record", Operation::kCreateGuid, -1, 0, false, false,
         loaded, true, true, true, true, Dir::kUnchanged, true, "{}"},
        {"root gone at the request", Operation::kFileExists, 1, 0, true, false,
         route + "root path not exist", true, true, true, true, Dir::kUnchanged, true, ""},
        {"library gone at the request", Operation::kFileExists, 1, 1, true, false,
         route + "library file path not exist or empty", true, true, true, true, Dir::kUnchanged,
         true, ""},
    };
    // Beyond one read block, so that config.json takes two.
    const std::string padding(70000, ' ');
    const std::wstring marker = Backslashed(base::UTF8ToWide(install.RootText()));
    auto* bundleManager = qzextensionkit::QZEBundleManager::GetInstance();
    auto* configuration = qzextensionkit::QZEConfigurationManager::GetInstance();
    int n = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string number = std::to_string(++n);
        const std::string folder = "fault" + number, id = "f" + number;
        const std::string source = "src" + number, target = "web" + number;
        // The bundle is the adapter of its own second point, so that a Load
        // also derives a record there.
        bundles.clear();
        AddBundle(folder, "");
        install.WriteManifest(
            folder, R"({"id": "extension_adapter", "version": "1.0.0", "mainEntry": ")" +
                        std::string(kExtensionLibrary) + R"(", "libFileMD5": ")" +
                        Md5Hex(ReadBytes(LibraryFile(folder))) + R"(", "extensionPoints": [)" +
                        Point(source, kProbeIid, {{id, kProbeClass}}) + ", " +
                        Point(target, kProbeIid, {}) + "]}");
        install.WriteMapping("{\"" + source + R"(": {"extensionPointId": ")" + target +
                             R"(", "clsid": ")" + kProbeClass + R"(", "iid": ")" + kProbeIid +
                             "\"}}");
        install.WriteConfig(ConfigWithArtifacts(bundles) + padding);
        kit()->SetLibFileVerifyEnable(row.verify);
        pf::SetLibraryDirectory(marker.c_str());
        const long loads = QzeTestCounter(kLoadsCounter);
        log->Clear();

        if (!row.duringRequest) {
            pf::testing::InjectFailure(row.op, row.times, 0x57, row.skip);
        }
        EXPECT_EQ(kit()->Load(), row.loadResult);
        if (row.duringRequest) {
            pf::testing::InjectFailure(row.op, row.times, 0x57, row.skip);
            void* object = nullptr;
            EXPECT_FALSE(kit()->GetExtensionById(id, &object));
            EXPECT_EQ(object, nullptr);
        }
        pf::testing::ClearFailures();
        std::vector<std::string> lines = Lines();
        EXPECT_NE(std::find(lines.begin(), lines.end(), row.line), lines.end());
        std::vector<std::shared_ptr<qzextensionkit::Extension>> records;
        EXPECT_EQ(configuration->GetExtensionInfosByExntensionPointID(source, records),
                  row.recordsIn);
        records.clear();
        configuration->GetExtensionInfosByExntensionPointID(target, records);
        if (row.recordsIn) {
            ASSERT_EQ(records.size(), 1u);
            const std::string derived = records[0]->GetId();
            EXPECT_TRUE(row.derivedId.empty() ? derived.size() == 38 && derived[0] == '{'
                                              : derived == row.derivedId)
                << derived;
        }
        EXPECT_EQ(SearchDirectory(), row.dir == Dir::kAtBin
                                         ? Backslashed(base::UTF8ToWide(RootText(folder) + "\\bin"))
                                         : marker);
        EXPECT_EQ(bundleManager->ComLoaderIsExist(RootText(folder) + "\\" + kExtensionLibrary),
                  row.inPool);
        EXPECT_EQ(QzeTestCounter(kLoadsCounter) - loads, row.opened ? 1 : 0);

        // Again without the failure, with a second bundle beside it.
        kit()->Unload();
        log->Clear();
        const std::string next = "n" + number;
        AddBundle("next" + number, Point("p.next" + number, kProbeIid, {{next, kProbeClass}}),
                  R"("libFileMD5": ")" + Md5Hex(ReadBytes(BuiltPlugin("qzekit_plugin_extension"))) +
                      "\"");
        install.WriteConfig(ConfigWithArtifacts(bundles));
        EXPECT_TRUE(kit()->Load());
        lines = Lines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "Bundle Loader - bundle has been loaded"),
                  row.inPool ? 1 : 0);
        for (const std::string& asked : {id, next}) {
            void* object = nullptr;
            EXPECT_EQ(kit()->GetExtensionById(asked, &object), asked == next || row.laterRequest)
                << asked;
            if (object != nullptr) {
                Probe(object)->Release();
            }
        }
        kit()->Unload();
    }
}

}  // namespace
}  // namespace qzetest
