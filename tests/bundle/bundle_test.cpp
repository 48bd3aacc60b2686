#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "bundle/bundle_manager_impl.h"
#include "bundle/lib_file_verify.h"
#include "bundle/library_signer.h"
#include "bundle/sign_verify.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "common/capture_logger.h"
#include "component/support/test_plugins.h"
#include "kit/extension_manager.h"
#include "kit/qzextensionkit.h"
#include "platform/platform.h"
#include "plugins/test_interfaces.h"

namespace qzextensionkit {
namespace {

namespace fs = std::filesystem;
namespace pf = platform;
using qzetest::BundleDir;
using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

const std::string P = "[QZExtensionKit] [SignVerify] ";
const std::string kEntry = std::string("entry") + qzetest::kLibrarySuffix;
const std::string kClass = qzetest::kBundleClass;

TEST(LibFileVerify, DigestMatrix) {
    const std::string kOk = P + "Verify lib file md5 success.";
    // Two blocks of 1,024 bytes and one byte more.
    const std::string bytes = std::string(2048, '\0') + "x";
    const std::string md5 = qzetest::Md5Hex(bytes);
    const std::string name = "\xE5\x8A\xA0\xE8\xBD\xBD\xC3\xA9.so";  // in UTF-8
    // Rows: file name, the manifest's digest, the line (a mismatch is the
    // caller's to log).
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {name, md5, kOk},
        {name, md5.substr(1) + "0", ""},
        {"missing.so", md5,
         P + "Verify lib file md5 failed, because of generate lib file md5 failed."},
    };
    qzetest::TempDir dir;
    qzetest::WriteBytes(dir.path() / fs::u8path(name), bytes);
    for (const auto& [file, manifest, line] : rows) {
        SCOPED_TRACE(file + " " + manifest);
        auto log = qzetest::CaptureLog();
        EXPECT_EQ(QZEExtensionLibFileVerify::GetInstance()->Verify(
                      qzetest::Wide(dir.path() / fs::u8path(file)), manifest),
                  line == kOk);
        EXPECT_EQ(log->Texts(), line.empty() ? Lines{} : Lines{line});
    }
}

#if !defined(_WIN32)

using qzetest::Identity;
using qzetest::SignOptions;

qzetest::TestPki* g_pki = nullptr;

// Set before the first test: libcrypto reads these once, for its store.
class VerifyEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        dir_ = std::make_unique<qzetest::TempDir>();
        pki_ = qzetest::MakeTestPki(dir_->path());
        ::setenv("SSL_CERT_FILE", pki_.trustFile.c_str(), 1);
        ::setenv("SSL_CERT_DIR", pki_.trustDir.c_str(), 1);
        g_pki = &pki_;
    }
    void TearDown() override { dir_.reset(); }

private:
    std::unique_ptr<qzetest::TempDir> dir_;
    qzetest::TestPki pki_;
};

::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new VerifyEnvironment);

const unsigned char kSaltBytes[] = {QZEKIT_SIGN_SALT_BYTES};
const std::string kSalt(reinterpret_cast<const char*>(kSaltBytes), sizeof kSaltBytes);
// Not the file's digest: signMD5 binds the manifest's text, not a fresh hash.
const std::string kLibMd5 = "0123456789abcdef0123456789abcdef";
const std::string kSigner = "Example Signer Ltd";
const std::string kIntermediate = "Verify Test Intermediate CA";

std::string Library() {
    return qzetest::ReadBytes(qzetest::BuiltPlugin("qzekit_plugin_complete"));
}

// Signed with the intermediate certificate carried along.
std::string SignedWith(const Identity& signer, SignOptions options = {}) {
    options.chain.push_back(&qzetest::VerifyPki().intermediate);
    return qzetest::AppendSignature(Library(), qzetest::SignDetached(Library(), signer, options));
}

std::string SignMd5(const std::string& subject) {
    return qzetest::Md5Hex(subject + kLibMd5 + kSalt);
}

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Lines Cert(const std::string& serial, const std::string& issuer, const std::string& subject) {
    return {P + "Serial Number: " + serial, P + "Issuer Name: " + issuer,
            P + "Subject Name: " + subject};
}

