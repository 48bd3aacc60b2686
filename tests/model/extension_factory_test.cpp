#include "model/extension_factory.h"

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_impl.h"
#include "model/extension_point_impl.h"
#include "model/manifest.h"
#include "support/bundle_dir.h"

namespace {

using namespace qzextensionkit;
using base::FilePath;
using Constraints = std::map<std::string, std::vector<std::string>>;
using Payloads = std::map<std::string, std::string>;

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

// A bundle read from disk, as the configuration reads it.
class ExtensionFactoryTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = bundles_.Bundle("adapter", R"({
            "id": "extension_adapter",
            "mainEntry": "bin/adapter.dll",
            "extensionPoints": [{
                "id": "host.point", "iid": "{IID}",
                "extensions": [{"id": "shared.id", "version": "2.1", "clsid": "{LOCAL}",
                                "isSingleton": false, "payloads": {"local": "1"},
                                "unifiedId": "local-u"}]
            }]
        })");
        Artifact* raw = nullptr;
        ASSERT_TRUE(ReadManifest(root_, &raw));
        ASSERT_NE(raw, nullptr);
        artifact_.reset(raw);
        std::list<ExtensionPoint*> points;
        artifact_->GetExtensionPoints(points);
        ASSERT_EQ(points.size(), 1u);
        point_ = points.front();
        std::list<Extension*> extensions;
        point_->GetExtensions(extensions);
        ASSERT_EQ(extensions.size(), 1u);
        local_ = extensions.front();
    }

    qzetest::BundleDir bundles_;
    FilePath root_;
    std::unique_ptr<Artifact> artifact_;
    ExtensionPoint* point_ = nullptr;
    Extension* local_ = nullptr;
};

TEST_F(ExtensionFactoryTest, CreatedRecordHasNoExtensionPoint) {
    Payloads payloads{{"k", "v"}};
    Constraints constraints{{"os", {"win"}}};
    SettingMap setting("pos", "size", "hu", "open", "h", "u");
    std::shared_ptr<Extension> record = ExtensionFactory::createExtension(
        "remote.id", "host.point", payloads, constraints, setting, "uni");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->GetId(), "remote.id");
    EXPECT_EQ(record->GetExtensionPointId(), "host.point");
    EXPECT_EQ(record->GetPayloads(), payloads);
    EXPECT_EQ(record->GetConstraints(), constraints);
    EXPECT_EQ(record->GetSettingMap().url, "hu");
    EXPECT_EQ(record->GetSettingMap().openType, "open");
    EXPECT_EQ(record->GetUnifiedId(), "uni");
    EXPECT_EQ(record->GetVersion(), "");
    EXPECT_EQ(record->GetClsid(), "");
    EXPECT_FALSE(record->IsSingleton());
    // Nothing to resolve through.
    EXPECT_EQ(record->GetIid(), "");
    EXPECT_EQ(record->GetMainEntry(), L"");
    EXPECT_TRUE(record->GetRootPath().empty());
    EXPECT_EQ(record->GetResourcesPath(), L"");
    EXPECT_FALSE(record->IsNative());
    EXPECT_EQ(static_cast<ExtensionImpl*>(record.get())->GetExtensionPoint(), nullptr);
}

TEST_F(ExtensionFactoryTest, CopyHoldsTheResolvedResourcesPath) {
    Extension* raw = nullptr;
    ExtensionFactory::CopyExtension(local_, &raw);
    ASSERT_NE(raw, nullptr);
    std::unique_ptr<Extension> copy(raw);
    EXPECT_NE(copy.get(), local_);
    EXPECT_EQ(copy->GetId(), "shared.id");
    EXPECT_EQ(copy->GetVersion(), "2.1");
    EXPECT_EQ(copy->GetExtensionPointId(), "host.point");
    EXPECT_EQ(copy->GetIid(), "{IID}");
    EXPECT_EQ(copy->GetClsid(), "{LOCAL}");
    EXPECT_FALSE(copy->IsSingleton());
    EXPECT_EQ(copy->GetPayloads(), local_->GetPayloads());
    EXPECT_EQ(copy->GetUnifiedId(), "local-u");
    EXPECT_TRUE(copy->IsNative());
    EXPECT_EQ(copy->GetRootPath(), root_);
    EXPECT_EQ(static_cast<ExtensionImpl*>(copy.get())->GetExtensionPoint(), point_);
    EXPECT_EQ(copy->GetResourcesPath(), local_->GetResourcesPath());

    // The source still asks its artifact; the copy keeps what it was given.
    artifact_->SetResourcesPath(L"moved");
    EXPECT_EQ(local_->GetResourcesPath(), L"moved");
    EXPECT_EQ(copy->GetResourcesPath(), root_.value() + L"\\resources");

    // Copies share their data until one of them changes: a change to either
    // side stays on that side.
    auto* copyImpl = static_cast<ExtensionImpl*>(copy.get());
    auto* localImpl = static_cast<ExtensionImpl*>(local_);
    copyImpl->SetClsid("{CHANGED}");
    copyImpl->SetPayloads(Payloads{{"copy", "2"}});
    EXPECT_EQ(local_->GetClsid(), "{LOCAL}");
    EXPECT_EQ(local_->GetPayloads(), (Payloads{{"local", "1"}}));
    localImpl->SetUnifiedId("changed-u");
    EXPECT_EQ(copy->GetUnifiedId(), "local-u");
    EXPECT_EQ(copy->GetClsid(), "{CHANGED}");
    std::shared_ptr<Extension> shared = CopyExtensionShared(copy.get());
    ASSERT_TRUE(shared);
    EXPECT_EQ(shared->GetClsid(), "{CHANGED}");
    EXPECT_EQ(shared->GetResourcesPath(), copy->GetResourcesPath());
    EXPECT_FALSE(CopyExtensionShared(nullptr));
}

