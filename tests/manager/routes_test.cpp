#include <gtest/gtest.h>

#include "bundle/support/bundle_dirs.h"
#include "manager/support/kit_host.h"
#include "plugins/test_interfaces.h"

namespace qzetest {
namespace {

class RoutesTest : public KitHost {};

constexpr const char kRegisteredClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D01}";

Ext Full(const std::string& id, const std::string& clsid, const std::string& settings) {
    return Ext{id, clsid, false,
               R"("unifiedId": "u", "payloads": {"title": "T", "color": "C"},
                  "constraints": [{"key": "os", "value": ["win", "mac"]}], "settingMap": {)" +
                   settings + "}"};
}

TEST_F(RoutesTest, TheTwoRoutesFillTheSameContextButDifferWhereTheyShould) {
    const std::string all =
        R"("modalPosition": "pos", "modalSize": "size", "host": "https://h", "uri": "/x")";
    AddBundle(
        "lib",
        Point("p.lib", kProbeIid, {Full("e1", kProbeClass, all + R"(, "openType": "tab")")}) +
            ", " +
            Point("p.notype", kProbeIid, {Full("e2", kProbeClass, all + R"(, "openType": "")")}) +
            ", " +
            Point("p.nohost", kProbeIid,
                  {Full("e3", kProbeClass,
                        R"("modalPosition": "pos", "modalSize": "size", "host": "", "uri": "/x",
                                 "openType": "tab")")}));
    AddBundle(
        "reg",
        Point("p.reg", kProbeIid, {Full("e4", kRegisteredClass, all + R"(, "openType": "tab")")}),
        "", nullptr);
    std::string asked;
    auto creator = [&asked](const std::string& iid, const std::string& classId, void** out) {
        asked += iid + " " + classId;
        return HostProbe(iid, out);
    };
    ASSERT_TRUE(kit()->RegisterExtension(creator, kRegisteredClass, false));
    // Registered and in a library: built from the library.
    ASSERT_TRUE(kit()->RegisterExtension(creator, kProbeClass, false));
    ASSERT_TRUE(Load());
    struct Row {
        const char* point;
        const char* folder;
        bool registry;  // which keeps a reference
        std::string ids, launch;
    } const rows[] = {
        {"p.lib", "lib", false, "ext=e1;unified=u", "pos,size,https://h/x,tab"},
        // Launch parameters need both openType and host, whatever the rest holds.
        {"p.notype", "lib", false, "ext=e2;unified=u", ",,,"},
        {"p.nohost", "lib", false, "ext=e3;unified=u", ",,,"},
        {"p.reg", "reg", true, "ext=;unified=", ",,,"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.point);
        asked.clear();
        log->Clear();
        void* object = &object;
        ASSERT_TRUE(kit()->GetExtension(row.point, &object));
        const std::string route =
            std::string("create extension instance from ") +
            (row.registry
                 ? "registry, class id:" + std::string(kRegisteredClass) + ", iid:" + kProbeIid
                 : "dynamic library, class id:" + std::string(kProbeClass) + ", iid:" + kProbeIid +
                       ", singleton:false");
        EXPECT_EQ(
            ManagerLines(),
            (std::vector<std::string>{
                "get extension by extension point id:" + std::string(row.point),
                "get extension list by extension point id:" + std::string(row.point), route,
                route.substr(0, route.find(',')) + " success",
                "get extension list by extension point id success", "get extension list first item",
                "get extension by extension point id success"}));
        EXPECT_EQ(asked, row.registry ? kProbeIid + std::string(" ") + kRegisteredClass : "");
        const std::string root = RootText(row.folder);
        EXPECT_EQ(Probe(object)->Seen(), row.ids + ";res=" + root + "\\resources;bin=" + root +
                                             "\\bin;launch=" + row.launch +
                                             ";title=T;color=C;os=win|mac");
        EXPECT_EQ(Probe(object)->Initializations(), 1);
        EXPECT_EQ(RefCount(Probe(object)), row.registry ? 2u : 1u);
        ReleaseObject(object);
        if (row.registry) {
            ReleaseObject(object);
        }
    }
    EXPECT_TRUE(NewObjects().empty());
    // A class unregisters once.
    EXPECT_TRUE(kit()->unRegisterExtension(kProbeClass));
    EXPECT_TRUE(kit()->unRegisterExtension(kRegisteredClass));
    EXPECT_FALSE(kit()->unRegisterExtension(kRegisteredClass));
}

class HostGreeter : public ITestGreeter, public by::CUnknownImp {
public:
    HostGreeter() { QzeTestTrackObject(this, 1); }
    ~HostGreeter() override { QzeTestTrackObject(this, 0); }
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    const char* Greet() override { return "hello"; }
};

template <class T>
qzextensionkit::ExtensionCreator BareCreator() {
    return [](const std::string&, const std::string&, void** out) {
        T* object = nullptr;
        by::CComObject<T>::CreateInstance(&object);
        *out = static_cast<by::IBaseUnknown*>(object);
        return object != nullptr;
    };
}

TEST_F(RoutesTest, EachBadRecordFailsWithItsLineAfterTheContainerWasAsked) {
    const std::string regNoBase = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D11}";
    const std::string regNoTarget = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D12}";
    const std::string regFails = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D13}";
    AddBundle("good", Point("p.good", kProbeIid, {{"good", kProbeClass}}) + ", " +
                          Point("", "", {{"nopoint", ""}}) + ", " +
                          Point("p.noiid", "", {{"noiid", regFails}, {"noiidcls", ""}}) + ", " +
                          Point("p.nocls", kProbeIid, {{"nocls", ""}}) + ", " +
                          Point("p.plain", kProbeIid, {{"notarget", kPlainExtensionClass}}));
    AddBundle("greeter", Point("p.greeter", kGreeterIid, {{"nobase", kGreeterClass}}), "",
              "qzekit_plugin_complete");
    AddBundle("reg",
              Point("p.reg", kProbeIid,
                    {{"unregistered", "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D14}"},
                     {"creatorfails", regFails},
                     {"regnobase", regNoBase},
                     {"regnotarget", regNoTarget}}),
              "", nullptr);
    ASSERT_TRUE(kit()->RegisterExtension(
        [](const std::string&, const std::string&, void**) { return false; }, regFails, false));
    ASSERT_TRUE(kit()->RegisterExtension(BareCreator<HostGreeter>(), regNoBase, false));
    ASSERT_TRUE(kit()->RegisterExtension(BareCreator<PlainExtension>(), regNoTarget, false));
    ASSERT_TRUE(Load());

    const std::string lib = "create extension instance from dynamic library";
    auto libLine = [&](const std::string& classId, const std::string& iid) {
        return lib + ", class id:" + classId + ", iid:" + iid + ", singleton:false";
    };
    const std::string reg = "create extension instance from registry";
    auto regLine = [&](const std::string& classId) {
        return reg + ", class id:" + classId + ", iid:" + kProbeIid;
    };
    struct Row {
        const char* id;
        std::vector<std::string> lines;
    } const rows[] = {
        {"nopoint", {"create extension instance failed, because of extension point id empty"}},
        // An empty interface id stops a registered class too.
        {"noiid", {"create extension instance failed, because of iid empty"}},
        {"noiidcls", {"create extension instance failed, because of iid empty"}},
        {"nocls", {"create extension instance failed, because of class Id empty"}},
        // The factory itself is asked for the base interface.
        {"nobase",
         {libLine(kGreeterClass, kGreeterIid),
          lib + " failed, because of create object instance failed"}},
        {"notarget",
         {libLine(kPlainExtensionClass, kProbeIid),
          lib + " failed, because of query target interface failed"}},
        {"unregistered", {"create extension instance failed"}},
        {"creatorfails",
         {regLine(regFails), reg + " failed, because of create object instance failed"}},
        {"regnobase",
         {regLine(regNoBase), reg + " failed, because of query base interface failed"}},
        {"regnotarget",
         {regLine(regNoTarget), reg + " failed, because of query target interface failed"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.id);
        log->Clear();
        void* object = &object;
        EXPECT_FALSE(kit()->GetExtensionById(row.id, &object));
        EXPECT_EQ(object, nullptr);
        std::vector<std::string> want{"get extension by extension id:" + std::string(row.id)};
        want.insert(want.end(), row.lines.begin(), row.lines.end());
        want.push_back(
            "get extension by extension id failed, because of create extension instance failed");
        EXPECT_EQ(ManagerLines(), want);
        EXPECT_EQ(Lines()[2].rfind("object container impl - ", 0), 0u) << Lines()[2];
        for (by::IBaseUnknown* left : NewObjects()) {
            left->Release();
        }
        EXPECT_TRUE(NewObjects().empty());
        object = nullptr;
        ASSERT_TRUE(kit()->GetExtensionById("good", &object));
        EXPECT_EQ(Probe(object)->Release(), 0u);
    }
    for (const std::string& registered : {regFails, regNoBase, regNoTarget}) {
        EXPECT_TRUE(kit()->unRegisterExtension(registered));
    }
}

}  // namespace
}  // namespace qzetest
