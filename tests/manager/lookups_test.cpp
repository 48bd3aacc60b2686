#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>

#include "manager/support/kit_host.h"

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

TEST_F(LookupsTest, ASecondThreadWaitsForALoadInProgress) {
    AddBundle("latch", Point("p", kProbeIid, {{"e", kProbeClass}}),
              R"("BundleClassId": ")" + std::string(kLatchBundleClass) + "\"");
    const long waiting = QzeTestCounter(kLatchWaitingCounter);
    QzeTestLatchClose();
    std::thread loader([this] { EXPECT_TRUE(Load()); });
    while (QzeTestCounter(kLatchWaitingCounter) == waiting) {
        std::this_thread::yield();
    }
    std::atomic<bool> done{false};
    void* object = nullptr;
    std::thread requester([&] { done = kit()->GetExtensionById("e", &object); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(done.load());
    QzeTestLatchOpen();
    loader.join();
    requester.join();
    ASSERT_TRUE(done.load());
    EXPECT_EQ(Probe(object)->Release(), 0u);
}

}  // namespace
}  // namespace qzetest
