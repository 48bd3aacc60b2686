#include <gtest/gtest.h>

#include "bundle/support/bundle_dirs.h"
#include "manager/support/kit_host.h"
#include "plugins/test_interfaces.h"

namespace qzetest {
namespace {

using RoutesTest = KitHost;

constexpr const char kRegisteredClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D01}";

// A point of one extension with every context member; `settings` ends the setting map.
std::string FullPoint(const std::string& point, const std::string& id, const std::string& clsid,
                      const std::string& settings) {
    return Point(point, kProbeIid,
                 {{id, clsid, false,
                   R"("unifiedId": "u", "payloads": {"title": "T", "color": "C"},
                      "constraints": [{"key": "os", "value": ["win", "mac"]}], "settingMap": {
                      "modalPosition": "pos", "modalSize": "size", "uri": "/x", )" +
                       settings + "}"}});
}

TEST_F(RoutesTest, TheTwoRoutesFillTheSameContextButDifferWhereTheyShould) {
    const std::string all = R"("host": "https://h", "openType": "tab")";
    AddBundle("lib",
              FullPoint("p.lib", "e1", kProbeClass, all) + ", " +
                  FullPoint("p.nohost", "e3", kProbeClass, R"("host": "", "openType": "tab")"));
    AddBundle("reg", FullPoint("p.reg", "e4", kRegisteredClass, all), "", nullptr);
    std::string asked;
    auto creator = [&asked](const std::string& iid, const std::string& classId, void** out) {
        asked += iid + " " + classId;
        return HostProbe(iid, out);
    };
    ASSERT_TRUE(kit()->RegisterExtension(creator, kRegisteredClass, false));
    // Registered and in a library: built from the library.
    ASSERT_TRUE(kit()->RegisterExtension(creator, kProbeClass, false));
    ASSERT_TRUE(Load());
    // Launch parameters need both openType and host. The registry route
    // keeps a reference of its own.
    const struct {
        const char* point;
        const char* folder;
        std::string ids, launch;
    } rows[] = {
        {"p.lib", "lib", "ext=e1;unified=u", "pos,size,https://h/x,tab"},
        {"p.nohost", "lib", "ext=e3;unified=u", ",,,"},
        {"p.reg", "reg", "ext=;unified=", ",,,"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.point);
        const bool registry = row.folder == std::string("reg");
        const std::string route =
            registry ? "create extension instance from registry, class id:" +
                           std::string(kRegisteredClass) + ", iid:" + kProbeIid
                     : "create extension instance from dynamic library, class id:" +
                           std::string(kProbeClass) + ", iid:" + kProbeIid + ", singleton:false";
        asked.clear();
        log->Clear();
        void* object = &object;
        ASSERT_TRUE(kit()->GetExtension(row.point, &object));
        EXPECT_EQ(
            ManagerLines(),
            (std::vector<std::string>{
                "get extension by extension point id:" + std::string(row.point),
                "get extension list by extension point id:" + std::string(row.point), route,
                route.substr(0, route.find(',')) + " success",
                "get extension list by extension point id success", "get extension list first item",
                "get extension by extension point id success"}));
        const std::string root = RootText(row.folder);
        EXPECT_EQ(asked + "|" + Probe(object)->Seen() + "|" +
                      std::to_string(Probe(object)->Initializations()) +
                      std::to_string(RefCount(Probe(object))),
                  (registry ? kProbeIid + std::string(" ") + kRegisteredClass : "") + "|" +
                      row.ids + ";res=" + root + "\\resources;bin=" + root + "\\bin;launch=" +
                      row.launch + ";title=T;color=C;os=win|mac|1" + (registry ? "2" : "1"));
        ReleaseObject(object);
        if (registry) {
            ReleaseObject(object);
        }
    }
    EXPECT_TRUE(NewObjects().empty());
    // A class unregisters once.
    EXPECT_TRUE(kit()->unRegisterExtension(kProbeClass) &&
                kit()->unRegisterExtension(kRegisteredClass));
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
    AddBundle("lib", Point("", "", {{"nopoint", ""}}) + ", " +
                         Point("p.nocls", kProbeIid, {{"nocls", ""}}) + ", " +
                         Point("p.plain", kGreeterIid, {{"notarget", kProbeClass}}));
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

    const std::string create = "create extension instance failed";
    const std::string lib = "create extension instance from dynamic library";
    const std::string reg = "create extension instance from registry";
    auto libLine = [&](const std::string& classId, const std::string& iid) {
        return lib + ", class id:" + classId + ", iid:" + iid + ", singleton:false|" + lib;
    };
    auto regLine = [&](const std::string& classId) {
        return reg + ", class id:" + classId + ", iid:" + kProbeIid + "|" + reg;
    };
    // Rows: extension id, the lines between the request's first and last.
    const std::pair<const char*, std::string> rows[] = {
        {"nopoint", create + ", because of extension point id empty"},
        {"nocls", create + ", because of class Id empty"},
        // The factory itself is asked for the base interface.
        {"nobase",
         libLine(kGreeterClass, kGreeterIid) + " failed, because of create object instance failed"},
        {"notarget",
         libLine(kProbeClass, kGreeterIid) + " failed, because of query target interface failed"},
        {"unregistered", create},
        {"creatorfails", regLine(regFails) + " failed, because of create object instance failed"},
        {"regnobase", regLine(regNoBase) + " failed, because of query base interface failed"},
        {"regnotarget", regLine(regNoTarget) + " failed, because of query target interface failed"},
    };
    for (const auto& [id, lines] : rows) {
        log->Clear();
        void* object = &object;
        EXPECT_FALSE(kit()->GetExtensionById(id, &object) || object != nullptr) << id;
        std::string got;
        for (const std::string& line : ManagerLines()) {
            got += (got.empty() ? "" : "|") + line;
        }
        EXPECT_EQ(got, "get extension by extension id:" + std::string(id) + "|" + lines +
                           "|get extension by extension id failed, because of create extension "
                           "instance failed");
        EXPECT_EQ(Lines()[2].rfind("object container impl - ", 0), 0u) << Lines()[2];
        for (by::IBaseUnknown* left : NewObjects()) {
            left->Release();
        }
        EXPECT_TRUE(NewObjects().empty());
    }
    for (const std::string& registered : {regFails, regNoBase, regNoTarget}) {
        EXPECT_TRUE(kit()->unRegisterExtension(registered));
    }
}

}  // namespace
}  // namespace qzetest
