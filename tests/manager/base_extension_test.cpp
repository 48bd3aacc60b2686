#include "manager/base_extension.h"

#include <gtest/gtest.h>

#include "manager/extension_object.h"

namespace qzextensionkit {
namespace {

using Payloads = std::map<std::string, std::string>;
using Constraints = std::map<std::string, std::vector<std::string>>;

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

TEST(ExtensionContextTest, SettersRefuseEmptyAndLookupsAreExact) {
    const struct {
        const char* name;
        bool (*set)(QZExtensionContext&, bool full);
        std::string (*read)(QZExtensionContext&);
    } setters[] = {
        {"payloads",
         [](QZExtensionContext& c, bool full) {
             Payloads p = full ? Payloads{{"Key", "v"}} : Payloads{};
             return c.SetPayloads(p);
         },
         [](QZExtensionContext& c) {
             // A near miss reads as "!" when it answers or touches the output.
             std::string v = "<none>";
             const std::string missed = c.ValueForKey("key", v) || v != "<none>" ? "!" : "";
             c.ValueForKey("Key", v);
             return missed + v;
         }},
        {"constraints",
         [](QZExtensionContext& c, bool full) {
             Constraints p = full ? Constraints{{"Key", {"a", "b"}}} : Constraints{};
             return c.SetConstraints(p);
         },
         [](QZExtensionContext& c) {
             std::vector<std::string> v{"<none>"};
             const bool near = c.ConstraintForKey("Key ", v) || v.size() != 1;
             c.ConstraintForKey("Key", v);
             return (near ? "!" : "") + (v.size() == 2 ? v[0] + v[1] : v[0]);
         }},
        {"resources",
         [](QZExtensionContext& c, bool full) { return c.SetResourcesPath(full ? L"r" : L""); },
         [](QZExtensionContext& c) { return Narrow(c.GetResourcesPath()); }},
        {"bin", [](QZExtensionContext& c, bool full) { return c.SetBinDirPath(full ? L"b" : L""); },
         [](QZExtensionContext& c) { return Narrow(c.GetBinDirPath()); }},
    };
    const std::string filled[] = {"v", "ab", "r", "b"};
    int n = 0;
    for (const auto& s : setters) {
        SCOPED_TRACE(s.name);
        QZExtensionContext context;
        const std::string fresh = s.read(context);
        EXPECT_FALSE(s.set(context, false));
        EXPECT_EQ(s.read(context), fresh);
        EXPECT_TRUE(s.set(context, true));
        EXPECT_FALSE(s.set(context, false));
        EXPECT_EQ(s.read(context), filled[n++]);
    }
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
    void* root = nullptr;
    void* probe = nullptr;
    void* none = &out;
    ASSERT_EQ(base->QueryInterface(by::IBaseUnknown::InterfaceId(), &root), 0);
    ASSERT_EQ(base->QueryInterface(IProbe::InterfaceId(), &probe), 0);
    EXPECT_EQ(
        base->QueryInterface(by::ParseGuid("{11111111-2222-3333-4444-555555555555}", true), &none),
        by::kNoInterface);
    EXPECT_EQ(none, &out);
    EXPECT_EQ(root, out);
    EXPECT_EQ(static_cast<IProbe*>(probe)->Answer(), 42);
    EXPECT_EQ(static_cast<IProbe*>(probe)->Release(), 2u);
    EXPECT_EQ(static_cast<by::IBaseUnknown*>(root)->Release(), 1u);
    EXPECT_EQ(base->Release(), 0u);
}

}  // namespace
}  // namespace qzextensionkit
