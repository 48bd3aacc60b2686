#include "model/manifest.h"

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/json/json_reader.h"
#include "base/values.h"
#include "common/capture_logger.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_impl.h"
#include "model/extension_point.h"
#include "model/extension_point_impl.h"
#include "support/bundle_dir.h"

namespace {

using namespace qzextensionkit;
using base::FilePath;
using Constraints = std::map<std::string, std::vector<std::string>>;
using Payloads = std::map<std::string, std::string>;

std::unique_ptr<base::DictionaryValue> ParseObject(const std::string& json) {
    std::unique_ptr<base::DictionaryValue> dict =
        base::DictionaryValue::From(base::JSONReader::Read(json));
    EXPECT_TRUE(dict) << json;
    return dict;
}

std::vector<Extension*> ExtensionsOf(ExtensionPoint* point) {
    std::list<Extension*> list;
    point->GetExtensions(list);
    return {list.begin(), list.end()};
}

std::vector<ExtensionPoint*> PointsOf(const Artifact& artifact) {
    std::list<ExtensionPoint*> list;
    artifact.GetExtensionPoints(list);
    return {list.begin(), list.end()};
}

class ManifestTest : public ::testing::Test {
protected:
    void SetUp() override { log_ = qzetest::CaptureLog(); }
    void TearDown() override {
        // Reading manifests is silent, whatever the input: the caller logs.
        EXPECT_EQ(log_->Texts(), std::vector<std::string>());
    }

    qzetest::BundleDir bundles_;
    std::shared_ptr<qzetest::CapturedLines> log_;
};

TEST_F(ManifestTest, ReadManifestResultsForEveryKindOfInput) {
    enum class Layout { kManifest, kMissingDirectory, kNoManifest, kManifestIsDirectory, kDotDot };
    enum class Outcome { kUntouched, kArtifact };
    const struct {
        const char* name;
        Layout layout;
        std::string manifest;
        bool result;
        Outcome outcome;
        std::string id;
    } cases[] = {
        {"missing directory", Layout::kMissingDirectory, "", false, Outcome::kUntouched, ""},
        {"no manifest.json", Layout::kNoManifest, "", false, Outcome::kUntouched, ""},
        {"manifest.json is a directory", Layout::kManifestIsDirectory, "", false,
         Outcome::kUntouched, ""},
        {"root reached through ..", Layout::kDotDot, "{\"id\":\"a\"}", false, Outcome::kUntouched,
         ""},
        {"empty file", Layout::kManifest, "", false, Outcome::kUntouched, ""},
        {"not JSON", Layout::kManifest, "id = demo", false, Outcome::kUntouched, ""},
        {"cut short", Layout::kManifest, "{\"id\": \"a\"", false, Outcome::kUntouched, ""},
        {"trailing comma", Layout::kManifest, "{\"id\": \"a\",}", false, Outcome::kUntouched, ""},
        {"data after the root", Layout::kManifest, "{} {}", false, Outcome::kUntouched, ""},
        {"list root", Layout::kManifest, "[]", true, Outcome::kUntouched, ""},
        {"list of objects root", Layout::kManifest, "[{\"id\": \"a\"}]", true, Outcome::kUntouched,
         ""},
        {"string root", Layout::kManifest, "\"manifest\"", true, Outcome::kUntouched, ""},
        {"number root", Layout::kManifest, "42", true, Outcome::kUntouched, ""},
        {"null root", Layout::kManifest, "null", true, Outcome::kUntouched, ""},
        {"empty object", Layout::kManifest, "{}", true, Outcome::kArtifact, ""},
        {"byte order mark", Layout::kManifest, "\xEF\xBB\xBF{\"id\": \"bom\"}", true,
         Outcome::kArtifact, "bom"},
        {"comments", Layout::kManifest, "// bundle\n{ /* the id */ \"id\": \"commented\" }", true,
         Outcome::kArtifact, "commented"},
        {"wrong key types", Layout::kManifest,
         "{\"id\": 7, \"version\": [1], \"mainEntry\": true, \"libFileMD5\": {}, "
         "\"extensionPoints\": {\"id\": \"p\"}}",
         true, Outcome::kArtifact, ""},
    };
    int index = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string name = "bundle" + std::to_string(index++);
        FilePath root = bundles_.Path(name);
        switch (c.layout) {
            case Layout::kManifest:
                root = bundles_.Bundle(name, c.manifest);
                break;
            case Layout::kMissingDirectory:
                break;
            case Layout::kNoManifest:
                root = bundles_.EmptyBundle(name);
                break;
            case Layout::kManifestIsDirectory:
                root = bundles_.EmptyBundle(name);
                std::filesystem::create_directories(bundles_.root() / name / "manifest.json");
                break;
            case Layout::kDotDot:
                bundles_.Bundle(name, c.manifest);
                root = bundles_.Path(name).AppendASCII("..").AppendASCII(name);
                break;
        }
        Artifact marker(FilePath(L"marker"));
        Artifact* artifact = &marker;
        EXPECT_EQ(ReadManifest(root, &artifact), c.result);
        if (c.outcome == Outcome::kUntouched) {
            EXPECT_EQ(artifact, &marker);
            continue;
        }
        ASSERT_NE(artifact, &marker);
        std::unique_ptr<Artifact> owned(artifact);
        EXPECT_EQ(owned->GetId(), c.id);
        EXPECT_EQ(owned->GetRootPath(), root);
        EXPECT_EQ(owned->GetResourcesPath(), root.value() + L"\\resources");
        EXPECT_TRUE(owned->GetVersion().empty());
        EXPECT_EQ(owned->GetMainEntry(), L"");
        EXPECT_EQ(owned->GetLibFileMD5(), "");
        EXPECT_TRUE(PointsOf(*owned).empty());
    }
}

