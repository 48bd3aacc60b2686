#include "bundle/bundle_manager_impl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "bundle/base_bundle.h"
#include "bundle/library_signer.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_environment.h"
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

const std::string kEntry = std::string("entry") + qzetest::kLibrarySuffix;

// The host's two switches, as the extension manager answers them.
class Switches : public IQZExtensionManager {
public:
    bool libFile = false;
    bool sign = false;
    int signAsked = 0;

    bool GetLibFileVerifyEnable() override { return libFile; }
    bool GetSignVerifyEnable() override {
        ++signAsked;
        return sign;
    }
    void SetFoundationVersion(const std::string&) override {}
    bool Load() override { return false; }
    bool Unload() override { return false; }
    bool GetExtension(const std::string&, void**) override { return false; }
    bool GetExtensionList(const std::string&, std::vector<void*>&) override { return false; }
    bool GetExtensionById(const std::string&, void**) override { return false; }
    bool RegisterExtension(const ExtensionCreator&, const std::string&, bool) override {
        return false;
    }
    bool unRegisterExtension(const std::string&) override { return false; }
    void SetLibFileVerifyEnable(bool) override {}
    void SetSignVerifyEnable(bool) override {}
    bool SetSecKey(const std::string&) override { return false; }
    bool SetDebugModeEnable(bool) override { return false; }
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback&) override {}
};

// What the bundle manager itself wrote, without the service's tag.
std::vector<std::string> BundleLines(qzetest::CapturedLines& log) {
    const std::string tag = "[QZExtensionKit] Bundle Loader - ";
    std::vector<std::string> out;
    for (const std::string& line : log.Texts()) {
        if (line.compare(0, tag.size(), tag) == 0) {
            out.push_back(line.substr(tag.size()));
        }
    }
    return out;
}

// The lines of a first load up to the point where its loader exists.
std::vector<std::string> NewLoaderLines(const std::string& key) {
    return {"key:" + key + ", com loader is not exist", "key:" + key + ", com loader is not exist",
            "key:" + key + ", create com loader", "key:" + key + ", get com loader success"};
}

std::vector<std::string> Joined(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class BundleManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        log = qzetest::CaptureLog();
        switches = std::make_shared<Switches>();
        QZExtensionManager::GetInstance()->Initialize(switches);
        manager = std::make_unique<QZEBundleManagerImpl>();
        marker = qzetest::Backslashed(qzetest::Wide(temp.path()));
        pf::SetLibraryDirectory(marker.c_str());
    }
    void TearDown() override {
        // Libraries close here, before their folders are removed.
        manager.reset();
        pf::testing::ClearFailures();
        pf::SetLibraryDirectory(L"");
        QZExtensionManager::GetInstance()->UnInitialize();
    }

    long Count(const BundleDir& dir, const std::string& entry, const char* name) {
        by::CComLoader* loader = nullptr;
        EXPECT_TRUE(manager->GetComLoader(dir.Key(entry), &loader));
        return qzetest::CallCountExport(loader->Path(), name);
    }

    qzetest::TempDir temp;
    std::shared_ptr<qzetest::CapturedLines> log;
    std::shared_ptr<Switches> switches;
    std::unique_ptr<QZEBundleManagerImpl> manager;
    std::wstring marker;
};

// The digest a manifest gives for a file: MD5 as lower-case hexadecimal.
std::string Md5Text(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_md5(), nullptr);
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += "0123456789abcdef"[digest[i] >> 4];
        text += "0123456789abcdef"[digest[i] & 15];
    }
    return text;
}