TEST_F(ExtensionFactoryTest, CopyIgnoresRecordsItDidNotMake) {
    ForeignExtension foreign;
    ExtensionImpl marker;
    for (Extension* source :
         {static_cast<Extension*>(&foreign), static_cast<Extension*>(nullptr)}) {
        Extension* copy = &marker;
        ExtensionFactory::CopyExtension(source, &copy);
        EXPECT_EQ(copy, &marker);
    }
}

TEST_F(ExtensionFactoryTest, LocalDetailsGoToARemoteRecordOfTheSameId) {
    Artifact libraryless(FilePath(L"C:\\bundles\\plain"));
    ExtensionPointImpl plainPoint(&libraryless);
    plainPoint.SetIdentifiers("plain.point", "{PLAIN}");
    ExtensionImpl plainLocal(&plainPoint);
    plainLocal.SetId("shared.id");
    plainLocal.SetClsid("{PLAIN-LOCAL}");
    ForeignExtension foreign;

    enum class Local { kBundle, kNoLibrary, kForeign };
    const struct {
        const char* name;
        std::string remoteId;
        Local local;
        bool merged;
    } cases[] = {
        {"same id", "shared.id", Local::kBundle, true},
        {"id differs in case", "Shared.id", Local::kBundle, false},
        {"other id", "other.id", Local::kBundle, false},
        {"local bundle without library", "shared.id", Local::kNoLibrary, false},
        {"local record of another class", "shared.id", Local::kForeign, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Payloads payloads{{"remote", "yes"}};
        Constraints constraints{{"os", {"mac"}}};
        SettingMap setting("", "", "https://r/x", "", "https://r", "/x");
        std::shared_ptr<Extension> remote = ExtensionFactory::createExtension(
            c.remoteId, "remote.point", payloads, constraints, setting, "remote-u");
        Extension* local = local_;
        if (c.local == Local::kNoLibrary) {
            local = &plainLocal;
        } else if (c.local == Local::kForeign) {
            local = &foreign;
        }
        ExtensionFactory::ExtractLocalNativeExtensionInfoToRemote(remote.get(), local);

        // What the server said always stays.
        EXPECT_EQ(remote->GetId(), c.remoteId);
        EXPECT_EQ(remote->GetPayloads(), payloads);
        EXPECT_EQ(remote->GetConstraints(), constraints);
        EXPECT_EQ(remote->GetSettingMap().url, "https://r/x");
        EXPECT_EQ(remote->GetUnifiedId(), "remote-u");
        if (c.merged) {
            EXPECT_EQ(remote->GetVersion(), "2.1");
            EXPECT_EQ(remote->GetExtensionPointId(), "host.point");
            EXPECT_EQ(remote->GetClsid(), "{LOCAL}");
            EXPECT_FALSE(remote->IsSingleton());
            EXPECT_EQ(remote->GetResourcesPath(), root_.value() + L"\\resources");
            EXPECT_EQ(remote->GetIid(), "{IID}");
            EXPECT_EQ(remote->GetMainEntry(), L"bin/adapter.dll");
            EXPECT_TRUE(remote->IsNative());
        } else {
            EXPECT_EQ(remote->GetVersion(), "");
            EXPECT_EQ(remote->GetExtensionPointId(), "remote.point");
            EXPECT_EQ(remote->GetClsid(), "");
            EXPECT_EQ(remote->GetResourcesPath(), L"");
            EXPECT_FALSE(remote->IsNative());
        }
    }
}

}  // namespace
