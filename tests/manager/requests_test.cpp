#include <gtest/gtest.h>

#include <tuple>

#include "manager/support/kit_host.h"
#include "plugins/test_interfaces.h"

namespace qzetest {
namespace {

using LookupsTest = KitHost;

// "<initializations> <references> <title> <ext>" of a probe object.
std::string State(void* object) {
    return std::to_string(Probe(object)->Initializations()) + " " +
           std::to_string(RefCount(Probe(object))) + " " + SeenField(object, "title") + " " +
           SeenField(object, "ext");
}

TEST_F(LookupsTest, ASingletonIsOneObjectRefilledAndInitialisedOnEveryRequest) {
    // The third record has no payloads, so its refill keeps the second's.
    const char hostClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1E01}";
    const char* const titled[] = {R"("payloads": {"title": "first"})",
                                  R"("payloads": {"title": "second"})", ""};
    // The "reg" bundle names no library: its class is the host's.
    for (const std::string route : {"lib", "reg"}) {
        std::vector<Ext> exts;
        for (int i = 0; i < 3; ++i) {
            exts.push_back({route + std::to_string(i),
                            route == "lib" ? kSingletonProbeClass : hostClass, true, titled[i]});
        }
        AddBundle(route,
                  Point("p." + route, kProbeIid, {exts[0], exts[1]}) + ", " +
                      Point("p.more." + route, kProbeIid, {exts[2]}),
                  "", route == "lib" ? "qzekit_plugin_extension" : nullptr);
    }
    int built = 0;
    ASSERT_TRUE(
        kit()->RegisterExtension([&built](const std::string& iid, const std::string&,
                                          void** out) { return ++built, HostProbe(iid, out); },
                                 hostClass, true));
    ASSERT_TRUE(Load());
    // Rows: route, state after the list|after the third request, references
    // the host owns. The registry route keeps a reference per request.
    const std::tuple<std::string, std::string, uint32_t> rows[] = {
        {"lib", "2 2 second lib1|3 2 second lib2", 1}, {"reg", "2 4 second |3 5 second ", 3}};
    ITestExtensionProbe* fromRegistry = nullptr;
    for (const auto& [route, states, hostOwns] : rows) {
        std::vector<void*> list;
        void* again = nullptr;
        ASSERT_TRUE(kit()->GetExtensionList("p." + route, list) && list.size() == 2u);
        const std::string afterList = State(list[0]);
        ASSERT_TRUE(kit()->GetExtensionById(route + "2", &again));
        EXPECT_TRUE(list[0] == list[1] && again == list[0]) << route;
        EXPECT_EQ(afterList + "|" + State(again), states);
        for (uint32_t i = 0; i < hostOwns; ++i) {
            ReleaseObject(again);
        }
        fromRegistry = Probe(again);
    }
    EXPECT_EQ(built, 1);
    // Unregistering drops the container's reference; the registry route's stays.
    EXPECT_EQ(NewObjects().size(), 2u);
    ASSERT_TRUE(kit()->unRegisterExtension(hostClass));
    EXPECT_EQ(NewObjects().size(), 2u);
    EXPECT_EQ(fromRegistry->Release(), 0u);
    EXPECT_EQ(NewObjects().size(), 1u);
}

TEST_F(LookupsTest, ListsKeepRecordOrderSkipFailuresAndCountWhatTheCallerHeld) {
    const std::string missing = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1E02}";
    AddBundle(
        "b",
        Point("p.crowd", kProbeIid,
              {{"e1", kProbeClass}, {"bad", missing}, {"e3", kProbeClass}, {"e4", kProbeClass}}) +
            ", " + Point("p.allbad", kProbeIid, {{"x", missing}, {"y", missing}}));
    ASSERT_TRUE(Load());
    const std::string list = "get extension list by extension point id ";
    int sentinel = 0;
    // Rows: point, caller's list held one, result, what was built, last line.
    const std::tuple<const char*, bool, bool, std::string, std::string> rows[] = {
        {"p.crowd", false, true, "e1 e3 e4 ", list + "success"},
        {"p.allbad", false, false, "", list + "failed, because of extension vector empty"},
        {"p.allbad", true, true, "", list + "success"},
        {"p.unknown", true, false, "", list + "failed, because of extension infos are not founded"},
    };
    for (const auto& [point, prefilled, result, built, lastLine] : rows) {
        log->Clear();
        std::vector<void*> objects;
        if (prefilled) {
            objects.push_back(&sentinel);
        }
        EXPECT_EQ(kit()->GetExtensionList(point, objects), result) << point;
        EXPECT_EQ(!objects.empty() && objects[0] == &sentinel, prefilled);
        std::string got;
        for (size_t i = prefilled ? 1 : 0; i < objects.size(); ++i) {
            got += SeenField(objects[i], "ext") + " ";
            EXPECT_EQ(Probe(objects[i])->Release(), 0u);
        }
        EXPECT_EQ(got + "|" + ManagerLines().back(), built + "|" + lastLine);
    }
    // GetExtension builds the whole point; the others keep a reference each.
    const long initializations = QzeTestCounter(kInitializationsCounter);
    void* first = nullptr;
    ASSERT_TRUE(kit()->GetExtension("p.crowd", &first));
    EXPECT_EQ(SeenField(first, "ext") +
                  std::to_string(QzeTestCounter(kInitializationsCounter) - initializations),
              "e13");
    EXPECT_EQ(Probe(first)->Release(), 0u);
    std::vector<by::IBaseUnknown*> dropped = NewObjects();
    ASSERT_EQ(dropped.size(), 2u);
    EXPECT_EQ(dropped[0]->Release() + dropped[1]->Release(), 0u);
    log->Clear();
    void* object = &object;
    EXPECT_FALSE(kit()->GetExtension("p.allbad", &object) || object != nullptr);
    EXPECT_EQ(ManagerLines().back(),
              "get extension by extension point id failed, because of get extension list failed");
}

