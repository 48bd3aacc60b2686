#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/files/file_path.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_impl.h"
#include "model/extension_point.h"
#include "model/extension_point_impl.h"
#include "model/extension_point_payload_meta_item.h"
#include "model/setting_map.h"

namespace {

using namespace qzextensionkit;

// Counts its own destruction.
class CountedExtension : public ExtensionImpl {
public:
    explicit CountedExtension(int* destroyed) : destroyed_(destroyed) {}
    ~CountedExtension() override { ++*destroyed_; }

private:
    int* destroyed_;
};

std::unique_ptr<Artifact> MakeArtifact(const std::wstring& mainEntry) {
    auto artifact = std::make_unique<Artifact>(base::FilePath(L"C:\\bundles\\demo"));
    artifact->SetMainEntry(mainEntry);
    artifact->SetResourcesPath(L"C:\\bundles\\demo\\resources");
    artifact->SetLibFileMD5("lib-digest");
    artifact->SetSignMD5("sign-digest");
    artifact->SetBundleClassId("{bundle-class}");
    return artifact;
}

// What an extension record answers for everything it resolves through its
// extension point.
struct Resolved {
    std::string iid;
    std::wstring mainEntry;
    std::wstring rootPath;
    std::wstring resourcesPath;
    std::string libFileMD5;
    std::string signMD5;
    std::string bundleClassId;
    bool native;
};

Resolved Resolve(const Extension& extension) {
    return {
        extension.GetIid(),           extension.GetMainEntry(),  extension.GetRootPath().value(),
        extension.GetResourcesPath(), extension.GetLibFileMD5(), extension.GetSignMD5(),
        extension.GetBundleClassId(), extension.IsNative()};
}

TEST(ExtensionRecordsTest, ResolvesBundleDetailsThroughPointAndArtifact) {
    enum class Parent { kNone, kPointWithoutArtifact, kArtifact };
    const Resolved full{
        "{iid}",      L"bin\\demo.dll", L"C:\\bundles\\demo", L"C:\\bundles\\demo\\resources",
        "lib-digest", "sign-digest",    "{bundle-class}",     true};
    const struct {
        const char* name;
        Parent parent;
        std::wstring mainEntry;
        std::wstring ownResources;
        Resolved expected;
    } cases[] = {
        {"no extension point", Parent::kNone, L"", L"", {"", L"", L"", L"", "", "", "", false}},
        {"point without artifact",
         Parent::kPointWithoutArtifact,
         L"",
         L"",
         {"{iid}", L"", L"", L"", "", "", "", false}},
        {"bundle with a library", Parent::kArtifact, L"bin\\demo.dll", L"", full},
        {"bundle without a library",
         Parent::kArtifact,
         L"",
         L"",
         {"{iid}", L"", L"C:\\bundles\\demo", L"C:\\bundles\\demo\\resources", "lib-digest",
          "sign-digest", "{bundle-class}", false}},
        {"own resources path wins",
         Parent::kArtifact,
         L"bin\\demo.dll",
         L"D:\\elsewhere",
         {"{iid}", L"bin\\demo.dll", L"C:\\bundles\\demo", L"D:\\elsewhere", "lib-digest",
          "sign-digest", "{bundle-class}", true}},
        {"own resources path without a point",
         Parent::kNone,
         L"",
         L"D:\\elsewhere",
         {"", L"", L"", L"D:\\elsewhere", "", "", "", false}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<Artifact> artifact = MakeArtifact(c.mainEntry);
        ExtensionPointImpl point(c.parent == Parent::kArtifact ? artifact.get() : nullptr);
        point.SetIdentifiers("demo.point", "{iid}");
        ExtensionPoint* parent = c.parent == Parent::kNone ? nullptr : &point;
        ExtensionImpl record(parent);
        record.SetResourcesPath(c.ownResources);
        Resolved got = Resolve(record);
        EXPECT_EQ(got.iid, c.expected.iid);
        EXPECT_EQ(got.mainEntry, c.expected.mainEntry);
        EXPECT_EQ(got.rootPath, c.expected.rootPath);
        EXPECT_EQ(got.resourcesPath, c.expected.resourcesPath);
        EXPECT_EQ(got.libFileMD5, c.expected.libFileMD5);
        EXPECT_EQ(got.signMD5, c.expected.signMD5);
        EXPECT_EQ(got.bundleClassId, c.expected.bundleClassId);
        EXPECT_EQ(got.native, c.expected.native);
        EXPECT_EQ(record.GetExtensionPoint(), parent);
    }
}

TEST(ExtensionRecordsTest, ResolvedValuesFollowTheArtifactAndPointLater) {
    std::unique_ptr<Artifact> artifact = MakeArtifact(L"");
    ExtensionPointImpl point(artifact.get());
    ExtensionImpl record(&point);
    EXPECT_FALSE(record.IsNative());
    // Nothing is cached in the record: it asks each time.
    artifact->SetMainEntry(L"lib.dll");
    point.SetIdentifiers("p", "{later}");
    EXPECT_TRUE(record.IsNative());
    EXPECT_EQ(record.GetMainEntry(), L"lib.dll");
    EXPECT_EQ(record.GetIid(), "{later}");
    record.SetExtensionPoint(nullptr);
    EXPECT_FALSE(record.IsNative());
    EXPECT_EQ(record.GetIid(), "");
}

TEST(ExtensionRecordsTest, FreshPointHoldsItsDefaults) {
    ExtensionPointImpl point(nullptr);
    EXPECT_EQ(point.GetKind(), -1);
    EXPECT_FALSE(point.GetFlag());
    for (const std::string& attribute : {point.GetAttribute1(), point.GetAttribute2(),
                                         point.GetAttribute3(), point.GetAttribute4()}) {
        EXPECT_EQ(attribute, "");
    }
    EXPECT_TRUE(point.GetVersionNumbers1().empty());
    EXPECT_TRUE(point.GetVersionNumbers2().empty());
    EXPECT_TRUE(point.GetEntries().empty());
    EXPECT_TRUE(point.GetPayloadMetaItems().empty());
}

TEST(ExtensionRecordsTest, ListsAppendInOrderAndOwnershipRunsDownTheChain) {
    int destroyed = 0;
    auto artifact = std::make_unique<Artifact>(base::FilePath(L"root"));
    auto* first = new ExtensionPointImpl(artifact.get());
    auto* second = new ExtensionPointImpl(artifact.get());
    artifact->AddExtensionPoint(first);
    artifact->AddExtensionPoint(nullptr);
    artifact->AddExtensionPoint(second);
    auto* a = new CountedExtension(&destroyed);
    auto* b = new CountedExtension(&destroyed);
    auto* c = new CountedExtension(&destroyed);
    first->AddExtension(a);
    first->AddExtension(nullptr);
    first->AddExtension(b);
    second->AddExtension(c);

    // Both getters append to what the caller already holds.
    std::list<ExtensionPoint*> points{nullptr};
    EXPECT_TRUE(artifact->GetExtensionPoints(points));
    EXPECT_EQ(points, (std::list<ExtensionPoint*>{nullptr, first, nullptr, second}));
    std::list<Extension*> extensions{c};
    EXPECT_TRUE(first->GetExtensions(extensions));
    EXPECT_EQ(extensions, (std::list<Extension*>{c, a, nullptr, b}));

    // Null entries are passed over; every record goes with its artifact.
    artifact.reset();
    EXPECT_EQ(destroyed, 3);
}

TEST(ExtensionRecordsTest, PayloadMetaItemMovesLeaveTheSourceEmpty) {
    std::vector<std::string> values{"a", "b"};
    ExtensionPointPayloadMetaItem item("color", "The color", PAYLOAD_META_ITEM_CHOICE, true,
                                       values);
    EXPECT_EQ(values.size(), 2u);  // copied, not taken

    ExtensionPointPayloadMetaItem copy(item);
    EXPECT_EQ(copy.firstText, "color");
    EXPECT_EQ(item.values, values);

    ExtensionPointPayloadMetaItem moved(std::move(item));
    EXPECT_EQ(moved.firstText, "color");
    EXPECT_EQ(moved.secondText, "The color");
    EXPECT_EQ(moved.itemType, PAYLOAD_META_ITEM_CHOICE);
    EXPECT_TRUE(moved.flag);
    EXPECT_EQ(moved.values, values);
    EXPECT_TRUE(item.firstText.empty() && item.secondText.empty() && item.values.empty());

    std::vector<std::string> none;
    // Long enough not to fit a short-string buffer.
    ExtensionPointPayloadMetaItem target(std::string(40, 'x'), "", PAYLOAD_META_ITEM_TEXT, false,
                                         none);
    target = std::move(copy);
    EXPECT_EQ(target.firstText, "color");
    EXPECT_EQ(target.values, values);
    EXPECT_TRUE(copy.firstText.empty() && copy.secondText.empty() && copy.values.empty());
}

}  // namespace
