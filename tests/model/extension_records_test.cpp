#include <gtest/gtest.h>

#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/files/file_path.h"
#include "base/utf_string_conversions.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "model/extension_impl.h"
#include "model/extension_point.h"
#include "model/extension_point_impl.h"
#include "model/extension_point_payload_meta_item.h"
#include "support/sample_bundle.h"

namespace {

using namespace qzextensionkit;
using base::FilePath;
using Constraints = std::map<std::string, std::vector<std::string>>;
using Payloads = std::map<std::string, std::string>;
using ExtensionFactoryTest = qzetest::SampleBundle;

// iid|mainEntry|rootPath|resourcesPath|libFileMD5|signMD5|bundleClassId|native
std::string Resolved(const Extension& e) {
    return e.GetIid() + "|" + base::WideToUTF8(e.GetMainEntry()) + "|" +
           base::WideToUTF8(e.GetRootPath().value()) + "|" +
           base::WideToUTF8(e.GetResourcesPath()) + "|" + e.GetLibFileMD5() + "|" + e.GetSignMD5() +
           "|" + e.GetBundleClassId() + (e.IsNative() ? "|native" : "|");
}

TEST(ExtensionRecordsTest, ResolvesBundleDetailsThroughPointAndArtifact) {
    enum Parent { kNone, kPointWithoutArtifact, kArtifact };
    const struct {
        Parent parent;
        std::wstring mainEntry;
        std::wstring ownResources;
        const char* expected;
    } cases[] = {
        {kNone, L"", L"", "|||||||"},
        {kPointWithoutArtifact, L"", L"", "{iid}|||||||"},
        {kArtifact, L"demo.dll", L"", "{iid}|demo.dll|C:\\b|C:\\b\\res|lib|sign|{class}|native"},
        {kArtifact, L"", L"", "{iid}||C:\\b|C:\\b\\res|lib|sign|{class}|"},
        // A record's own resources path wins.
        {kArtifact, L"demo.dll", L"D:\\own",
         "{iid}|demo.dll|C:\\b|D:\\own|lib|sign|{class}|native"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        Artifact artifact(base::FilePath(L"C:\\b"));
        artifact.SetMainEntry(c.mainEntry);
        artifact.SetResourcesPath(L"C:\\b\\res");
        artifact.SetLibFileMD5("lib");
        artifact.SetSignMD5("sign");
        artifact.SetBundleClassId("{class}");
        ExtensionPointImpl point(c.parent == kArtifact ? &artifact : nullptr);
        point.SetIdentifiers("demo.point", "{iid}");
        ExtensionImpl record(c.parent == kNone ? nullptr : &point);
        record.SetResourcesPath(c.ownResources);
        EXPECT_EQ(Resolved(record), c.expected);
    }
}

// Counts its own destruction.
class CountedExtension : public ExtensionImpl {
public:
    explicit CountedExtension(int* destroyed) : destroyed_(destroyed) {}
    ~CountedExtension() override { ++*destroyed_; }

private:
    int* destroyed_;
};

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
    first->AddExtension(a);
    first->AddExtension(nullptr);
    first->AddExtension(b);
    second->AddExtension(new CountedExtension(&destroyed));

    // Both getters append to what the caller already holds.
    std::list<ExtensionPoint*> points{nullptr};
    EXPECT_TRUE(artifact->GetExtensionPoints(points));
    EXPECT_EQ(points, (std::list<ExtensionPoint*>{nullptr, first, nullptr, second}));
    std::list<Extension*> extensions{b};
    EXPECT_TRUE(first->GetExtensions(extensions));
    EXPECT_EQ(extensions, (std::list<Extension*>{b, a, nullptr, b}));

    // Null entries are passed over; every record goes with its artifact.
    artifact.reset();
    EXPECT_EQ(destroyed, 3);
}

TEST(ExtensionRecordsTest, PayloadMetaItemMovesLeaveTheSourceEmpty) {
    std::vector<std::string> values{"a", "b"};
    ExtensionPointPayloadMetaItem item("color", "The color", PAYLOAD_META_ITEM_CHOICE, true,
                                       values);
    ExtensionPointPayloadMetaItem moved(std::move(item));
    // Long enough not to fit a short-string buffer.
    ExtensionPointPayloadMetaItem target(std::string(40, 'x'), "", PAYLOAD_META_ITEM_TEXT, false,
                                         values);
    target = std::move(moved);
    for (auto* source : {&item, &moved}) {
        EXPECT_TRUE(source->firstText.empty() && source->secondText.empty() &&
                    source->values.empty());
    }
    EXPECT_EQ(target.firstText + "|" + target.secondText, "color|The color");
    EXPECT_TRUE(target.itemType == PAYLOAD_META_ITEM_CHOICE && target.flag &&
                target.values == values);
}

// A record class of someone else's: the factory must not treat it as its own.
class ForeignExtension : public Extension {
public:
    std::string GetId() const override { return "shared.id"; }
    std::string GetVersion() const override { return "9"; }
    std::string GetExtensionPointId() const override { return "p"; }
    std::string GetIid() const override { return {}; }
    std::string GetClsid() const override { return "{FOREIGN}"; }
    Payloads GetPayloads() const override { return {}; }
    std::wstring GetMainEntry() const override { return L"foreign.dll"; }
    Constraints GetConstraints() const override { return {}; }
    FilePath GetRootPath() const override { return {}; }
    SettingMap GetSettingMap() const override { return {}; }
    std::wstring GetResourcesPath() const override { return L"foreign"; }
    bool IsSingleton() const override { return false; }
    std::string GetLibFileMD5() const override { return {}; }
    std::string GetSignMD5() const override { return {}; }
    std::string GetBundleClassId() const override { return {}; }
    bool IsNative() const override { return true; }
    std::string GetUnifiedId() const override { return {}; }
};

std::shared_ptr<Extension> Remote(const std::string& id) {
    Payloads payloads{{"remote", "yes"}};
    Constraints constraints{{"os", {"mac"}}};
    SettingMap setting("", "", "https://r/x", "", "https://r", "/x");
    return ExtensionFactory::createExtension(id, "remote.point", payloads, constraints, setting,
                                             "remote-u");
}

TEST_F(ExtensionFactoryTest, CopiesHoldTheResolvedResourcesPathAndTheirOwnChanges) {
    Extension* raw = nullptr;
    ExtensionFactory::CopyExtension(local_, &raw);
    ASSERT_NE(raw, nullptr);
    std::unique_ptr<Extension> copy(raw);
    EXPECT_EQ(qzetest::Describe(*copy), qzetest::Describe(*local_));
    EXPECT_EQ(copy->GetIid(), "{IID}");
    EXPECT_EQ(static_cast<ExtensionImpl*>(copy.get())->GetExtensionPoint(), point_);

    // The source still asks its artifact; the copy keeps what it was given.
    artifact_->SetResourcesPath(L"moved");
    EXPECT_EQ(local_->GetResourcesPath(), L"moved");
    EXPECT_EQ(copy->GetResourcesPath(), Resources());

    // A change stays on its own side.
    static_cast<ExtensionImpl*>(copy.get())->SetPayloads(Payloads{{"copy", "2"}});
    static_cast<ExtensionImpl*>(local_)->SetUnifiedId("changed-u");
    EXPECT_EQ(local_->GetPayloads(), (Payloads{{"local", "1"}}));
    EXPECT_EQ(copy->GetUnifiedId(), "local-u");
    std::shared_ptr<Extension> shared = CopyExtensionShared(copy.get());
    ASSERT_TRUE(shared);
    EXPECT_EQ(qzetest::Describe(*shared), qzetest::Describe(*copy));
    EXPECT_EQ(shared->GetResourcesPath(), Resources());

    // Records the factory did not make are left alone.
    ForeignExtension foreign;
    for (Extension* source :
         {static_cast<Extension*>(&foreign), static_cast<Extension*>(nullptr)}) {
        Extension* untouched = local_;
        ExtensionFactory::CopyExtension(source, &untouched);
        EXPECT_EQ(untouched, local_);
        EXPECT_FALSE(CopyExtensionShared(source));
    }
}

TEST_F(ExtensionFactoryTest, LocalDetailsGoToARemoteRecordOfTheSameId) {
    Artifact libraryless(FilePath(L"C:\\bundles\\plain"));
    ExtensionPointImpl plainPoint(&libraryless);
    ExtensionImpl plainLocal(&plainPoint);
    plainLocal.SetId("shared.id");
    ForeignExtension foreign;
    const struct {
        const char* name;
        std::string remoteId;
        Extension* local;
    } cases[] = {
        {"same id", "shared.id", local_},
        {"id differs in case", "Shared.id", local_},
        {"local bundle without library", "shared.id", &plainLocal},
        {"local record of another class", "shared.id", &foreign},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::shared_ptr<Extension> remote = Remote(c.remoteId);
        // Made by the factory with no extension point of its own.
        EXPECT_EQ(static_cast<ExtensionImpl*>(remote.get())->GetExtensionPoint(), nullptr);
        EXPECT_FALSE(remote->IsSingleton());
        static_cast<ExtensionImpl*>(remote.get())->SetSingleton(true);
        ExtensionFactory::ExtractLocalNativeExtensionInfoToRemote(remote.get(), c.local);
        const bool merged = c.local == local_ && c.remoteId == "shared.id";
        EXPECT_EQ(qzetest::Describe(*remote),
                  c.remoteId + (merged ? "|2.1|{LOCAL}|0|" : "|||1|") +
                      "remote=yes;|os:mac,;|remote-u|,,https://r/x,,https://r,/x");
        EXPECT_EQ(remote->GetExtensionPointId(), merged ? "host.point" : "remote.point");
        EXPECT_EQ(remote->GetResourcesPath(), merged ? Resources() : L"");
        EXPECT_EQ(remote->GetIid(), merged ? "{IID}" : "");
        EXPECT_EQ(remote->IsNative(), merged);
    }
}

}  // namespace
