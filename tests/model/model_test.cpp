#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/json/json_reader.h"
#include "base/utf_string_conversions.h"
#include "base/values.h"
#include "base/version.h"
#include "bundle/support/bundle_dirs.h"
#include "common/capture_logger.h"
#include "model/artifact.h"
#include "model/extension_factory.h"
#include "model/extension_impl.h"
#include "model/extension_point_impl.h"
#include "model/manifest.h"
#include "model/support/record_text.h"

namespace {

using namespace qzextensionkit;
using base::FilePath;
using Constraints = std::map<std::string, std::vector<std::string>>;
using Payloads = std::map<std::string, std::string>;
using Versions = std::vector<uint32_t>;
using base::Version;

// The id, then the record's fields.
std::string WithId(const Extension& record) {
    return record.GetId() + "|" + qzetest::Describe(record);
}

// iid|mainEntry|rootPath|resourcesPath|libFileMD5|signMD5|bundleClassId|native
std::string Resolved(const Extension& e) {
    return e.GetIid() + "|" + base::WideToUTF8(e.GetMainEntry()) + "|" +
           base::WideToUTF8(e.GetRootPath().value()) + "|" +
           base::WideToUTF8(e.GetResourcesPath()) + "|" + e.GetLibFileMD5() + "|" + e.GetSignMD5() +
           "|" + e.GetBundleClassId() + (e.IsNative() ? "|native" : "|");
}

// One sample bundle read from a temporary folder. Nothing in the model logs.
class ModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        log_ = qzetest::CaptureLog();
        root_ = Bundle("sample", R"({"id": "extension_adapter", "version": "1.02.3",
            "foundationVersion": "3.2", "mainEntry": "bin/d\u00e9mo.dll", "libFileMD5": "lib-md5",
            "signMD5": "sign-md5", "BundleClassId": "{BUNDLE}", "bundleClassId": "another key",
            "extensionPoints": [{"id": "host.point", "iid": "{IID}", "extensions": [
                {"id": "shared.id", "version": "2.1", "clsid": "{LOCAL}", "isSingleton": false,
                 "payloads": {"local": "1"}, "unifiedId": "local-u"},
                {"clsid": "{no id}"}, "not an object", {"id": "third"}]},
              "not an object", {"type": "no id"},
              {"id": "host.empty", "iid": 5, "extensions": {"id": "not a list"}}]})");
        Artifact* raw = nullptr;
        ASSERT_TRUE(ReadManifest(root_, &raw) && raw);
        artifact_.reset(raw);
        artifact_->GetExtensionPoints(points_);
        ASSERT_EQ(points_.size(), 2u);
        point_ = points_.front();
        point_->GetExtensions(records_);
        ASSERT_EQ(records_.size(), 3u);
        local_ = records_.front();
    }
    void TearDown() override { EXPECT_EQ(log_->Texts(), std::vector<std::string>()); }

    FilePath Bundle(const std::string& name, const char* manifest) {
        std::filesystem::create_directories(temp_.path() / name);
        if (manifest) {
            std::ofstream(temp_.path() / name / "manifest.json", std::ios::binary) << manifest;
        }
        return FilePath(base::UTF8ToWide(temp_.path().u8string())).AppendASCII(name);
    }

    qzetest::TempDir temp_;
    std::shared_ptr<qzetest::CapturedLines> log_;
    FilePath root_;
    std::unique_ptr<Artifact> artifact_;
    std::list<ExtensionPoint*> points_;
    std::list<Extension*> records_;
    ExtensionPoint* point_ = nullptr;
    Extension* local_ = nullptr;
};