LibrarySigningInput Input(const Identity& id, const fs::path& key = {}, const fs::path& chain = {},
                          const std::string& passphrase = {}) {
    LibrarySigningInput input;
    input.certificatePath = qzetest::Wide(id.certPath);
    input.keyPath = qzetest::Wide(key.empty() ? id.keyPath : key);
    input.chainPath = chain.empty() ? std::wstring() : qzetest::Wide(chain);
    input.keyPassphrase = passphrase;
    return input;
}

TEST(SignVerify, SignatureMatrix) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    const std::string good = SignedWith(pki.signer);
    std::string tampered = good;
    tampered[100] = static_cast<char>(tampered[100] ^ 1);
    qzetest::TempDir dir;
    qzetest::CertRequest noName;
    noName.issuer = &pki.intermediate;
    noName.serial = 0x6001;
    const Identity nameless = qzetest::MakeIdentity(noName, dir.path(), "nameless");
    // Signed twice by the kit: the second signature replaces the first.
    const fs::path resigned = dir.path() / "resigned.so";
    qzetest::WriteBytes(resigned, Library());
    fs::permissions(resigned, fs::perms(0755));
    std::string error;
    ASSERT_TRUE(SignLibraryFile(qzetest::Wide(resigned), Input(pki.selfSigned), &error)) << error;
    LibrarySigningInput input = Input(pki.signer, {}, pki.intermediate.certPath);
    input.programName = "Hello Bundle \xE2\x9C\x93";
    input.moreInfoLink = "https://example.com/hello";
    ManifestDigests digests;
    ASSERT_TRUE(SignLibraryFile(qzetest::Wide(resigned), input, &error) &&
                ComputeManifestDigests(qzetest::Wide(resigned), &digests, &error))
        << error;
    EXPECT_EQ(fs::status(resigned).permissions() & fs::perms::all, fs::perms(0755));
    const std::string right = SignMd5(kSigner);
    const std::string kFailed = P + "Verify signer certificate information failed, because of ";
    const Lines kSigned = {P + "The file \"{path}\" is signed and the signature was verified."};
    const Lines kSignerCert = Cert("008f1e2d3c4b5a6978", kIntermediate, kSigner);
    const Lines kMatched = {P + "Compare config sign md5 with lib file cert md5.",
                            P + "Verify signer certificate information success."};
    const struct {
        const char* name;
        std::string bytes;
        std::string signMD5;
        bool expected;
        Lines lines;  // "{path}" stands for the file's path
        std::string libFileMD5 = kLibMd5;
    } rows[] = {
        // clang-format off
        {"byte changed after signing", tampered, right, false, {P + "Error is: 0x80096010."}},
        {"unsigned file", Library(), right, false, {P + "The file \"{path}\" is not signed."}},
        {"wrong signMD5", good, "0000" + right.substr(4), false,
         kSigned + kSignerCert + Lines{kMatched[0], kFailed + "sign md5 not match."}},
        {"empty signMD5: the trust check still runs first", good, "", false,
         kSigned + kSignerCert + Lines{kFailed + "sign md5 is empty."}},
        // A name with no attribute is an empty text, as Windows reads it.
        {"subject without a name", SignedWith(nameless), SignMd5(""), false,
         kSigned + Cert("6001", kIntermediate, "") + Lines{kFailed + "subject name empty."}},
        {"signed twice by the kit", qzetest::ReadBytes(resigned), digests.signMD5, true,
         kSigned + Lines{P + "Program Name : Hello Bundle \xE2\x9C\x93",
                         P + "MoreInfo Link : https://example.com/hello"} + kSignerCert + kMatched,
         digests.libFileMD5},
        // clang-format on
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path path = dir.path() / (std::to_string(++n) + ".so");
        qzetest::WriteBytes(path, row.bytes);
        Lines expected = row.lines;
        for (std::string& line : expected) {
            if (line.find("{path}") != std::string::npos) {
                line.replace(line.find("{path}"), 6, path.string());
            }
        }
        auto log = qzetest::CaptureLog();
        EXPECT_EQ(QZEExtensionSignVerify::GetInstance()->Verify(qzetest::Wide(path), row.signMD5,
                                                                row.libFileMD5),
                  row.expected);
        EXPECT_EQ(log->Texts(), expected);
    }
}