TEST_F(BundleManagerTest, EachFailureLeavesWhatItShouldAndTheNextBundleStillLoads) {
    // How a row sets its bundle up; the root and its "bin" are there.
    using Prepare = std::function<void(BundleDir&, Artifact&, Switches&)>;
    const Prepare nothing = [](BundleDir&, Artifact&, Switches&) {};
    const Prepare noRoot = [](BundleDir& d, Artifact&, Switches&) { fs::remove_all(d.root); };
    const Prepare text = [](BundleDir& d, Artifact&, Switches&) { d.File(kEntry, "no library"); };
    auto library = [](const char* plugin) -> Prepare {
        return [plugin](BundleDir& d, Artifact&, Switches&) { d.Library(plugin, kEntry); };
    };
    // The search directory can't be set (skip 0) or put back (skip 1).
    auto failSet = [](int skip) -> Prepare {
        return [skip](BundleDir& d, Artifact&, Switches&) {
            d.Library("qzekit_plugin_bundle", kEntry);
            pf::testing::InjectFailure(pf::testing::Operation::kSetLibraryDirectory, 1, 0x57, skip);
        };
    };
    // The file check on, with a digest that does not match; or with the
    // right one and the signature check on, which the unsigned library fails.
    auto verify = [](bool rightDigest) -> Prepare {
        return [rightDigest](BundleDir& d, Artifact& a, Switches& s) {
            d.Library("qzekit_plugin_bundle", kEntry);
            a.SetLibFileMD5(rightDigest ? Md5Text(d.root / kEntry) : std::string(32, '0'));
            s.libFile = true;
            s.sign = rightDigest;
        };
    };
    const Prepare noExport = library("qzekit_plugin_no_unregister_server");
    const Prepare noModule = library("qzekit_plugin_null_module");
    const Prepare refusing = library("qzekit_plugin_bundle_refuses");
    const Prepare bundle = library("qzekit_plugin_bundle");
    using Lines = std::vector<std::string>;
    const Lines kRootMissing{"load bundle failed, because of root path not exist"};
    const Lines kLibraryMissing{
        "load bundle failed, because of library file path not exist or empty"};
    // "<key>" stands for the pool key.
    const Lines kFileCheck{"key:<key>, com loader is not exist",
                           "load bundle failed, because of lib file verify failed"};
    const Lines kSignCheck{"key:<key>, com loader is not exist",
                           "load bundle failed, because of file sign verify failed"};
    const Lines kSetFailed{"Failed to set DLL directory, code:0x57"};
    const Lines kLoadComFailed{"load bundle failed, because of load com failed"};
    const Lines kEntryFailed{"initialze bundle entry failed"};
    const std::string kClass = qzetest::kBundleClass;
    const std::string kOther = qzetest::kGreeterClass;
    // What a load leaves: a loader in the pool, its library open, the
    // search directory left at the bundle's "bin".
    struct Left {
        bool inPool;
        bool open;
        bool atBin;
    };
    const Left kNothing{false, false, false}, kUnopened{true, false, false},
        kUnopenedAtBin{true, false, true}, kOpenAtBin{true, true, true}, kOpen{true, true, false};
    struct Row {
        const char* name;
        Prepare prepare;
        std::string mainEntry;
        std::string classId;
        // The lines after those that made the loader, or all of them when
        // none was made.
        Lines lines;
        bool result;
        Left left;
    };
    const Row rows[] = {
        {"root missing", noRoot, kEntry, "", kRootMissing, false, kNothing},
        {"library missing", nothing, kEntry, "", kLibraryMissing, false, kNothing},
        {"file check fails", verify(false), kEntry, kClass, kFileCheck, false, kNothing},
        {"signature check fails", verify(true), kEntry, kClass, kSignCheck, false, kNothing},
        {"search directory not set", failSet(0), kEntry, kClass, kSetFailed, false, kUnopened},
        {"not a library", text, kEntry, "", kLoadComFailed, false, kUnopenedAtBin},
        {"empty library path: the root", nothing, "", "", kLoadComFailed, false, kUnopenedAtBin},
        {"export missing", noExport, kEntry, "", kLoadComFailed, false, kOpenAtBin},
        {"no module object", noModule, kEntry, "", kLoadComFailed, false, kUnopenedAtBin},
        {"search directory not put back", failSet(1), kEntry, kClass, kSetFailed, false,
         kOpenAtBin},
        {"entry refuses to be built", refusing, kEntry, kClass, kEntryFailed, true, kOpen},
        {"entry class not in the library", bundle, kEntry, kOther, kEntryFailed, true, kOpen},
        {"no entry class", bundle, kEntry, "", {}, true, kOpen},
    };
    int n = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        manager = std::make_unique<QZEBundleManagerImpl>();
        BundleDir dir(temp.path(), "row" + std::to_string(++n));
        const std::string key = dir.Key(row.mainEntry);
        std::vector<std::string> lines = row.lines;
        for (std::string& line : lines) {
            if (line.find("<key>") != std::string::npos) {
                line.replace(line.find("<key>"), 5, key);
            }
        }
        auto artifact = dir.Artifact(row.mainEntry, row.classId);
        pf::SetLibraryDirectory(marker.c_str());
        row.prepare(dir, *artifact, *switches);
        log->Clear();

        EXPECT_EQ(manager->LoadBundle(artifact.get()), row.result);
        EXPECT_EQ(BundleLines(*log), row.left.inPool ? Joined(NewLoaderLines(key), lines) : lines);
        EXPECT_EQ(qzetest::SearchDirectory(),
                  row.left.atBin ? qzetest::Backslashed(dir.RootText() + L"\\bin") : marker);
        EXPECT_EQ(manager->ComLoaderIsExist(key), row.left.inPool);
        if (row.left.inPool) {
            by::CComLoader* loader = nullptr;
            ASSERT_TRUE(manager->GetComLoader(key, &loader));
            EXPECT_EQ(loader->IsLoaded(), row.left.open);
        }
        by::IBaseUnknown* entry = nullptr;
        EXPECT_FALSE(manager->GetBundleObject(row.classId.empty() ? "-" : row.classId, &entry));

        // A second load repeats the checks, or finds the loader and stops.
        pf::testing::ClearFailures();
        log->Clear();
        const std::vector<std::string> again{"key:" + key + ", com loader is exist",
                                             "bundle has been loaded"};
        EXPECT_EQ(manager->LoadBundle(artifact.get()), row.left.inPool || row.result);
        EXPECT_EQ(BundleLines(*log), row.left.inPool ? again : lines);

        switches->libFile = switches->sign = false;
        BundleDir next(temp.path(), "next" + std::to_string(n));
        next.Library("qzekit_plugin_bundle", kEntry);
        EXPECT_TRUE(manager->LoadBundle(next.Artifact(kEntry, qzetest::kQuietBundleClass).get()));
        EXPECT_THAT(BundleLines(*log), ::testing::Contains("initialze bundle entry success"));
        manager.reset();
    }
}

