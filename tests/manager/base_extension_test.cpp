#include "manager/base_extension.h"

#include <gtest/gtest.h>

#include "manager/extension_object.h"

namespace qzextensionkit {
namespace {

using Payloads = std::map<std::string, std::string>;
using Constraints = std::map<std::string, std::vector<std::string>>;

// Each map and path setter: a value is taken, an empty one is refused and
// the earlier value stays.
struct SetterCase {
    const char* name;
    // Sets a non-empty value (true) or an empty one (false); gives the result.
    bool (*set)(QZExtensionContext&, bool);
    // What the context shows of that field, as text.
    std::string (*read)(QZExtensionContext&);
};

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

const SetterCase kSetters[] = {
    {"payloads",
     [](QZExtensionContext& c, bool full) {
         Payloads p = full ? Payloads{{"k", "v"}} : Payloads{};
         return c.SetPayloads(p);
     },
     [](QZExtensionContext& c) {
         std::string v = "<none>";
         c.ValueForKey("k", v);
         return v;
     }},
    {"constraints",
     [](QZExtensionContext& c, bool full) {
         Constraints p = full ? Constraints{{"k", {"a", "b"}}} : Constraints{};
         return c.SetConstraints(p);
     },
     [](QZExtensionContext& c) {
         std::vector<std::string> v{"<none>"};
         c.ConstraintForKey("k", v);
         return v.size() == 2 ? v[0] + v[1] : v[0];
     }},
    {"resources",
     [](QZExtensionContext& c, bool full) { return c.SetResourcesPath(full ? L"r" : L""); },
     [](QZExtensionContext& c) { return Narrow(c.GetResourcesPath()); }},
    {"bin", [](QZExtensionContext& c, bool full) { return c.SetBinDirPath(full ? L"b" : L""); },
     [](QZExtensionContext& c) { return Narrow(c.GetBinDirPath()); }},
};

TEST(ExtensionContextTest, MapAndPathSettersRefuseEmptyAndKeepTheOldValue) {
    for (const SetterCase& s : kSetters) {
        SCOPED_TRACE(s.name);
        QZExtensionContext context;
        std::string fresh = s.read(context);
        EXPECT_FALSE(s.set(context, false));
        EXPECT_EQ(s.read(context), fresh);
        EXPECT_TRUE(s.set(context, true));
        std::string filled = s.read(context);
        EXPECT_NE(filled, fresh);
        EXPECT_FALSE(s.set(context, false));
        EXPECT_EQ(s.read(context), filled);
    }
}

TEST(ExtensionContextTest, LookupsAreExactAndLeaveOutputsAloneOnAMiss) {
    QZExtensionContext context;
    Payloads p{{"Key", "1"}};
    Constraints c{{"Key", {"x"}}};
    context.SetPayloads(p);
    context.SetConstraints(c);
    std::string value = "kept";
    std::vector<std::string> values{"kept"};
    EXPECT_FALSE(context.ValueForKey("key", value));
    EXPECT_FALSE(context.ConstraintForKey("Key ", values));
    EXPECT_EQ(value, "kept");
    EXPECT_EQ(values, std::vector<std::string>{"kept"});
    EXPECT_TRUE(context.ValueForKey("Key", value));
    EXPECT_TRUE(context.ConstraintForKey("Key", values));
    EXPECT_EQ(value, "1");
    EXPECT_EQ(values, std::vector<std::string>{"x"});
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