TEST_F(ManifestTest, NullOutPointerIsRefusedBeforeTheRootIsLookedAt) {
    for (const char* manifest : {"{\"id\": \"a\"}", "[]"}) {
        SCOPED_TRACE(manifest);
        EXPECT_FALSE(ReadManifest(bundles_.Bundle("b", manifest), nullptr));
    }
    Artifact* artifact = nullptr;
    EXPECT_FALSE(ParseArtifact(bundles_.Path("b"), nullptr, &artifact));
    EXPECT_EQ(artifact, nullptr);
}

TEST_F(ManifestTest, ReadsACompleteManifest) {
    const FilePath root = bundles_.Bundle("demo", R"({
        "id": "com.example.demo",
        "version": "1.02.3",
        "foundationVersion": "3.2",
        "mainEntry": "bin/d\u00e9mo.dll",
        "libFileMD5": "0123456789abcdef0123456789abcdef",
        "signMD5": "fedcba9876543210fedcba9876543210",
        "BundleClassId": "{11111111-2222-3333-4444-555555555555}",
        "bundleClassId": "lower case is another key",
        "unknownKey": [1, 2, 3],
        "extensionPoints": [
            {
                "id": "com.example.host.greeters",
                "type": "service",
                "iid": "{AAAAAAAA-0000-0000-0000-000000000001}",
                "extensions": [
                    {"id": "first", "clsid": "{C1}", "iid": "{ignored}",
                     "extensionPointId": "ignored.point"},
                    {"clsid": "{no id}"},
                    "not an object",
                    {"id": "third", "isSingleton": false}
                ]
            },
            "not an object",
            {"type": "no id"},
            {"id": "com.example.host.empty", "extensions": {"id": "not a list"}},
            {"id": "com.example.host.noiid", "iid": 5, "extensions": [{"id": "lone"}]}
        ]
    })");
    Artifact* raw = nullptr;
    ASSERT_TRUE(ReadManifest(root, &raw));
    ASSERT_NE(raw, nullptr);
    std::unique_ptr<Artifact> artifact(raw);

    EXPECT_EQ(artifact->GetId(), "com.example.demo");
    EXPECT_EQ(artifact->GetVersion(), (std::vector<uint32_t>{1, 2, 3}));
    EXPECT_EQ(artifact->GetFoundationVersion(), (std::vector<uint32_t>{3, 2}));
    EXPECT_EQ(artifact->GetMainEntry(), std::wstring(L"bin/d\u00e9mo.dll"));
    EXPECT_EQ(artifact->GetLibFileMD5(), "0123456789abcdef0123456789abcdef");
    EXPECT_EQ(artifact->GetSignMD5(), "fedcba9876543210fedcba9876543210");
    EXPECT_EQ(artifact->GetBundleClassId(), "{11111111-2222-3333-4444-555555555555}");
    EXPECT_EQ(artifact->GetRootPath(), root);
    EXPECT_EQ(artifact->GetResourcesPath(), root.value() + L"\\resources");

    // Elements that are no object or have no id are skipped.
    std::vector<ExtensionPoint*> points = PointsOf(*artifact);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[0]->GetId(), "com.example.host.greeters");
    EXPECT_EQ(points[0]->GetIid(), "{AAAAAAAA-0000-0000-0000-000000000001}");
    EXPECT_EQ(points[1]->GetId(), "com.example.host.empty");
    EXPECT_TRUE(ExtensionsOf(points[1]).empty());
    EXPECT_EQ(points[2]->GetIid(), "");
    for (ExtensionPoint* point : points) {
        EXPECT_EQ(static_cast<ExtensionPointImpl*>(point)->GetArtifact(), artifact.get());
    }

    // The object without "id" leaves a null; the string is skipped.
    std::vector<Extension*> extensions = ExtensionsOf(points[0]);
    ASSERT_EQ(extensions.size(), 3u);
    ASSERT_NE(extensions[0], nullptr);
    EXPECT_EQ(extensions[1], nullptr);
    ASSERT_NE(extensions[2], nullptr);

    Extension* first = extensions[0];
    EXPECT_EQ(first->GetId(), "first");
    EXPECT_EQ(first->GetExtensionPointId(), "com.example.host.greeters");
    EXPECT_EQ(first->GetIid(), "{AAAAAAAA-0000-0000-0000-000000000001}");
    EXPECT_EQ(first->GetClsid(), "{C1}");
    EXPECT_TRUE(first->IsSingleton());
    EXPECT_TRUE(first->IsNative());
    EXPECT_EQ(first->GetMainEntry(), std::wstring(L"bin/d\u00e9mo.dll"));
    EXPECT_EQ(first->GetRootPath(), root);
    EXPECT_EQ(first->GetResourcesPath(), root.value() + L"\\resources");
    EXPECT_EQ(first->GetLibFileMD5(), "0123456789abcdef0123456789abcdef");
    EXPECT_EQ(first->GetSignMD5(), "fedcba9876543210fedcba9876543210");
    EXPECT_EQ(first->GetBundleClassId(), "{11111111-2222-3333-4444-555555555555}");
    EXPECT_FALSE(extensions[2]->IsSingleton());

    std::vector<Extension*> lone = ExtensionsOf(points[2]);
    ASSERT_EQ(lone.size(), 1u);
    EXPECT_EQ(lone[0]->GetExtensionPointId(), "com.example.host.noiid");
}