TEST_F(BundleManagerTest, TheSignatureIsCheckedOnlyWithTheFile) {
    // The test library is not signed, and its manifest digest is wrong
    // unless the row says otherwise.
    struct Row {
        bool libFile;
        bool sign;
        bool rightDigest;
        bool loads;
        int signAsked;
    } const rows[] = {
        {false, true, false, true, 0},
        {true, false, true, true, 1},
        {true, true, false, false, 0},
    };
    int n = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(++n);
        BundleDir dir(temp.path(), "switch" + std::to_string(n));
        dir.Library("qzekit_plugin_bundle", kEntry);
        auto artifact = dir.Artifact(kEntry, "");
        artifact->SetLibFileMD5(row.rightDigest ? Md5Text(dir.root / kEntry) : "wrong");
        switches->libFile = row.libFile;
        switches->sign = row.sign;
        switches->signAsked = 0;
        EXPECT_EQ(manager->LoadBundle(artifact.get()), row.loads);
        EXPECT_EQ(switches->signAsked, row.signAsked);
    }
}

TEST_F(BundleManagerTest, ASignedBundleLoadsWithBothChecksOn) {
#if defined(_WIN32)
    GTEST_SKIP() << "signed test libraries are made on Linux only here";
#else
    BundleDir dir(temp.path(), "signed");
    dir.Library("qzekit_plugin_bundle", kEntry);
    const std::wstring library = qzetest::Wide(dir.root / kEntry);
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    LibrarySigningInput input;
    input.certificatePath = qzetest::Wide(pki.signer.certPath);
    input.keyPath = qzetest::Wide(pki.signer.keyPath);
    input.chainPath = qzetest::Wide(pki.intermediate.certPath);
    std::string error;
    ManifestDigests digests;
    ASSERT_TRUE(SignLibraryFile(library, input, &error)) << error;
    ASSERT_TRUE(ComputeManifestDigests(library, &digests, &error)) << error;
    auto artifact = dir.Artifact(kEntry, qzetest::kBundleClass);
    artifact->SetLibFileMD5(digests.libFileMD5);
    artifact->SetSignMD5(digests.signMD5);
    switches->libFile = switches->sign = true;
    EXPECT_TRUE(manager->LoadBundle(artifact.get()));
    EXPECT_THAT(BundleLines(*log), ::testing::Contains("initialze bundle entry success"));
    EXPECT_TRUE(
        log->Contains("[QZExtensionKit] [SignVerify] Verify signer certificate "
                      "information success."));
#endif
}