TEST_F(ModelTest, ReadManifest) {
    // Bundle details come through the point and its artifact.
    const std::string root = base::WideToUTF8(root_.value());
    EXPECT_EQ(artifact_->GetId() + " " + Resolved(*local_),
              "extension_adapter {IID}|bin/d\xC3\xA9mo.dll|" + root + "|" + root +
                  "\\resources|lib-md5|sign-md5|{BUNDLE}|native");
    EXPECT_EQ(artifact_->GetVersion(), (Versions{1, 2, 3}));
    EXPECT_EQ(artifact_->GetFoundationVersion(), (Versions{3, 2}));
    // Points that are no object or have no id are skipped; a record object
    // without "id" leaves a null, a string is skipped.
    EXPECT_EQ(point_->GetIid() + "|" + points_.back()->GetId() + "|" + points_.back()->GetIid(),
              "{IID}|host.empty|");
    EXPECT_EQ(*std::next(records_.begin()), nullptr);
    EXPECT_EQ(WithId(*local_) + " " + WithId(*records_.back()),
              "shared.id|2.1|{LOCAL}|0|local=1;||local-u|,,,,, third|||1||||,,,,,");

    // Rows: manifest.json (null: none), then result|id|mainEntry|versions and points.
    const std::pair<const char*, const char*> cases[] = {
        {nullptr, "0"},
        {"{\"id\": \"a\",}", "0"},  // the reader runs without options
        {"{\"id\": 7, \"version\": [1], \"mainEntry\": true, \"extensionPoints\": {}}", "1|||0"},
    };
    int n = 0;
    for (const auto& [manifest, expected] : cases) {
        Artifact* artifact = nullptr;
        const bool result = ReadManifest(Bundle("b" + std::to_string(++n), manifest), &artifact);
        std::unique_ptr<Artifact> owned(artifact);
        std::list<ExtensionPoint*> points;
        std::string got = result ? "1" : "0";
        if (owned && owned->GetExtensionPoints(points)) {
            got += "|" + owned->GetId() + "|" + base::WideToUTF8(owned->GetMainEntry()) + "|" +
                   std::to_string(owned->GetVersion().size() + points.size());
        }
        EXPECT_EQ(got, expected) << (manifest ? manifest : "(none)");
    }
}

TEST_F(ModelTest, StrictAndForgivingRecordReaders) {
    // Rows: record, what the strict reader makes of it, and the forgiving
    // reader where it differs.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        // Payloads that are empty or no text are left out. A missing "key" is
        // the empty one; the first entry of a key stays; non-strings in "value"
        // are skipped.
        {R"({"id": "full", "version": "01.x", "clsid": "{C}", "isSingleton": false,
             "iid": "{OTHER}", "extensionPointId": "other.point", "unifiedId": "u-1",
             "payloads": {"title": "Hi", "a.b": "dotted", "b": "", "c": 2},
             "constraints": [{"key": "os", "value": ["win", 1, "mac"]}, "k", {"value": ["x"]},
                             {"key": "os", "value": ["z"]}, {"key": "b", "value": "x"}],
             "settingMap": {"modalPosition": "center", "modalSize": "640x480",
                            "host": "https://h", "uri": "/p", "openType": "modal"}})",
         "full|01.x|{C}|0|a.b=dotted;title=Hi;|:x,;b:;os:win,mac,;|u-1|center,640x480,https://h/p,"
         "modal,https://h,/p",
         nullptr},
        // Wrong types count as absent; "isSingleton" then defaults to true. The
        // strict reader wants all five settings, the forgiving one any.
        {R"({"id": "t", "version": 2, "clsid": ["{C}"], "unifiedId": {}, "isSingleton": "false",
             "payloads": ["a", "1"], "constraints": {"key": "k"},
             "settingMap": {"host": "h", "uri": "/p", "openType": 3}})",
         "t|||1||||,,,,,", "t|||1||||,,h/p,,h,/p"},
    };
    for (const auto& [json, strictText, forgiving] : cases) {
        SCOPED_TRACE(json);
        std::unique_ptr<base::DictionaryValue> item =
            base::DictionaryValue::From(base::JSONReader::Read(json));
        ASSERT_TRUE(item);
        for (bool strict : {true, false}) {
            const std::string expected = strict || !forgiving ? strictText : forgiving;
            Extension* raw = nullptr;
            ASSERT_TRUE(
                strict ? ParseManifestExtension(point_, item.get(), &raw)
                       : ParseExtensionDictionary(point_, item->CreateDeepCopy().release(), &raw));
            std::unique_ptr<Extension> record(raw);
            EXPECT_EQ(WithId(*record) + record->GetExtensionPointId() + record->GetIid(),
                      expected + "host.point{IID}")
                << strict;
        }
    }
}

template <typename Base>
class Counted : public Base {
public:
    explicit Counted(int* deleted) : deleted_(deleted) {}
    ~Counted() override { ++*deleted_; }

private:
    int* deleted_;
};