// What a reader made of one extension object.
struct Expected {
    bool made;
    std::string id;
    std::string version;
    std::string clsid;
    bool singleton;
    Payloads payloads;
    Constraints constraints;
    std::string unifiedId;
};

struct Setting {
    std::string modalPosition, modalSize, url, openType, host, uri;
};

void ExpectSetting(const SettingMap& got, const Setting& want) {
    EXPECT_EQ(got.modalPosition, want.modalPosition);
    EXPECT_EQ(got.modalSize, want.modalSize);
    EXPECT_EQ(got.url, want.url);
    EXPECT_EQ(got.openType, want.openType);
    EXPECT_EQ(got.host, want.host);
    EXPECT_EQ(got.uri, want.uri);
}

void ExpectRecord(bool result, Extension* record, const Expected& want) {
    EXPECT_EQ(result, want.made);
    ASSERT_EQ(record != nullptr, want.made);
    if (!record) {
        return;
    }
    EXPECT_EQ(record->GetId(), want.id);
    EXPECT_EQ(record->GetVersion(), want.version);
    EXPECT_EQ(record->GetClsid(), want.clsid);
    EXPECT_EQ(record->IsSingleton(), want.singleton);
    EXPECT_EQ(record->GetPayloads(), want.payloads);
    EXPECT_EQ(record->GetConstraints(), want.constraints);
    EXPECT_EQ(record->GetUnifiedId(), want.unifiedId);
    // Point id and interface id always come from the point handed in.
    EXPECT_EQ(record->GetExtensionPointId(), "host.point");
    EXPECT_EQ(record->GetIid(), "{POINT-IID}");
    EXPECT_TRUE(record->IsNative());
}

