#include "bundle/bundle_manager_impl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bundle/base_bundle.h"
#include "bundle/library_signer.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "common/capture_logger.h"
#include "component/support/test_plugins.h"
#include "kit/extension_manager.h"
#include "kit/qzextensionkit.h"
#include "plugins/test_interfaces.h"

namespace qzextensionkit {
namespace {

namespace fs = std::filesystem;
namespace pf = platform;
using qzetest::BundleDir;
using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

const std::string kEntry = std::string("entry") + qzetest::kLibrarySuffix;
const std::string kClass = qzetest::kBundleClass;

// The host's two switches, on the kit's own extension manager.
void Checks(bool on) {
    QZExtensionManager::GetInstance()->SetLibFileVerifyEnable(on);
    QZExtensionManager::GetInstance()->SetSignVerifyEnable(on);
}

// What the bundle manager itself wrote, without the service's tag.
Lines BundleLines(qzetest::CapturedLines& log) {
    const std::string tag = "[QZExtensionKit] Bundle Loader - ";
    Lines out;
    for (const std::string& line : log.Texts()) {
        if (line.compare(0, tag.size(), tag) == 0) {
            out.push_back(line.substr(tag.size()));
        }
    }
    return out;
}

class BundleManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        log = qzetest::CaptureLog();
        QZExtensionKit::InitSDK();
        manager = std::make_unique<QZEBundleManagerImpl>();
        marker = qzetest::Backslashed(qzetest::Wide(temp.path()));
        pf::SetLibraryDirectory(marker.c_str());
    }
    void TearDown() override {
        // Libraries close here, before their folders are removed.
        manager.reset();
        pf::SetLibraryDirectory(L"");
        Checks(false);
    }

    long Count(const BundleDir& dir, const std::string& entry, const char* name) {
        by::CComLoader* loader = nullptr;
        EXPECT_TRUE(manager->GetComLoader(dir.Key(entry), &loader));
        return qzetest::CallCountExport(loader->Path(), name);
    }

    qzetest::TempDir temp;
    std::shared_ptr<qzetest::CapturedLines> log;
    std::unique_ptr<QZEBundleManagerImpl> manager;
    std::wstring marker;
};