TEST_F(BundleManagerTest, LoadsOnceStartsTheEntryOnceAndKeepsIt) {
    BundleDir dir(temp.path(), "one");
    dir.Library("qzekit_plugin_bundle", kEntry);
    const std::string key = dir.Key(kEntry);
    auto artifact = dir.Artifact(kEntry, qzetest::kBundleClass);
    ASSERT_TRUE(manager->LoadBundle(artifact.get()));
    const std::string cls = qzetest::kBundleClass;
    EXPECT_EQ(BundleLines(*log),
              Joined(NewLoaderLines(key), {"class id:" + cls + ", set bundle object success",
                                           "initialze bundle entry success"}));
    EXPECT_EQ(qzetest::SearchDirectory(), marker);
    EXPECT_EQ(Count(dir, kEntry, "TestBundleInitializeCalls"), 1);
    EXPECT_EQ(Count(dir, kEntry, "TestBundleContextChecks"), 1);

    // The table's reference is the only one: the getter adds none.
    by::IBaseUnknown* entry = nullptr;
    ASSERT_TRUE(manager->GetBundleObject(cls, &entry));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->AddRef(), 2u);
    EXPECT_EQ(entry->Release(), 1u);

    // The same artifact, and another on the same library with a class of
    // its own: both stop at the pool.
    auto sharing = dir.Artifact(kEntry, qzetest::kQuietBundleClass);
    for (Artifact* again : {artifact.get(), sharing.get()}) {
        log->Clear();
        EXPECT_TRUE(manager->LoadBundle(again));
        EXPECT_THAT(BundleLines(*log),
                    ElementsAre("key:" + key + ", com loader is exist", "bundle has been loaded"));
    }
    EXPECT_EQ(Count(dir, kEntry, "TestBundleInitializeCalls"), 1);
    EXPECT_EQ(Count(dir, kEntry, "TestLiveObjects"), 1);
    log->Clear();
    EXPECT_FALSE(manager->GetBundleObject(qzetest::kQuietBundleClass, &entry));
    EXPECT_EQ(entry, nullptr);
    EXPECT_THAT(BundleLines(*log),
                ElementsAre("class id:" + std::string(qzetest::kQuietBundleClass) +
                            ", get bundle object failed, because of object didn't founded"));
}

TEST_F(BundleManagerTest, ClassIdTextsAreKeysByteForByteAndALibraryMayLieInBin) {
    // One class id in two letter cases, from two copies of the library; the
    // second is named with its "bin" folder.
    std::string lower = qzetest::kBundleClass;
    for (char& c : lower) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    const std::string binEntry = "bin\\" + kEntry;
    BundleDir a(temp.path(), "a");
    BundleDir b(temp.path(), "b");
    a.Library("qzekit_plugin_bundle", kEntry);
    b.Library("qzekit_plugin_bundle", "bin/" + kEntry);
    ASSERT_TRUE(manager->LoadBundle(a.Artifact(kEntry, qzetest::kBundleClass).get()));
    ASSERT_TRUE(manager->LoadBundle(b.Artifact(binEntry, lower).get()));
    EXPECT_TRUE(manager->ComLoaderIsExist(b.Key(binEntry)));
    by::IBaseUnknown* upperEntry = nullptr;
    by::IBaseUnknown* lowerEntry = nullptr;
    ASSERT_TRUE(manager->GetBundleObject(qzetest::kBundleClass, &upperEntry));
    ASSERT_TRUE(manager->GetBundleObject(lower, &lowerEntry));
    EXPECT_NE(upperEntry, lowerEntry);
    EXPECT_EQ(Count(b, binEntry, "TestBundleInitializeCalls"), 1);
}