#endif  // !defined(_WIN32)

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

    qzetest::TempDir temp;
    std::shared_ptr<qzetest::CapturedLines> log;
    std::unique_ptr<QZEBundleManagerImpl> manager;
    std::wstring marker;
};

TEST_F(BundleManagerTest, WhatEachLoadLeavesAndTheNextBundleStillLoads) {
    using Prepare = std::function<void(BundleDir&, Artifact&)>;
    const Prepare bundle = [](BundleDir& d, Artifact&) {
        d.Library("qzekit_plugin_bundle", kEntry);
    };
    // Both checks on and a wrong digest: the file check fails first.
    const Prepare wrongDigest = [](BundleDir& d, Artifact& a) {
        d.Library("qzekit_plugin_bundle", kEntry);
        a.SetLibFileMD5(std::string(32, '0'));
        Checks(true);
    };
    // The right digest but no signature: the signature check fails.
    const Prepare unsignedLib = [](BundleDir& d, Artifact& a) {
        d.Library("qzekit_plugin_bundle", kEntry);
        a.SetLibFileMD5(qzetest::Md5Hex(qzetest::ReadBytes(d.root / kEntry)));
        Checks(true);
    };
#if !defined(_WIN32)
    const Prepare signedBoth = [](BundleDir& d, Artifact& a) {
        const qzetest::TestPki& pki = qzetest::VerifyPki();
        d.Library("qzekit_plugin_bundle", kEntry);
        const std::wstring path = qzetest::Wide(d.root / kEntry);
        ManifestDigests digests;
        std::string error;
        EXPECT_TRUE(
            SignLibraryFile(path, Input(pki.signer, {}, pki.intermediate.certPath), &error) &&
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
    const std::string failed = "load bundle failed, because of ";
    const Lines kRootMissing{failed + "root path not exist"};
    const Lines kStored{"class id:" + kClass + ", set bundle object success",
                        "initialze bundle entry success"};
    enum Left { kNothing, kUnopenedAtBin, kOpen };
    const struct {
        const char* name;
        Prepare prepare;
        std::string mainEntry;
        std::string classId;
        Lines lines;
        Left left;  // kOpen: the load succeeds
    } rows[] = {
        // clang-format off
        {"root missing", [](BundleDir& d, Artifact&) { fs::remove_all(d.root); }, kEntry, "",
         kRootMissing, kNothing},
        {"file check fails, before the signature's", wrongDigest, kEntry, kClass,
         {failed + "lib file verify failed"}, kNothing},
        {"unsigned library", unsignedLib, kEntry, kClass, {failed + "file sign verify failed"},
         kNothing},
        {"not a library",
         [](BundleDir& d, Artifact&) { qzetest::WriteBytes(d.root / kEntry, "no library"); },
         kEntry, "", {failed + "load com failed"}, kUnopenedAtBin},
        {"entry class not in the library", bundle, kEntry, qzetest::kGreeterClass,
         {"initialze bundle entry failed"}, kOpen},
        {"dependency found in the bundle's bin", withDependency, dependent, "", {}, kOpen},
        {"entry built and kept", bundle, kEntry, kClass, kStored, kOpen},
    // clang-format on
#if !defined(_WIN32)
        {"signed library, both checks on", signedBoth, kEntry, kClass, kStored, kOpen},
#endif
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        manager = std::make_unique<QZEBundleManagerImpl>();
        BundleDir dir(temp.path(), "row" + std::to_string(++n));
        const std::string key = dir.Key(row.mainEntry);
        const bool inPool = row.left != kNothing;
        // Every load past the path checks asks the pool first.
        Lines lines;
        if (row.lines != kRootMissing) {
            lines.push_back("key:" + key + ", com loader is not exist");
        }
        if (inPool) {
            lines.insert(lines.end(), {"key:" + key + ", com loader is not exist",
                                       "key:" + key + ", create com loader",
                                       "key:" + key + ", get com loader success"});
        }
        lines.insert(lines.end(), row.lines.begin(), row.lines.end());
        auto artifact = dir.Artifact(row.mainEntry, row.classId);
        pf::SetLibraryDirectory(marker.c_str());
        row.prepare(dir, *artifact);
        log->Clear();
        EXPECT_EQ(manager->LoadBundle(artifact.get()), row.left == kOpen);
        EXPECT_EQ(BundleLines(*log), lines);
        EXPECT_EQ(qzetest::SearchDirectory(), row.left == kUnopenedAtBin
                                                  ? qzetest::Backslashed(dir.RootText() + L"\\bin")
                                                  : marker);
        by::CComLoader* loader = nullptr;
        EXPECT_EQ(inPool && manager->GetComLoader(key, &loader) && loader->IsLoaded(),
                  row.left == kOpen);
        // A second load repeats the checks, or finds the loader and stops.
        log->Clear();
        EXPECT_EQ(manager->LoadBundle(artifact.get()), inPool);
        const Lines again{"key:" + key + ", com loader is exist", "bundle has been loaded"};
        EXPECT_EQ(BundleLines(*log), inPool ? again : lines);

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
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    const std::string binEntry = "bin\\" + kEntry;
    BundleDir a(temp.path(), "a");
    BundleDir b(temp.path(), "b");
    a.Library("qzekit_plugin_bundle", kEntry);
    b.Library("qzekit_plugin_bundle", "bin/" + kEntry);
    ASSERT_TRUE(manager->LoadBundle(a.Artifact(kEntry, kClass).get()));
    ASSERT_TRUE(manager->LoadBundle(b.Artifact(binEntry, lower).get()));
    auto count = [&](const BundleDir& dir, const std::string& entry, const char* name) {
        by::CComLoader* loader = nullptr;
        EXPECT_TRUE(manager->GetComLoader(dir.Key(entry), &loader));
        return qzetest::CallCountExport(loader->Path(), name);
    };
    EXPECT_EQ(std::to_string(count(a, kEntry, "TestBundleInitializeCalls")) +
                  std::to_string(count(a, kEntry, "TestBundleContextChecks")) +
                  std::to_string(count(a, kEntry, "TestLiveObjects")) +
                  std::to_string(count(b, binEntry, "TestBundleInitializeCalls")),
              "1111");

    by::IBaseUnknown* upperEntry = nullptr;
    by::IBaseUnknown* lowerEntry = nullptr;
    ASSERT_TRUE(manager->GetBundleObject(kClass, &upperEntry));
    ASSERT_TRUE(manager->GetBundleObject(lower, &lowerEntry));
    EXPECT_NE(upperEntry, lowerEntry);
    // The table's reference is the only one: the getter adds none.
    EXPECT_EQ(upperEntry->AddRef(), 2u);
    EXPECT_EQ(upperEntry->Release(), 1u);
    log->Clear();
    by::IBaseUnknown* out = nullptr;
    // A class id keeps its first object; the second one is let go.
    EXPECT_TRUE(manager->SetBundleObject(kClass, lowerEntry) &&
                manager->GetBundleObject(kClass, &out) && out == upperEntry);
    EXPECT_EQ(lowerEntry->AddRef(), 2u);
    EXPECT_EQ(lowerEntry->Release(), 1u);
    const std::string quiet = qzetest::kQuietBundleClass;
    EXPECT_FALSE(manager->GetBundleObject(quiet, &out) || out);
    EXPECT_THAT(BundleLines(*log),
                ElementsAre("class id:" + kClass + ", set bundle object success",
                            "class id:" + kClass + ", get bundle object success",
                            "class id:" + quiet +
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

}  // namespace
}  // namespace qzextensionkit

#if !defined(_WIN32)
const qzetest::TestPki& qzetest::VerifyPki() {
    return *qzextensionkit::g_pki;
}
#endif