TEST_F(BundleManagerTest, WhatEachLoadLeavesAndTheNextBundleStillLoads) {
    using Prepare = std::function<void(BundleDir&, Artifact&)>;
    const Prepare nothing = [](BundleDir&, Artifact&) {};
    const Prepare noRoot = [](BundleDir& d, Artifact&) { fs::remove_all(d.root); };
    const Prepare text = [](BundleDir& d, Artifact&) {
        qzetest::WriteBytes(d.root / kEntry, "no library");
    };
    auto library = [](const char* plugin) -> Prepare {
        return [plugin](BundleDir& d, Artifact&) { d.Library(plugin, kEntry); };
    };
    // Both checks on and a wrong digest: the file check fails first.
    const Prepare wrongDigest = [](BundleDir& d, Artifact& a) {
        d.Library("qzekit_plugin_bundle", kEntry);
        a.SetLibFileMD5(std::string(32, '0'));
        Checks(true);
    };
#if !defined(_WIN32)
    const Prepare signedBoth = [](BundleDir& d, Artifact& a) {
        const qzetest::TestPki& pki = qzetest::VerifyPki();
        d.Library("qzekit_plugin_bundle", kEntry);
        const std::wstring path = qzetest::Wide(d.root / kEntry);
        LibrarySigningInput input;
        input.certificatePath = qzetest::Wide(pki.signer.certPath);
        input.keyPath = qzetest::Wide(pki.signer.keyPath);
        input.chainPath = qzetest::Wide(pki.intermediate.certPath);
        ManifestDigests digests;
        std::string error;
        EXPECT_TRUE(SignLibraryFile(path, input, &error) &&
                    ComputeManifestDigests(path, &digests, &error))
            << error;
        a.SetLibFileMD5(digests.libFileMD5);
        a.SetSignMD5(digests.signMD5);
        Checks(true);
    };
#endif
    // Its helper is only in the bundle's "bin"; no run path leads there.
    const std::string dependent = std::string("qzekit_plugin_dependent") + qzetest::kLibrarySuffix;
    const Prepare withDependency = [dependent](BundleDir& d, Artifact&) {
        const fs::path built = fs::path(qzetest::TestPluginDir()) / "dep_bundle";
        const std::string helper =
            std::string("qzekit_plugin_dep_helper") + qzetest::kLibrarySuffix;
        fs::copy_file(built / dependent, d.root / dependent);
        fs::copy_file(built / "bin" / helper, d.root / "bin" / helper);
    };
    const Prepare bundle = library("qzekit_plugin_bundle");
    const Lines kRootMissing{"load bundle failed, because of root path not exist"};
    const Lines kLibraryMissing{
        "load bundle failed, because of library file path not exist or empty"};
    const Lines kFileCheck{"load bundle failed, because of lib file verify failed"};
    const Lines kLoadComFailed{"load bundle failed, because of load com failed"};
    const Lines kEntryFailed{"initialze bundle entry failed"};
    const Lines kStored{"class id:" + kClass + ", set bundle object success",
                        "initialze bundle entry success"};
    struct Left {
        bool inPool;
        bool open;
        bool atBin;
    };
    const Left kNothing{false, false, false}, kUnopenedAtBin{true, false, true},
        kOpenAtBin{true, true, true}, kOpen{true, true, false};
    struct Row {
        const char* name;
        Prepare prepare;
        std::string mainEntry;
        std::string classId;
        Lines lines;
        bool result;
        Left left;
    };
    const Row rows[] = {
        {"root missing", noRoot, kEntry, "", kRootMissing, false, kNothing},
        {"library missing", nothing, kEntry, "", kLibraryMissing, false, kNothing},
        {"file check fails, before the signature's", wrongDigest, kEntry, kClass, kFileCheck, false,
         kNothing},
        {"not a library", text, kEntry, "", kLoadComFailed, false, kUnopenedAtBin},
        {"empty library path: the root", nothing, "", "", kLoadComFailed, false, kUnopenedAtBin},
        {"export missing", library("qzekit_plugin_no_unregister_server"), kEntry, "",
         kLoadComFailed, false, kOpenAtBin},
        {"no module object", library("qzekit_plugin_null_module"), kEntry, "", kLoadComFailed,
         false, kUnopenedAtBin},
        {"entry refuses to be built", library("qzekit_plugin_bundle_refuses"), kEntry, kClass,
         kEntryFailed, true, kOpen},
        {"entry class not in the library", bundle, kEntry, qzetest::kGreeterClass, kEntryFailed,
         true, kOpen},
        {"no entry class", bundle, kEntry, "", {}, true, kOpen},
        {"dependency found in the bundle's bin", withDependency, dependent, "", {}, true, kOpen},
        {"entry built and kept", bundle, kEntry, kClass, kStored, true, kOpen},
#if !defined(_WIN32)
        {"signed library, both checks on", signedBoth, kEntry, kClass, kStored, true, kOpen},
#endif
    };
    int n = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        manager = std::make_unique<QZEBundleManagerImpl>();
        BundleDir dir(temp.path(), "row" + std::to_string(++n));
        const std::string key = dir.Key(row.mainEntry);
        // Every load past the path checks asks the pool first.
        Lines lines;
        if (row.lines != kRootMissing && row.lines != kLibraryMissing) {
            lines.push_back("key:" + key + ", com loader is not exist");
        }
        if (row.left.inPool) {
            lines.insert(lines.end(), {"key:" + key + ", com loader is not exist",
                                       "key:" + key + ", create com loader",
                                       "key:" + key + ", get com loader success"});
        }
        lines.insert(lines.end(), row.lines.begin(), row.lines.end());
        auto artifact = dir.Artifact(row.mainEntry, row.classId);
        pf::SetLibraryDirectory(marker.c_str());
        row.prepare(dir, *artifact);
        log->Clear();

        EXPECT_EQ(manager->LoadBundle(artifact.get()), row.result);
        EXPECT_EQ(BundleLines(*log), lines);
        EXPECT_EQ(qzetest::SearchDirectory(),
                  row.left.atBin ? qzetest::Backslashed(dir.RootText() + L"\\bin") : marker);
        EXPECT_EQ(manager->ComLoaderIsExist(key), row.left.inPool);
        if (row.left.inPool) {
            by::CComLoader* loader = nullptr;
            ASSERT_TRUE(manager->GetComLoader(key, &loader));
            EXPECT_EQ(loader->IsLoaded(), row.left.open);
        }
        by::IBaseUnknown* entry = nullptr;
        EXPECT_EQ(manager->GetBundleObject(row.classId.empty() ? "-" : row.classId, &entry),
                  row.lines == kStored);

        // A second load repeats the checks, or finds the loader and stops.
        log->Clear();
        EXPECT_EQ(manager->LoadBundle(artifact.get()), row.left.inPool || row.result);
        const Lines again{"key:" + key + ", com loader is exist", "bundle has been loaded"};
        EXPECT_EQ(BundleLines(*log), row.left.inPool ? again : lines);

        Checks(false);
        BundleDir next(temp.path(), "next" + std::to_string(n));
        next.Library("qzekit_plugin_bundle", kEntry);
        EXPECT_TRUE(manager->LoadBundle(next.Artifact(kEntry, qzetest::kQuietBundleClass).get()));
        EXPECT_THAT(BundleLines(*log), ::testing::Contains("initialze bundle entry success"));
        manager.reset();
    }
}

std::vector<std::string>& Events() {
    static auto* events = new std::vector<std::string>();
    return *events;
}

