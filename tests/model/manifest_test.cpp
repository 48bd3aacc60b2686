#include "model/manifest.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "base/json/json_reader.h"
#include "base/values.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_point.h"
#include "model/extension_point_impl.h"
#include "support/sample_bundle.h"

namespace {

using namespace qzextensionkit;
using ManifestTest = qzetest::SampleBundle;

TEST_F(ManifestTest, ReadManifestResults) {
    // No folder, no manifest.json, a folder in its place.
    std::filesystem::create_directories(dir_ / "empty");
    std::filesystem::create_directories(dir_ / "folder" / "manifest.json");
    for (const char* name : {"missing", "empty", "folder"}) {
        Artifact* untouched = nullptr;
        EXPECT_FALSE(ReadManifest(Path(name), &untouched)) << name;
        EXPECT_EQ(untouched, nullptr);
    }
    const struct {
        const char* manifest;
        bool result;
        const char* id;  // null: no artifact
    } cases[] = {
        {"", false, nullptr},
        {"{\"id\": \"a\",}", false, nullptr},  // the reader runs without options
        {"[]", true, nullptr},
        {"{}", true, ""},
        {"\xEF\xBB\xBF{\"id\": \"bom\"}", true, "bom"},
        {"// bundle\n{ /* the id */ \"id\": \"commented\" }", true, "commented"},
        {"{\"id\": 7, \"version\": [1], \"mainEntry\": true, \"extensionPoints\": {}}", true, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.manifest);
        const base::FilePath root = Bundle("bundle", c.manifest);
        Artifact* artifact = nullptr;
        EXPECT_EQ(ReadManifest(root, &artifact), c.result);
        std::unique_ptr<Artifact> owned(artifact);
        ASSERT_EQ(owned != nullptr, c.id != nullptr);
        if (owned) {
            EXPECT_EQ(owned->GetId(), c.id);
            EXPECT_EQ(owned->GetResourcesPath(), root.value() + L"\\resources");
            EXPECT_TRUE(owned->GetVersion().empty());
            EXPECT_EQ(owned->GetMainEntry(), L"");
            std::list<ExtensionPoint*> points;
            EXPECT_TRUE(owned->GetExtensionPoints(points) && points.empty());
        }
    }
}

TEST_F(ManifestTest, ReadsTheSampleBundle) {
    EXPECT_EQ(artifact_->GetId(), "extension_adapter");
    EXPECT_EQ(artifact_->GetVersion(), (std::vector<uint32_t>{1, 2, 3}));
    EXPECT_EQ(artifact_->GetFoundationVersion(), (std::vector<uint32_t>{3, 2}));
    EXPECT_EQ(artifact_->GetMainEntry(), std::wstring(L"bin/d\u00e9mo.dll"));
    EXPECT_EQ(artifact_->GetLibFileMD5() + artifact_->GetSignMD5(), "lib-md5sign-md5");
    EXPECT_EQ(artifact_->GetBundleClassId(), "{BUNDLE}");
    EXPECT_EQ(artifact_->GetRootPath(), root_);
    EXPECT_EQ(artifact_->GetResourcesPath(), Resources());

    // Point elements that are no object or have no id are skipped.
    std::list<ExtensionPoint*> points;
    artifact_->GetExtensionPoints(points);
    EXPECT_EQ(point_->GetIid(), "{IID}");
    EXPECT_EQ(points.back()->GetId(), "host.empty");
    EXPECT_EQ(points.back()->GetIid(), "");
    std::list<Extension*> none;
    points.back()->GetExtensions(none);
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(static_cast<ExtensionPointImpl*>(point_)->GetArtifact(), artifact_.get());

    // The object without "id" leaves a null; the string is skipped.
    std::list<Extension*> records;
    point_->GetExtensions(records);
    EXPECT_EQ(*std::next(records.begin()), nullptr);
    EXPECT_EQ(records.back()->GetId(), "third");

    EXPECT_EQ(qzetest::Describe(*local_), "shared.id|2.1|{LOCAL}|0|local=1;||local-u|,,,,,");
    EXPECT_TRUE(records.back()->IsSingleton());
}

TEST_F(ManifestTest, StrictAndForgivingReaders) {
    // "" for no record; a null forgiving column means the same as the strict.
    const struct {
        const char* json;
        const char* strict;
        const char* forgiving;
    } cases[] = {
        {R"({"id": "a"})", "a|||1||||,,,,,", nullptr},
        {R"({"version": "1.0", "clsid": "{C}"})", "", nullptr},
        {R"({"id": "full", "version": "01.x", "clsid": "{C}", "isSingleton": false,
             "iid": "{OTHER}", "extensionPointId": "other.point", "unifiedId": "u-1",
             "payloads": {"title": "Hi", "a.b": "dotted"},
             "constraints": [{"key": "os", "value": ["win", "mac"]}],
             "settingMap": {"modalPosition": "center", "modalSize": "640x480",
                            "host": "https://h", "uri": "/p", "openType": "modal"}})",
         "full|01.x|{C}|0|a.b=dotted;title=Hi;|os:win,mac,;|u-1|center,640x480,https://h/p,modal,"
         "https://h,/p",
         nullptr},
        // Wrong types count as absent; "isSingleton" then defaults to true.
        {R"({"id": "t", "version": 2, "clsid": ["{C}"], "unifiedId": {}, "isSingleton": "false",
             "payloads": ["a", "1"], "constraints": {"key": "k"}, "settingMap": "host=h"})",
         "t|||1||||,,,,,", nullptr},
        {R"({"id": "p", "payloads": {"a": "1", "b": "", "c": 2, "d": null, "e": {"x": "y"}}})",
         "p|||1|a=1;|||,,,,,", nullptr},
        // The first entry of a key stays; non-strings in "value" are skipped.
        {R"({"id": "c", "constraints": [{"key": "k", "value": ["x", 1, "y"]},
                                         {"key": "k", "value": ["z"]}]})",
         "c|||1||k:x,y,;||,,,,,", nullptr},
        {R"({"id": "c", "constraints": [{"value": ["x"]}, {"key": 3, "value": ["y"]}]})",
         "c|||1||:x,;||,,,,,", nullptr},
        {R"({"id": "c", "constraints": ["k", {"key": "a"}, {"key": "b", "value": "x"},
                                         {"key": "c", "value": []}]})",
         "c|||1||a:;b:;c:;||,,,,,", nullptr},
        // The strict reader wants all five settings, the forgiving one any.
        {R"({"id": "m", "settingMap": {"host": "h", "uri": "/p"}})", "m|||1||||,,,,,",
         "m|||1||||,,h/p,,h,/p"},
        {R"({"id": "m", "settingMap": {"modalPosition": 1, "modalSize": "s", "host": "h",
                                       "uri": "u", "openType": "o"}})",
         "m|||1||||,,,,,", "m|||1||||,s,hu,o,h,u"},
    };
    Artifact artifact(base::FilePath(L"C:\\bundles\\adapter"));
    artifact.SetMainEntry(L"adapter.dll");
    ExtensionPointImpl point(&artifact);
    point.SetIdentifiers("host.point", "{POINT-IID}");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        std::unique_ptr<base::DictionaryValue> item =
            base::DictionaryValue::From(base::JSONReader::Read(c.json));
        ASSERT_TRUE(item);
        for (bool strict : {true, false}) {
            SCOPED_TRACE(strict ? "strict" : "forgiving");
            const std::string expected = strict || !c.forgiving ? c.strict : c.forgiving;
            Extension* raw = nullptr;
            bool result =
                strict ? ParseManifestExtension(&point, item.get(), &raw)
                       : ParseExtensionDictionary(&point, item->CreateDeepCopy().release(), &raw);
            std::unique_ptr<Extension> record(raw);
            EXPECT_EQ(result, !expected.empty());
            ASSERT_EQ(record != nullptr, !expected.empty());
            if (record) {
                EXPECT_EQ(qzetest::Describe(*record), expected);
                EXPECT_EQ(record->GetExtensionPointId(), "host.point");
                EXPECT_EQ(record->GetIid(), "{POINT-IID}");
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

TEST_F(ManifestTest, WhoDeletesTheDictionary) {
    // The forgiving reader deletes its dictionary on every path.
    for (int path = 0; path < 3; ++path) {
        SCOPED_TRACE(path);
        int deleted = 0;
        auto* item = new CountedDictionary(&deleted);
        if (path != 1) {
            item->SetString("id", "x");
        }
        Extension* raw = nullptr;
        EXPECT_EQ(ParseExtensionDictionary(point_, item, path == 2 ? nullptr : &raw), path == 0);
        std::unique_ptr<Extension> record(raw);
        EXPECT_EQ(deleted, 1);
    }
    // The strict one leaves it to its caller.
    int deleted = 0;
    CountedDictionary item(&deleted);
    item.SetString("id", "x");
    Extension* raw = nullptr;
    EXPECT_TRUE(ParseManifestExtension(point_, &item, &raw));
    std::unique_ptr<Extension> record(raw);
    EXPECT_FALSE(ParseManifestExtension(point_, &item, nullptr));
    EXPECT_EQ(deleted, 0);
}

}  // namespace