// Objects handed out keep running their library's code after Unload.
TEST_F(LookupsTest, AnExtensionMayCallTheKitFromItsInitializationAndOutlivesUnload) {
    AddBundle("b", Point("p", kProbeIid,
                         {{"outer", kReentrantClass, false, R"("payloads": {"reenter": "inner"})"},
                          {"inner", kProbeClass}}));
    ASSERT_TRUE(Load());
    void* outer = nullptr;
    ASSERT_TRUE(kit()->GetExtensionById("outer", &outer));
    EXPECT_EQ(Probe(outer)->Reentry() + ("|" + ManagerLines().back()),
              "ok|get extension by extension id success");
    EXPECT_EQ(Probe(outer)->Release(), 0u);
    EXPECT_TRUE(NewObjects().empty());
    void* kept = nullptr;
    ASSERT_TRUE(kit()->GetExtensionById("inner", &kept));
    ASSERT_TRUE(kit()->Unload());
    log->Clear();
    void* object = &object;
    EXPECT_FALSE(kit()->GetExtensionById("inner", &object) || object != nullptr);
    EXPECT_EQ(ManagerLines().back(),
              "get extension by extension id failed, because of extension info is not founded");
    EXPECT_EQ(Probe(kept)->Initializations(), 1);
    EXPECT_EQ(Probe(kept)->Release(), 0u);
}

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
    const std::string regNoTarget = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D12}";
    const std::string regFails = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D13}";
    AddBundle("lib", Point("", "", {{"nopoint", ""}}) + ", " +
                         Point("p.nocls", kProbeIid, {{"nocls", ""}}) + ", " +
                         Point("p.plain", kGreeterIid, {{"notarget", kProbeClass}}));
    AddBundle("reg",
              Point("p.reg", kProbeIid,
                    {{"unregistered", "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D14}"},
                     {"creatorfails", regFails},
                     {"regnotarget", regNoTarget}}),
              "", nullptr);
    ASSERT_TRUE(kit()->RegisterExtension(
        [](const std::string&, const std::string&, void**) { return false; }, regFails, false));
    ASSERT_TRUE(kit()->RegisterExtension(BareCreator<PlainExtension>(), regNoTarget, false));
    ASSERT_TRUE(Load());

    const std::string create = "create extension instance failed";
    const std::string lib = "create extension instance from dynamic library";
    const std::string reg = "create extension instance from registry";
    auto regLine = [&](const std::string& classId) {
        return reg + ", class id:" + classId + ", iid:" + kProbeIid + "|" + reg;
    };
    // Rows: extension id, the lines between the request's first and last.
    const std::pair<const char*, std::string> rows[] = {
        {"nopoint", create + ", because of extension point id empty"},
        {"nocls", create + ", because of class Id empty"},
        {"notarget", lib + ", class id:" + kProbeClass + ", iid:" + kGreeterIid +
                         ", singleton:false|" + lib +
                         " failed, because of query target interface failed"},
        {"unregistered", create},
        {"creatorfails", regLine(regFails) + " failed, because of create object instance failed"},
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
    for (const std::string& registered : {regFails, regNoTarget}) {
        EXPECT_TRUE(kit()->unRegisterExtension(registered));
    }
}

}  // namespace
}  // namespace qzetest
