#include "services/notification_service.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "services/support/notification_support.h"

namespace qzextensionkit {
namespace {

using Peer = QZNotificationServiceTestPeer;
using qzetest::NamedObserver;
using Calls = std::vector<std::string>;

const int kDocA = 1;
const int kDocB = 2;
const Source<int> kA(&kDocA);
const Source<int> kB(&kDocB);
const QZNotificationSource kAll = IQZNotificationService::AllSources();

// Named observers on one fresh service.
class NotificationTest : public ::testing::Test, public qzetest::ObserverBook {
protected:
    void Add(const std::string& name, int type, const QZNotificationSource& source) {
        service->AddObserver(&Obs(name), type, source);
    }
    void Remove(const std::string& name, int type, const QZNotificationSource& source) {
        service->RemoveObserver(&Obs(name), type, source);
    }
    Calls Notify(int type, const QZNotificationSource& source) {
        calls.clear();
        service->Notify(type, source, IQZNotificationService::NoParams());
        return calls;
    }
    void Reset() {
        service = qzetest::NewNotificationService();
        ForgetObservers();
    }

    by::ComPtr<QZNotificationService> service = qzetest::NewNotificationService();
};

struct Registration {
    const char* observer;
    int type;
    const QZNotificationSource* source;
};

struct DispatchCase {
    const char* what;
    std::vector<Registration> registrations;
    int type;
    const QZNotificationSource* source;
    Calls expected;
};

TEST_F(NotificationTest, DispatchWalksTheFourListsInOrder) {
    // One observer on each of the four lists an event of type 7 from A reaches.
    const std::vector<Registration> four = {
        {"type7-A", 7, &kA}, {"type7-all", 7, &kAll}, {"all-A", 0, &kA}, {"all-all", 0, &kAll}};
    const DispatchCase cases[] = {
        {"all four steps", four, 7, &kA, {"all-all", "all-A", "type7-all", "type7-A"}},
        {"AllSources reaches (0,0) and (type,0) once each",
         four,
         7,
         &kAll,
         {"all-all", "type7-all"}},
        {"type 0 and a source walks (0,0) and (0,A) twice",
         four,
         0,
         &kA,
         {"all-all", "all-A", "all-all", "all-A"}},
        {"type 0 and AllSources walks (0,0) twice", four, 0, &kAll, {"all-all", "all-all"}},
        {"another type and source reach the all-all list only", four, 8, &kB, {"all-all"}},
        {"registration order within a list",
         {{"x", 7, &kA}, {"y", 7, &kA}, {"z", 7, &kA}},
         7,
         &kA,
         {"x", "y", "z"}},
        {"one observer under two keys is called once per list",
         {{"x", 7, &kA}, {"x", 0, &kA}, {"x", 7, &kB}},
         7,
         &kA,
         {"x", "x"}},
        {"a second add of the same triple changes nothing",
         {{"x", 7, &kA}, {"x", 7, &kA}},
         7,
         &kA,
         {"x"}},
        {"a null observer is not added", {{nullptr, 7, &kA}}, 7, &kA, {}},
    };
    for (const DispatchCase& c : cases) {
        SCOPED_TRACE(c.what);
        service = qzetest::NewNotificationService();
        for (const Registration& r : c.registrations) {
            service->AddObserver(r.observer ? &Obs(r.observer) : nullptr, r.type, *r.source);
        }
        EXPECT_EQ(Notify(c.type, *c.source), c.expected);
    }
}

TEST_F(NotificationTest, ObserverGetsTheEventsTypeSourceAndParameters) {
    struct Info {
        int code;
    } info{42};
    Add("x", 0, kAll);
    service->Notify(9, kB, Params<Info>(&info));
    const NamedObserver& x = Obs("x");
    EXPECT_EQ(x.lastType, 9);
    EXPECT_EQ(x.lastSourceKey, kB.map_key());
    EXPECT_EQ(x.lastParamsKey, Params<Info>(&info).map_key());
}

TEST(NotificationSourceTest, TypedAccessorsGiveTheWholePointerBack) {
    const int value = 5;
    struct Info {
        double d;
    } info{1.5};
    EXPECT_EQ(SourceAs<int>(Source<int>(&value)), &value);
    EXPECT_EQ(ParamsAs<Info>(Params<Info>(&info)), &info);
    EXPECT_EQ(SourceAs<void>(IQZNotificationService::AllSources()), nullptr);
    EXPECT_EQ(ParamsAs<void>(IQZNotificationService::NoParams()), nullptr);
    EXPECT_EQ(QZNotificationParameters(), IQZNotificationService::NoParams());
    EXPECT_NE(Source<int>(&value), IQZNotificationService::AllSources());
    if (sizeof(void*) > 4) {
        // Two pointers equal in their low 32 bits: one key, two sources, and
        // the accessor still tells them apart.
        const auto low = reinterpret_cast<const int*>(std::uintptr_t{0x40});
        const auto high = reinterpret_cast<const int*>((std::uintptr_t{1} << 32) | 0x40);
        EXPECT_EQ(Source<int>(low).map_key(), Source<int>(high).map_key());
        EXPECT_NE(Source<int>(low), Source<int>(high));
        EXPECT_EQ(SourceAs<int>(Source<int>(high)), high);
    }
}

TEST_F(NotificationTest, AddAndRemoveKeepTheTables) {
    // Removing the last observer of a key drops its list.
    Add("x", 7, kA);
    Add("y", 7, kA);
    Remove("x", 7, kA);
    EXPECT_EQ(Peer::Slots(service.Get(), 7, kA.map_key()), 1);
    Remove("y", 7, kA);
    EXPECT_EQ(Peer::Slots(service.Get(), 7, kA.map_key()), -1);
    EXPECT_EQ(Notify(7, kA), Calls{});

    // Removing where nothing is makes only the type's entry.
    Remove("x", 11, kB);
    EXPECT_TRUE(Peer::HasType(service.Get(), 11));
    EXPECT_EQ(Peer::Slots(service.Get(), 11, kB.map_key()), -1);

    // An unknown observer or a null one leaves the list as it is.
    Add("x", 7, kB);
    Remove("stranger", 7, kB);
    service->RemoveObserver(nullptr, 7, kB);
    EXPECT_EQ(Notify(7, kB), Calls{"x"});

    // Notify of a type nobody observes leaves an empty entry for it.
    EXPECT_FALSE(Peer::HasType(service.Get(), 12));
    Notify(12, kA);
    EXPECT_TRUE(Peer::HasType(service.Get(), 12));
}

struct ReentryCase {
    const char* what;
    std::function<void()> setUp;
    Calls first;
    Calls second;
    int slotsAfter;
};

// What an observer may do from within Observe. Each row sets up observers
// on (7, A) unless it says otherwise, gives one of them an action, and
// checks two Notify(7, A) and the slots left on (7, A).
TEST_F(NotificationTest, WhatAnObserverMayDoDuringObserve) {
    const ReentryCase cases[] = {
        {"removes itself",
         [this] {
             Obs("a").action = [this] { Remove("a", 7, kA); };
             Add("a", 7, kA), Add("b", 7, kA), Add("c", 7, kA);
         },
         {"a", "b", "c"},
         {"b", "c"},
         2},
        {"removes one not yet reached",
         [this] {
             Obs("a").action = [this] { Remove("c", 7, kA); };
             Add("a", 7, kA), Add("b", 7, kA), Add("c", 7, kA);
         },
         {"a", "b"},
         {"a", "b"},
         2},
        {"removes one already called",
         [this] {
             Obs("b").action = [this] { Remove("a", 7, kA); };
             Add("a", 7, kA), Add("b", 7, kA), Add("c", 7, kA);
         },
         {"a", "b", "c"},
         {"b", "c"},
         2},
        {"adds to the same list: reached by this walk",
         [this] {
             Obs("a").action = [this] { Add("d", 7, kA); };
             Add("a", 7, kA), Add("b", 7, kA);
         },
         {"a", "b", "d"},
         {"a", "b", "d"},
         3},
        {"adds to a list a later step walks: reached in that step",
         [this] {
             Obs("all").action = [this] { Add("d", 7, kA); };
             Add("all", 0, kAll);
         },
         {"all", "d"},
         {"all", "d"},
         1},
        {"adds to a list an earlier step walked: reached from the next Notify",
         [this] {
             Obs("a").action = [this] { Add("d", 0, kAll); };
             Add("a", 7, kA);
         },
         {"a"},
         {"d", "a"},
         1},
        {"removes and re-adds itself: called again in the same walk",
         [this] {
             // Bounded here; one that always re-adds itself never stops.
             NamedObserver& a = Obs("a");
             a.action = [this, &a] {
                 if (a.count <= 3) {
                     Remove("a", 7, kA);
                     Add("a", 7, kA);
                 }
             };
             Add("a", 7, kA), Add("b", 7, kA);
         },
         {"a", "b", "a", "a", "a"},
         {"b", "a"},
         2},
        {"removes the last observer of the list: an empty list stays",
         [this] {
             Obs("a").action = [this] { Remove("a", 7, kA); };
             Add("a", 7, kA);
         },
         {"a"},
         {},
         0},
        {"nested Notify on another list runs to its end first",
         [this] {
             Obs("a").action = [this] {
                 service->Notify(8, kA, IQZNotificationService::NoParams());
             };
             Add("a", 7, kA), Add("n", 8, kA), Add("c", 7, kA);
         },
         {"a", "n", "c"},
         {"a", "n", "c"},
         2},
        {"nested Notify on the same list: a removal inside is kept by the outer walk",
         [this] {
             NamedObserver& a = Obs("a");
             a.action = [this, &a] {
                 if (a.count % 2 == 1) {
                     service->Notify(7, kA, IQZNotificationService::NoParams());
                 }
             };
             NamedObserver& b = Obs("b");
             b.action = [this] { Remove("b", 7, kA); };
             Add("a", 7, kA), Add("b", 7, kA), Add("c", 7, kA);
         },
         {"a", "a", "b", "c", "c"},
         {"a", "a", "c", "c"},
         2},
    };
    for (const ReentryCase& c : cases) {
        SCOPED_TRACE(c.what);
        Reset();
        c.setUp();
        EXPECT_EQ(Notify(7, kA), c.first);
        EXPECT_EQ(Peer::Slots(service.Get(), 7, kA.map_key()), c.slotsAfter);
        EXPECT_EQ(Notify(7, kA), c.second);
        // Removing a stranger leaves a list as it is, but drops one left empty.
        Remove("stranger", 7, kA);
        EXPECT_EQ(Peer::Slots(service.Get(), 7, kA.map_key()),
                  c.slotsAfter == 0 ? -1 : c.slotsAfter);
    }
}

TEST(NotificationObserverListTest, ANonZeroModeStopsAWalkAtItsStartingSize) {
    Calls calls;
    NamedObserver a("a", &calls), late("late", &calls);
    for (int mode : {0, 1}) {
        SCOPED_TRACE(mode);
        calls.clear();
        QZNotificationObserverList list(mode);
        a.action = [&list, &late] { list.Add(&late); };
        list.Add(&a);
        list.Walk(1, kA, IQZNotificationService::NoParams());
        EXPECT_EQ(calls, mode == 0 ? Calls({"a", "late"}) : Calls({"a"}));
        EXPECT_EQ(list.SlotCount(), 2u);
        EXPECT_EQ(list.NotifyDepth(), 0);
    }
}

}  // namespace
}  // namespace qzextensionkit