TEST_F(BundleManagerTest, DependenciesAreFoundInTheBundlesBin) {
    // The dependent library finds its helper only through the search
    // directory; no run path leads there.
    BundleDir dir(temp.path(), "dep");
    const std::string dependent = std::string("qzekit_plugin_dependent") + qzetest::kLibrarySuffix;
    const std::string helper = std::string("qzekit_plugin_dep_helper") + qzetest::kLibrarySuffix;
    const fs::path built = fs::path(qzetest::TestPluginDir()) / "dep_bundle";
    fs::copy_file(built / dependent, dir.root / dependent);
    fs::copy_file(built / "bin" / helper, dir.root / "bin" / helper);
    EXPECT_TRUE(manager->LoadBundle(dir.Artifact(dependent, "").get()));
    by::CComLoader* loader = nullptr;
    ASSERT_TRUE(manager->GetComLoader(dir.Key(dependent), &loader));
    EXPECT_TRUE(loader->IsLoaded());
    EXPECT_NE(loader->ModuleObject(), nullptr);
    EXPECT_EQ(qzetest::SearchDirectory(), marker);
}

std::vector<std::string>& Events() {
    static auto* events = new std::vector<std::string>();
    return *events;
}

TEST_F(BundleManagerTest, DestructionReleasesEveryEntryBeforeAnyLibraryCloses) {
    BundleDir a(temp.path(), "a");
    BundleDir b(temp.path(), "b");
    a.Library("qzekit_plugin_bundle", kEntry);
    b.Library("qzekit_plugin_bundle", kEntry);
    ASSERT_TRUE(manager->LoadBundle(a.Artifact(kEntry, qzetest::kBundleClass).get()));
    ASSERT_TRUE(manager->LoadBundle(b.Artifact(kEntry, qzetest::kQuietBundleClass).get()));
    for (const BundleDir* dir : {&a, &b}) {
        const std::wstring path = qzetest::Wide(dir->root / kEntry);
        pf::LibraryHandle handle = pf::OpenLibrary(path.c_str());
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

TEST_F(BundleManagerTest, LoaderPoolAndObjectTableRefuseEmptyKeysAndKeepFirstEntries) {
    by::CComLoader* first = nullptr;
    by::CComLoader* second = nullptr;
    EXPECT_FALSE(manager->ComLoaderIsExist(""));
    EXPECT_FALSE(manager->GetComLoader("", &first));
    EXPECT_EQ(first, nullptr);
    ASSERT_TRUE(manager->GetComLoader("k", &first));
    ASSERT_TRUE(manager->GetComLoader("k", &second));
    EXPECT_EQ(first, second);
    EXPECT_FALSE(first->IsLoaded());
    EXPECT_THAT(BundleLines(*log),
                ElementsAre("query com loader is exist failed, because of key is empty",
                            "key:, get com loader failed, because of key is empty",
                            "key:k, com loader is not exist", "key:k, create com loader",
                            "key:k, get com loader success", "key:k, com loader is exist",
                            "key:k, get com loader success"));

    class Entry : public QZEBaseBundle {};
    Entry* kept = nullptr;
    Entry* dropped = nullptr;
    ASSERT_EQ(by::CComObject<Entry>::CreateInstance(&kept), 0);
    ASSERT_EQ(by::CComObject<Entry>::CreateInstance(&dropped), 0);
    log->Clear();
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
                ElementsAre("set bundle object failed, because of class id is empty",
                            "class id:c, set bundle object failed, because of object pointer is "
                            "nullptr",
                            "get bundle object failed, because of class id is empty",
                            "class id:c, set bundle object success",
                            "class id:c, set bundle object success",
                            "class id:c, get bundle object success"));
    // The table holds one reference to the first object and none to the
    // second.
    EXPECT_EQ(kept->Release(), 1u);
    EXPECT_EQ(dropped->Release(), 0u);
}

TEST(BundleManagerFacade, InitSdkPutsTheSharedImplementationBehindTheFacade) {
    QZExtensionKit::InitSDK();
    QZEBundleManager::GetInstance()->UnInitialize();
    QZExtensionKit::InitSDK();
    auto log = qzetest::CaptureLog();
    by::CComLoader* loader = nullptr;
    EXPECT_FALSE(QZEBundleManager::GetInstance()->GetComLoader("", &loader));
    EXPECT_THAT(BundleLines(*log),
                ElementsAre("key:, get com loader failed, because of key is empty"));
    EXPECT_EQ(QZEBundleManagerImpl::GetInstance(), QZEBundleManagerImpl::GetInstance());
}

}  // namespace
}  // namespace qzextensionkit
