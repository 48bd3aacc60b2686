#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "manager/extension_object.h"
#include "manager/support/kit_host.h"
#include "plugins/probe_extension.h"

namespace qzetest {
namespace {

using ::testing::ElementsAre;

class LookupsTest : public KitHost {};

constexpr const char kHostSingletonClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1E01}";

std::vector<std::string> ExtIds(const std::vector<void*>& objects) {
    std::vector<std::string> ids;
    for (void* object : objects) {
        std::string seen = Probe(object)->Seen();
        ids.push_back(seen.substr(4, seen.find(';') - 4));
    }
    return ids;
}

std::string Title(void* object) {
    std::string seen = Probe(object)->Seen();
    size_t at = seen.find(";title=") + 7;
    return seen.substr(at, seen.find(';', at) - at);
}

TEST_F(LookupsTest, ASingletonIsOneObjectRefilledAndInitialisedOnEveryRequest) {
    // Three records of one singleton class per route; the third has no
    // payloads, so its refill keeps the second's. The library route takes
    // no net reference on a hit; the registry route keeps one on every
    // request, so a hit comes out with one for the host.
    const char* const titled[] = {R"("payloads": {"title": "first"})",
                                  R"("payloads": {"title": "second"})", ""};
    std::vector<Ext> lib, reg;
    for (int i = 0; i < 3; ++i) {
        lib.emplace_back("lib" + std::to_string(i), kSingletonProbeClass, true, titled[i]);
        reg.emplace_back("reg" + std::to_string(i), kHostSingletonClass, true, titled[i]);
    }
    AddBundle("lib", Point("p.lib", kProbeIid, {lib[0], lib[1]}) + ", " +
                         Point("p.lib.more", kProbeIid, {lib[2]}));
    AddBundle("reg",
              Point("p.reg", kProbeIid, {reg[0], reg[1]}) + ", " +
                  Point("p.reg.more", kProbeIid, {reg[2]}),
              "", nullptr);
    int built = 0;
    ASSERT_TRUE(kit()->RegisterExtension(
        [&built](const std::string& iid, const std::string&, void** out) {
            ++built;
            return qzextensionkit::CreateExtensionObject<ProbeExtension, ITestExtensionProbe>(
                       by::ParseGuid(iid.c_str(), true), out) == 0;
        },
        kHostSingletonClass, true));
    ASSERT_TRUE(Load());

    struct Row {
        const char* route;
        // References on the object after the list of two, and after the
        // third request.
        uint32_t afterList;
        uint32_t afterThird;
        // The extension id the context shows at the end.
        const char* extAtEnd;
        // References the host owns at the end.
        uint32_t hostOwns;
    } const rows[] = {
        // The container's reference, and the host's from the first request.
        {"lib", 2, 2, "lib2", 1},
        // Those two, and the one kept and the one handed out per request.
        {"reg", 4, 5, "", 3},
    };
    ITestExtensionProbe* fromRegistry = nullptr;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.route);
        const std::string point = std::string("p.") + row.route;
        std::vector<void*> list;
        ASSERT_TRUE(kit()->GetExtensionList(point, list));
        ASSERT_EQ(list.size(), 2u);
        EXPECT_EQ(list[0], list[1]);
        ITestExtensionProbe* probe = Probe(list[0]);
        EXPECT_EQ(probe->Initializations(), 2);
        EXPECT_EQ(Title(probe), "second");
        EXPECT_EQ(RefCount(probe), row.afterList);

        void* again = nullptr;
        ASSERT_TRUE(kit()->GetExtensionById(std::string(row.route) + "2", &again));
        EXPECT_EQ(again, list[0]);
        EXPECT_EQ(probe->Initializations(), 3);
        EXPECT_EQ(Title(probe), "second");
        std::string seen = probe->Seen();
        EXPECT_EQ(seen.substr(0, seen.find(';')), std::string("ext=") + row.extAtEnd);
        EXPECT_EQ(RefCount(probe), row.afterThird);
        for (uint32_t i = 0; i < row.hostOwns; ++i) {
            probe->Release();
        }
        fromRegistry = probe;
    }
    EXPECT_EQ(built, 1);
    // What is left is the container's: one object per class.
    EXPECT_EQ(NewObjects().size(), 2u);
    // Unregistering drops the container's reference to the host's class;
    // the reference the registry route kept from the first request is
    // still on it.
    ASSERT_TRUE(kit()->unRegisterExtension(kHostSingletonClass));
    EXPECT_EQ(NewObjects().size(), 2u);
    EXPECT_EQ(fromRegistry->Release(), 0u);
    EXPECT_EQ(NewObjects().size(), 1u);
}