TEST_F(BundleManagerTest, EntriesAreKeptByExactClassIdAndReleasedBeforeAnyLibraryCloses) {
    // One class id in two letter cases, from two copies of the library.
    std::string lower = kClass;
    for (char& c : lower) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    const std::string binEntry = "bin\\" + kEntry;
    BundleDir a(temp.path(), "a");
    BundleDir b(temp.path(), "b");
    a.Library("qzekit_plugin_bundle", kEntry);
    b.Library("qzekit_plugin_bundle", "bin/" + kEntry);
    auto first = a.Artifact(kEntry, kClass);
    ASSERT_TRUE(manager->LoadBundle(first.get()));
    ASSERT_TRUE(manager->LoadBundle(b.Artifact(binEntry, lower).get()));
    // Another artifact on the same library stops at the pool too.
    auto sharing = a.Artifact(kEntry, qzetest::kQuietBundleClass);
    for (Artifact* again : {first.get(), sharing.get()}) {
        log->Clear();
        EXPECT_TRUE(manager->LoadBundle(again));
        EXPECT_THAT(BundleLines(*log), ElementsAre("key:" + a.Key(kEntry) + ", com loader is exist",
                                                   "bundle has been loaded"));
    }
    EXPECT_EQ(Count(a, kEntry, "TestBundleInitializeCalls"), 1);
    EXPECT_EQ(Count(a, kEntry, "TestBundleContextChecks"), 1);
    EXPECT_EQ(Count(a, kEntry, "TestLiveObjects"), 1);
    EXPECT_EQ(Count(b, binEntry, "TestBundleInitializeCalls"), 1);

    by::IBaseUnknown* upperEntry = nullptr;
    by::IBaseUnknown* lowerEntry = nullptr;
    ASSERT_TRUE(manager->GetBundleObject(kClass, &upperEntry));
    ASSERT_TRUE(manager->GetBundleObject(lower, &lowerEntry));
    EXPECT_NE(upperEntry, lowerEntry);
    // The table's reference is the only one: the getter adds none.
    EXPECT_EQ(upperEntry->AddRef(), 2u);
    EXPECT_EQ(upperEntry->Release(), 1u);
    log->Clear();
    EXPECT_FALSE(manager->GetBundleObject(qzetest::kQuietBundleClass, &upperEntry));
    EXPECT_EQ(upperEntry, nullptr);
    EXPECT_THAT(BundleLines(*log),
                ElementsAre("class id:" + std::string(qzetest::kQuietBundleClass) +
                            ", get bundle object failed, because of object didn't founded"));

    for (const fs::path& path : {a.root / kEntry, b.root / "bin" / kEntry}) {
        pf::LibraryHandle handle = pf::OpenLibrary(qzetest::Wide(path).c_str());
        ASSERT_NE(handle, nullptr);
        auto set = reinterpret_cast<qzetest::TestSetEventSinkFunc>(
            pf::FindExport(handle, "TestBundleSetEventSink"));
        ASSERT_NE(set, nullptr);
        set([](const char* event) { Events().push_back(event); });
        pf::CloseLibrary(handle);
    }
    Events().clear();
    manager.reset();
    EXPECT_THAT(Events(), ElementsAre("bundle released", "bundle released", "library closed",
                                      "library closed"));
}

TEST_F(BundleManagerTest, EmptyKeysAreRefusedAndAClassIdKeepsItsFirstObject) {
    by::CComLoader* loader = nullptr;
    EXPECT_FALSE(manager->ComLoaderIsExist(""));
    EXPECT_FALSE(manager->GetComLoader("", &loader));
    EXPECT_EQ(loader, nullptr);
    class Entry : public QZEBaseBundle {};
    Entry* kept = nullptr;
    Entry* dropped = nullptr;
    ASSERT_EQ(by::CComObject<Entry>::CreateInstance(&kept), 0);
    ASSERT_EQ(by::CComObject<Entry>::CreateInstance(&dropped), 0);
    // Each entry object owns a context of its own.
    ASSERT_NE(kept->GetContext(), nullptr);
    EXPECT_NE(kept->GetContext(), dropped->GetContext());
    by::IBaseUnknown* out = kept;
    EXPECT_FALSE(manager->SetBundleObject("", kept));
    EXPECT_FALSE(manager->SetBundleObject("c", nullptr));
    EXPECT_FALSE(manager->GetBundleObject("", &out));
    EXPECT_EQ(out, kept);  // left as it was
    EXPECT_TRUE(manager->SetBundleObject("c", kept));
    EXPECT_TRUE(manager->SetBundleObject("c", dropped));
    EXPECT_TRUE(manager->GetBundleObject("c", &out));
    EXPECT_EQ(out, static_cast<by::IBaseUnknown*>(kept));
    EXPECT_THAT(BundleLines(*log),
                ElementsAre("query com loader is exist failed, because of key is empty",
                            "key:, get com loader failed, because of key is empty",
                            "set bundle object failed, because of class id is empty",
                            "class id:c, set bundle object failed, because of object pointer is "
                            "nullptr",
                            "get bundle object failed, because of class id is empty",
                            "class id:c, set bundle object success",
                            "class id:c, set bundle object success",
                            "class id:c, get bundle object success"));
    EXPECT_EQ(kept->Release(), 1u);
    EXPECT_EQ(dropped->Release(), 0u);
}

}  // namespace
}  // namespace qzextensionkit