// A record with the given id and every other key at its default.
Expected Made(const std::string& id) {
    return {true, id, "", "", true, {}, {}, ""};
}

TEST_F(ManifestTest, BothExtensionReadersOnTheSameObjects) {
    const Setting none{};
    const Expected notMade{false, "", "", "", false, {}, {}, ""};
    const struct {
        const char* json;
        Expected expected;
        Setting strictSetting;
        Setting forgivingSetting;
    } cases[] = {
        {R"({"id": "a"})", Made("a"), none, none},
        {R"({"version": "1.0", "clsid": "{C}"})", notMade, none, none},
        {R"({"id": 5})", notMade, none, none},
        {R"({"id": "full", "version": "01.x", "clsid": "{C}", "isSingleton": false,
             "iid": "{OTHER}", "extensionPointId": "other.point", "unifiedId": "u-1",
             "payloads": {"title": "Hi", "a.b": "dotted"},
             "constraints": [{"key": "os", "value": ["win", "mac"]}],
             "settingMap": {"modalPosition": "center", "modalSize": "640x480",
                            "host": "https://h", "uri": "/p", "openType": "modal"}})",
         {true,
          "full",
          "01.x",
          "{C}",
          false,
          {{"a.b", "dotted"}, {"title", "Hi"}},
          {{"os", {"win", "mac"}}},
          "u-1"},
         {"center", "640x480", "https://h/p", "modal", "https://h", "/p"},
         {"center", "640x480", "https://h/p", "modal", "https://h", "/p"}},
        {R"({"id": "s", "isSingleton": "false"})", Made("s"), none, none},
        {R"({"id": "s", "isSingleton": 0})", Made("s"), none, none},
        {R"({"id": "t", "version": 2, "clsid": ["{C}"], "unifiedId": {}})", Made("t"), none, none},
        {R"({"id": "p", "payloads": {"a": "1", "b": "", "c": 2, "d": null, "e": {"x": "y"}}})",
         {true, "p", "", "", true, {{"a", "1"}}, {}, ""},
         none,
         none},
        {R"({"id": "p", "payloads": ["a", "1"]})", Made("p"), none, none},
        {R"({"id": "c", "constraints": [{"key": "k", "value": ["x", 1, "y"]},
                                         {"key": "k", "value": ["z"]}]})",
         {true, "c", "", "", true, {}, {{"k", {"x", "y"}}}, ""},
         none,
         none},
        {R"({"id": "c", "constraints": [{"value": ["x"]}, {"key": 3, "value": ["y"]}]})",
         {true, "c", "", "", true, {}, {{"", {"x"}}}, ""},
         none,
         none},
        {R"({"id": "c", "constraints": ["k", {"key": "a"}, {"key": "b", "value": "x"},
                                         {"key": "c", "value": []}]})",
         {true, "c", "", "", true, {}, {{"a", {}}, {"b", {}}, {"c", {}}}, ""},
         none,
         none},
        {R"({"id": "c", "constraints": {"key": "k", "value": ["x"]}})", Made("c"), none, none},
        {R"({"id": "m", "settingMap": {"host": "h", "uri": "/p"}})",
         Made("m"),
         none,
         {"", "", "h/p", "", "h", "/p"}},
        {R"({"id": "m", "settingMap": {"uri": "/only"}})",
         Made("m"),
         none,
         {"", "", "/only", "", "", "/only"}},
        {R"({"id": "m", "settingMap": {"modalPosition": 1, "modalSize": "s", "host": "h",
                                       "uri": "u", "openType": "o"}})",
         Made("m"),
         none,
         {"", "s", "hu", "o", "h", "u"}},
        {R"({"id": "m", "settingMap": {"modalPosition": 1}})", Made("m"), none, none},
        {R"({"id": "m", "settingMap": "host=h"})", Made("m"), none, none},
    };
    Artifact artifact(FilePath(L"C:\\bundles\\adapter"));
    artifact.SetMainEntry(L"adapter.dll");
    ExtensionPointImpl point(&artifact);
    point.SetIdentifiers("host.point", "{POINT-IID}");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        std::unique_ptr<base::DictionaryValue> item = ParseObject(c.json);
        ASSERT_TRUE(item);
        {
            SCOPED_TRACE("strict");
            Extension* raw = nullptr;
            bool result = ParseManifestExtension(&point, item.get(), &raw);
            std::unique_ptr<Extension> record(raw);
            ExpectRecord(result, record.get(), c.expected);
            if (record) {
                ExpectSetting(record->GetSettingMap(), c.strictSetting);
            }
        }
        {
            SCOPED_TRACE("forgiving");
            Extension* raw = nullptr;
            bool result = ParseExtensionDictionary(&point, item->CreateDeepCopy().release(), &raw);
            std::unique_ptr<Extension> record(raw);
            ExpectRecord(result, record.get(), c.expected);
            if (record) {
                ExpectSetting(record->GetSettingMap(), c.forgivingSetting);
            }
        }
    }
}