TEST_F(LookupsTest, ListsKeepRecordOrderSkipFailuresAndAppendToWhatTheCallerHeld) {
    const std::string missing = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1E02}";
    AddBundle(
        "b",
        Point("p.crowd", kProbeIid,
              {{"e1", kProbeClass}, {"bad", missing}, {"e3", kProbeClass}, {"e4", kProbeClass}}) +
            ", " + Point("p.allbad", kProbeIid, {{"x", missing}, {"y", missing}}));
    ASSERT_TRUE(Load());

    int sentinel = 0;
    struct Row {
        const char* point;
        bool prefilled;
        bool result;
        std::vector<std::string> built;
        const char* lastLine;
    } const rows[] = {
        {"p.crowd",
         false,
         true,
         {"e1", "e3", "e4"},
         "get extension list by extension point id success"},
        {"p.crowd",
         true,
         true,
         {"e1", "e3", "e4"},
         "get extension list by extension point id success"},
        {"p.allbad",
         false,
         false,
         {},
         "get extension list by extension point id failed, because of extension vector empty"},
        // What the caller held counts as content.
        {"p.allbad", true, true, {}, "get extension list by extension point id success"},
        {"p.unknown",
         true,
         false,
         {},
         "get extension list by extension point id failed, because of extension infos are not "
         "founded"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.point) + (row.prefilled ? " prefilled" : ""));
        log->Clear();
        std::vector<void*> list;
        if (row.prefilled) {
            list.push_back(&sentinel);
        }
        EXPECT_EQ(kit()->GetExtensionList(row.point, list), row.result);
        ASSERT_EQ(list.size(), row.built.size() + (row.prefilled ? 1 : 0));
        std::vector<void*> built(list.begin() + (row.prefilled ? 1 : 0), list.end());
        EXPECT_EQ(ExtIds(built), row.built);
        if (row.prefilled) {
            EXPECT_EQ(list[0], &sentinel);
        }
        EXPECT_EQ(ManagerLines().back(), row.lastLine);
        for (void* object : built) {
            EXPECT_EQ(Probe(object)->Release(), 0u);
        }
    }
    EXPECT_TRUE(NewObjects().empty());
}

TEST_F(LookupsTest, GetExtensionBuildsTheWholePointAndDropsAllButTheFirst) {
    AddBundle("b", Point("p.crowd", kProbeIid,
                         {{"e1", kProbeClass}, {"e2", kProbeClass}, {"e3", kProbeClass}}));
    ASSERT_TRUE(Load());
    const long initializations = QzeTestCounter(kInitializationsCounter);
    void* first = nullptr;
    ASSERT_TRUE(kit()->GetExtension("p.crowd", &first));
    EXPECT_EQ(ExtIds({first}), std::vector<std::string>{"e1"});
    EXPECT_EQ(QzeTestCounter(kInitializationsCounter), initializations + 3);
    EXPECT_EQ(Probe(first)->Release(), 0u);
    // The other two are alive with a reference each, and nothing points to
    // them but the test library's own list.
    std::vector<by::IBaseUnknown*> dropped = NewObjects();
    ASSERT_EQ(dropped.size(), 2u);
    for (by::IBaseUnknown* object : dropped) {
        EXPECT_EQ(object->Release(), 0u);
    }

    struct Row {
        const char* point;
        const char* reason;
    } const failures[] = {
        {"p.unknown", "get extension list failed"},
    };
    for (const Row& row : failures) {
        log->Clear();
        void* object = &object;
        EXPECT_FALSE(kit()->GetExtension(row.point, &object));
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(
            ManagerLines().back(),
            std::string("get extension by extension point id failed, because of ") + row.reason);
    }
}

TEST_F(LookupsTest, ByIdTheLastPointInKeyOrderWins) {
    // "dup" under three points; "p.b" sorts last, though written first.
    AddBundle("b", Point("p.b", kProbeIid,
                         {{"dup", kProbeClass, false, R"("payloads": {"title": "b"})"}}) +
                       ", " +
                       Point("p.a", kProbeIid,
                             {{"dup", kProbeClass, false, R"("payloads": {"title": "a"})"}}) +
                       ", " +
                       Point("p.a2", kProbeIid,
                             {{"dup", kProbeClass, false, R"("payloads": {"title": "a2"})"}}));
    ASSERT_TRUE(Load());
    void* object = nullptr;
    ASSERT_TRUE(kit()->GetExtensionById("dup", &object));
    EXPECT_EQ(Title(object), "b");
    EXPECT_EQ(Probe(object)->Release(), 0u);

    for (const char* id : {"nothing", ""}) {
        SCOPED_TRACE(id);
        log->Clear();
        object = &object;
        EXPECT_FALSE(kit()->GetExtensionById(id, &object));
        EXPECT_EQ(object, nullptr);
        EXPECT_THAT(ManagerLines(),
                    ElementsAre("get extension by extension id:" + std::string(id),
                                "get extension by extension id failed, because of extension info "
                                "is not founded"));
    }
}

