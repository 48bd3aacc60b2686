#include "manager/base_extension.h"

#include <gtest/gtest.h>

#include "manager/extension_object.h"

namespace qzextensionkit {
namespace {

// An empty value never replaces a set one; lookups match keys exactly.
TEST(ExtensionContextTest, SettersRefuseEmptyAndLookupsAreExact) {
    QZExtensionContext c;
    std::map<std::string, std::string> noPayloads, payloads{{"Key", "v"}};
    std::map<std::string, std::vector<std::string>> noConstraints, constraints{{"Key", {"a", "b"}}};
    EXPECT_FALSE(c.SetPayloads(noPayloads) || c.SetConstraints(noConstraints) ||
                 c.SetResourcesPath(L"") || c.SetBinDirPath(L""));
    EXPECT_TRUE(c.SetPayloads(payloads) && c.SetConstraints(constraints) &&
                c.SetResourcesPath(L"r") && c.SetBinDirPath(L"b"));
    EXPECT_FALSE(c.SetPayloads(noPayloads) || c.SetConstraints(noConstraints) ||
                 c.SetResourcesPath(L"") || c.SetBinDirPath(L""));
    std::string value = "<none>";
    std::vector<std::string> values{"<none>"};
    EXPECT_FALSE(c.ValueForKey("key", value) || c.ConstraintForKey("Key ", values));
    EXPECT_EQ(value + values[0] + std::to_string(values.size()), "<none><none>1");
    EXPECT_TRUE(c.ValueForKey("Key", value) && c.ConstraintForKey("Key", values));
    EXPECT_EQ(value + "|" + values[0] + values[1] + "|", "v|ab|");
    EXPECT_TRUE(c.GetResourcesPath() == L"r" && c.GetBinDirPath() == L"b");
}

class IProbe : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{0B5D7C3A-1E2F-4A6B-8C9D-0E1F2A3B4C5D}")
    virtual int Answer() = 0;
};

class ProbeExtension : public QZBaseExtension, public IProbe {
public:
    int Answer() override { return 42; }
};

TEST(BaseExtensionTest, ExtensionObjectAnswersBaseRootAndItsOwnInterfaces) {
    void* out = nullptr;
    ASSERT_EQ(
        (CreateExtensionObject<ProbeExtension, IProbe>(IQZBaseExtension::InterfaceId(), &out)), 0);
    auto* base = static_cast<IQZBaseExtension*>(out);
    void *root = nullptr, *probe = nullptr, *none = &out;
    ASSERT_EQ(base->QueryInterface(by::IBaseUnknown::InterfaceId(), &root), 0);
    ASSERT_EQ(base->QueryInterface(IProbe::InterfaceId(), &probe), 0);
    EXPECT_EQ(
        base->QueryInterface(by::ParseGuid("{11111111-2222-3333-4444-555555555555}", true), &none),
        by::kNoInterface);
    EXPECT_TRUE(none == &out && root == out);
    EXPECT_EQ(static_cast<IProbe*>(probe)->Answer(), 42);
    EXPECT_EQ(static_cast<IProbe*>(probe)->Release(), 2u);
    EXPECT_EQ(static_cast<by::IBaseUnknown*>(root)->Release(), 1u);
    EXPECT_EQ(base->Release(), 0u);
}

}  // namespace
}  // namespace qzextensionkit