TEST_F(ModelTest, Ownership) {
    // The forgiving reader deletes its dictionary on every path; the strict
    // one leaves it to its caller.
    for (int path = 0; path < 3; ++path) {
        int deleted = 0;
        auto* item = new Counted<base::DictionaryValue>(&deleted);
        if (path != 1) {
            item->SetString("id", "x");
        }
        Extension* raw = nullptr;
        EXPECT_EQ(ParseExtensionDictionary(point_, item, path == 2 ? nullptr : &raw), path == 0);
        std::unique_ptr<Extension> record(raw);
        EXPECT_EQ(deleted, 1) << path;
    }
    int deleted = 0;
    Counted<base::DictionaryValue> kept(&deleted);
    kept.SetString("id", "x");
    Extension* raw = nullptr;
    EXPECT_TRUE(ParseManifestExtension(point_, &kept, &raw));
    std::unique_ptr<Extension> record(raw);
    EXPECT_EQ(deleted, 0);

    // Every record goes with its artifact; lists append to what the caller
    // holds, null entries included.
    deleted = 0;
    auto artifact = std::make_unique<Artifact>(FilePath(L"root"));
    auto* point = new ExtensionPointImpl(artifact.get());
    artifact->AddExtensionPoint(point);
    auto* a = new Counted<ExtensionImpl>(&deleted);
    auto* b = new Counted<ExtensionImpl>(&deleted);
    point->AddExtension(a);
    point->AddExtension(nullptr);
    point->AddExtension(b);
    std::list<Extension*> extensions{b};
    EXPECT_TRUE(point->GetExtensions(extensions));
    EXPECT_EQ(extensions, (std::list<Extension*>{b, a, nullptr, b}));
    artifact.reset();
    EXPECT_EQ(deleted, 2);
}

TEST_F(ModelTest, FactoryMergesAndCopies) {
    ExtensionImpl plainLocal(nullptr);
    plainLocal.SetId("shared.id");
    const std::pair<std::string, Extension*> cases[] = {
        {"shared.id", local_},
        {"Shared.id", local_},       // ids differ in case
        {"shared.id", &plainLocal},  // local record without a library
        {"shared.id", nullptr}};
    for (const auto& [remoteId, local] : cases) {
        SCOPED_TRACE(remoteId + (local ? " with a local record" : ""));
        SettingMap setting("", "", "https://r/x", "", "https://r", "/x");
        Payloads payloads{{"remote", "yes"}};
        Constraints constraints{{"os", {"mac"}}};
        std::shared_ptr<Extension> remote = ExtensionFactory::createExtension(
            remoteId, "remote.point", payloads, constraints, setting, "remote-u");
        auto* made = static_cast<ExtensionImpl*>(remote.get());
        // Made with no extension point of its own, and not singleton.
        EXPECT_TRUE(made->GetExtensionPoint() == nullptr && !remote->IsSingleton());
        made->SetSingleton(true);
        ExtensionFactory::ExtractLocalNativeExtensionInfoToRemote(remote.get(), local);
        const bool merged = local == local_ && remoteId == "shared.id";
        EXPECT_EQ(WithId(*remote), remoteId + (merged ? "|2.1|{LOCAL}|0|" : "|||1|") +
                                       "remote=yes;|os:mac,;|remote-u|,,https://r/x,,https://r,/x");
        EXPECT_EQ(remote->GetExtensionPointId() + "|" + Resolved(*remote),
                  merged ? "host.point|" + Resolved(*local_) : "remote.point||||||||");
    }

    // A copy carries every field, those its artifact gives included.
    std::shared_ptr<Extension> copy = CopyExtensionShared(local_);
    ASSERT_TRUE(copy);
    EXPECT_EQ(WithId(*copy) + Resolved(*copy), WithId(*local_) + Resolved(*local_));
}

TEST(VersionTest, ParseAndCompare) {
    // Only the first number must be written without leading zeros; one text
    // per way to fail.
    EXPECT_EQ(Version::Parse("1.02.3"), (Versions{1, 2, 3}));
    EXPECT_EQ(Version("0.4294967295").components(), (Versions{0, 4294967295u}));
    for (const std::string& text : std::vector<std::string>{
             "01.2.3", "1.4294967296", "1.2a", "1..2", "", "+1", std::string("1\0.2", 4)}) {
        EXPECT_FALSE(Version(text).IsValid() || !Version::Parse(text).empty()) << text;
    }
    // Number by number, trailing zeros ignored; an invalid text is 0.
    const std::tuple<const char*, const char*, int> cases[] = {
        {"1.2", "1.2.0.0", 0}, {"bad", "0.0", 0},    {"1.9", "1.10", -1},
        {"1.99.99", "2", -1},  {"1", "1.0.0.1", -1}, {"4294967294", "4294967295", -1},
    };
    for (const auto& [a, b, expected] : cases) {
        SCOPED_TRACE(std::string(a) + " <=> " + b);
        EXPECT_EQ(Version(a).CompareTo(Version(b)), expected);
        EXPECT_EQ(Version::Compare(Version::Parse(b), Version::Parse(a)), -expected);
    }
}

}  // namespace