TEST_F(LookupsTest, AfterUnloadLookupsFailButObjectsAndLibrariesStay) {
    AddBundle("b", Point("p", kProbeIid, {{"e", kProbeClass}}));
    const long loads = QzeTestCounter(kLoadsCounter);
    ASSERT_TRUE(Load());
    void* kept = nullptr;
    ASSERT_TRUE(kit()->GetExtensionById("e", &kept));

    ASSERT_TRUE(kit()->Unload());
    log->Clear();
    void* object = &object;
    EXPECT_FALSE(kit()->GetExtensionById("e", &object));
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(ManagerLines().back(),
              "get extension by extension id failed, because of extension info is not founded");
    object = &object;
    EXPECT_FALSE(kit()->GetExtension("p", &object));
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(ManagerLines(),
                ::testing::Contains("get extension list by extension point id failed, because of "
                                    "extension infos are not founded"));
    // The object handed out before still runs code of its library.
    EXPECT_EQ(Probe(kept)->Initializations(), 1);

    // A second load reads the records again and finds the library open.
    log->Clear();
    ASSERT_TRUE(kit()->Load());
    EXPECT_TRUE(log->Contains("[QZExtensionKit] Bundle Loader - bundle has been loaded"));
    EXPECT_EQ(QzeTestCounter(kLoadsCounter), loads + 1);
    ASSERT_TRUE(kit()->GetExtensionById("e", &object));
    EXPECT_NE(object, kept);
    EXPECT_EQ(Probe(object)->Release(), 0u);
    EXPECT_EQ(Probe(kept)->Release(), 0u);
}

TEST_F(LookupsTest, AfterUnregisteringARecordWithoutLibraryHasNoRoute) {
    const std::string cls = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1E03}";
    AddBundle("b", Point("p", kProbeIid, {{"e", cls}}), "", nullptr);
    ASSERT_TRUE(kit()->RegisterExtension(
        [](const std::string& iid, const std::string&, void** out) {
            return qzextensionkit::CreateExtensionObject<ProbeExtension, ITestExtensionProbe>(
                       by::ParseGuid(iid.c_str(), true), out) == 0;
        },
        cls, false));
    ASSERT_TRUE(Load());
    void* object = nullptr;
    ASSERT_TRUE(kit()->GetExtensionById("e", &object));
    // The host's reference and the one the registry route keeps.
    EXPECT_EQ(Probe(object)->Release(), 1u);
    EXPECT_EQ(Probe(object)->Release(), 0u);

    EXPECT_TRUE(kit()->unRegisterExtension(cls));
    log->Clear();
    object = &object;
    EXPECT_FALSE(kit()->GetExtensionById("e", &object));
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("get extension by extension id:e", "create extension instance failed",
                            "get extension by extension id failed, because of create extension "
                            "instance failed"));
    log->Clear();
    EXPECT_FALSE(kit()->unRegisterExtension(cls));
    EXPECT_THAT(Lines(), ElementsAre("object container impl - class id:" + cls +
                                     ", unregister failed, because of not found register info"));
}

TEST_F(LookupsTest, AnExtensionMayCallTheKitFromItsInitialization) {
    AddBundle("b", Point("p", kProbeIid,
                         {{"outer", kReentrantClass, false, R"("payloads": {"reenter": "inner"})"},
                          {"inner", kProbeClass},
                          {"lost", kReentrantClass, false, R"("payloads": {"reenter": "none"})"}}));
    ASSERT_TRUE(Load());
    struct Row {
        const char* id;
        const char* reentry;
    } const rows[] = {{"outer", "ok"}, {"lost", "failed"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.id);
        log->Clear();
        void* object = nullptr;
        ASSERT_TRUE(kit()->GetExtensionById(row.id, &object));
        EXPECT_STREQ(Probe(object)->Reentry(), row.reentry);
        // The inner request runs whole inside the outer one.
        std::vector<std::string> lines = ManagerLines();
        EXPECT_EQ(lines.front(), "get extension by extension id:" + std::string(row.id));
        EXPECT_EQ(lines.back(), "get extension by extension id success");
        EXPECT_EQ(Probe(object)->Release(), 0u);
    }
    EXPECT_TRUE(NewObjects().empty());
}

TEST_F(LookupsTest, ASecondThreadWaitsForALoadInProgress) {
    AddBundle("latch", Point("p", kProbeIid, {{"e", kProbeClass}}),
              R"("BundleClassId": ")" + std::string(kLatchBundleClass) + "\"");
    install.WriteMapping("{}");
    install.WriteConfig(ConfigWithArtifacts(bundles));
    const long waiting = QzeTestCounter(kLatchWaitingCounter);
    QzeTestLatchClose();
    std::thread loader(
        [] { EXPECT_TRUE(qzextensionkit::QZExtensionManager::GetInstance()->Load()); });
    while (QzeTestCounter(kLatchWaitingCounter) == waiting) {
        std::this_thread::yield();
    }
    // The load is inside the bundle's entry, under the facade's lock.
    std::atomic<bool> done{false};
    void* object = nullptr;
    std::thread requester([&] {
        EXPECT_TRUE(
            qzextensionkit::QZExtensionManager::GetInstance()->GetExtensionById("e", &object));
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(done.load());
    QzeTestLatchOpen();
    loader.join();
    requester.join();
    EXPECT_TRUE(done.load());
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(Probe(object)->Release(), 0u);
}

}  // namespace
}  // namespace qzetest