// Counts how often a dictionary is deleted.
class CountedDictionary : public base::DictionaryValue {
public:
    explicit CountedDictionary(int* deleted) : deleted_(deleted) {}
    ~CountedDictionary() override { ++*deleted_; }

private:
    int* deleted_;
};

TEST_F(ManifestTest, ForgivingReaderDeletesTheDictionaryOnEveryPath) {
    ExtensionPointImpl point(nullptr);
    point.SetIdentifiers("host.point", "");
    const struct {
        const char* name;
        bool withId;
        bool withOut;
        bool result;
    } cases[] = {
        {"made", true, true, true},
        {"no id", false, true, false},
        {"no out pointer", true, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        int deleted = 0;
        auto* item = new CountedDictionary(&deleted);
        if (c.withId) {
            item->SetString("id", "x");
        }
        Extension* raw = nullptr;
        EXPECT_EQ(ParseExtensionDictionary(&point, item, c.withOut ? &raw : nullptr), c.result);
        std::unique_ptr<Extension> record(raw);
        EXPECT_EQ(deleted, 1);
        EXPECT_EQ(record != nullptr, c.result);
    }
    int deleted = 0;
    EXPECT_FALSE(ParseExtensionDictionary(&point, nullptr, nullptr));

    // The strict reader leaves the dictionary to its caller.
    {
        CountedDictionary item(&deleted);
        item.SetString("id", "x");
        Extension* raw = nullptr;
        EXPECT_TRUE(ParseManifestExtension(&point, &item, &raw));
        std::unique_ptr<Extension> record(raw);
        EXPECT_FALSE(ParseManifestExtension(&point, &item, nullptr));
        EXPECT_FALSE(ParseManifestExtension(&point, nullptr, &raw));
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
}

TEST_F(ManifestTest, ExtensionPointReaderLeavesOutPointerAloneWithoutId) {
    Artifact artifact(FilePath(L"root"));
    ExtensionPointImpl marker(nullptr);
    ExtensionPoint* point = &marker;
    std::unique_ptr<base::DictionaryValue> item = ParseObject(R"({"iid": "{I}"})");
    EXPECT_FALSE(ParseExtensionPoint(&artifact, item.get(), &point));
    EXPECT_FALSE(ParseExtensionPoint(&artifact, nullptr, &point));
    EXPECT_FALSE(ParseExtensionPoint(&artifact, item.get(), nullptr));
    EXPECT_EQ(point, &marker);
}

}  // namespace
