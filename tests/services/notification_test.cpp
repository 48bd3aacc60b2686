#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kit/qzextensionkit.h"
#include "services/notification_registrar.h"
#include "services/notification_service.h"

namespace qzextensionkit {

// Slots of the list at (type, key), null ones included; -1 when absent.
class QZNotificationServiceTestPeer {
public:
    static int Slots(const QZNotificationService* s, int type, unsigned int key) {
        auto outer = s->lists_.find(type);
        if (outer == s->lists_.end()) {
            return -1;
        }
        auto inner = outer->second.find(key);
        return inner == outer->second.end() ? -1 : static_cast<int>(inner->second->SlotCount());
    }
};

namespace {

using Calls = std::string;  // names of the observers reached, in order

const int kDocA = 1;
const int kDocB = 2;
const Source<int> kA(&kDocA);
const Source<int> kB(&kDocB);
const QZNotificationSource kAll = IQZNotificationService::AllSources();

class Named : public QZNotificationObserver {
public:
    Named(std::string name, Calls* calls) : name(std::move(name)), calls(calls) {}
    void Observe(int type, const QZNotificationSource& source,
                 const QZNotificationParameters& params) override {
        *calls += (calls->empty() ? "" : " ") + name;
        last = {static_cast<unsigned int>(type), source.map_key(), params.map_key()};
        ++count;
        if (action) {
            action();
        }
    }
    std::string name;
    Calls* calls;
    std::function<void()> action;
    int count = 0;
    std::vector<unsigned int> last;
};

// With `global`, the service InitSDK registers, which lives on between tests:
// those tests use event types of their own.
class NotificationTest : public ::testing::Test {
protected:
    Named* Obs(const std::string& name) {
        auto& slot = observers_[name];
        if (!slot) {
            slot = std::make_unique<Named>(name, &calls);
        }
        return slot.get();
    }
    void Reset() {
        QZNotificationService* s = nullptr;
        by::CComObject<QZNotificationService>::CreateInstance(&s);
        service = by::ComPtr<QZNotificationService>::Adopt(s);
        observers_.clear();
    }
    void Add(const char* name, int type, const QZNotificationSource& source) {
        service->AddObserver(Obs(name), type, source);
    }
    void Remove(const char* name, int type, const QZNotificationSource& source) {
        service->RemoveObserver(Obs(name), type, source);
    }
    int Slots(int type, const QZNotificationSource& source) {
        return QZNotificationServiceTestPeer::Slots(service.Get(), type, source.map_key());
    }
    Calls Notify(int type, const QZNotificationSource& source, bool global = false) {
        calls.clear();
        IQZNotificationService* target = service.Get();
        if (global) {
            target = QZServiceManager::GetInstance()->GetService<IQZNotificationService>(
                kNotificationServiceName);
        }
        target->Notify(type, source, IQZNotificationService::NoParams());
        return calls;
    }

    Calls calls;
    by::ComPtr<QZNotificationService> service;
    std::map<std::string, std::unique_ptr<Named>> observers_;
};

TEST_F(NotificationTest, DispatchWalksTheFourListsInOrder) {
    struct Reg {
        const char* name;
        int type;
        const QZNotificationSource* source;
    };
    const std::vector<Reg> four = {
        {"7A", 7, &kA}, {"7all", 7, &kAll}, {"0A", 0, &kA}, {"0all", 0, &kAll}};
    const struct {
        std::vector<Reg> regs;
        int type;
        const QZNotificationSource* source;
        Calls expected;
    } cases[] = {
        {four, 7, &kA, "0all 0A 7all 7A"},
        {four, 7, &kAll, "0all 7all"},
        {four, 0, &kA, "0all 0A 0all 0A"},
        {four, 8, &kB, "0all"},
        {{{"x", 7, &kA}, {"y", 7, &kA}, {"z", 7, &kA}}, 7, &kA, "x y z"},
        // Once per list; a second add of the same triple changes nothing.
        {{{"x", 7, &kA}, {"x", 0, &kA}, {"x", 7, &kB}, {"x", 7, &kA}}, 7, &kA, "x x"},
        {{{nullptr, 7, &kA}}, 7, &kA, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        Reset();
        for (const Reg& r : c.regs) {
            service->AddObserver(r.name ? Obs(r.name) : nullptr, r.type, *r.source);
        }
        EXPECT_EQ(Notify(c.type, *c.source), c.expected);
    }
    const struct Info { int code; } info{42};
    Reset();
    Add("x", 0, kAll);
    service->Notify(9, kB, Params<Info>(&info));
    EXPECT_EQ(Obs("x")->last,
              (std::vector<unsigned int>{9, kB.map_key(), Params<Info>(&info).map_key()}));
}

TEST_F(NotificationTest, WhatAnObserverMayDoDuringObserve) {
    // The first call of "a" notifies the same list again, later ones remove "a" and "b".
    auto nested = [this] {
        if (Obs("a")->count == 1) {
            return service->Notify(7, kA, IQZNotificationService::NoParams());
        }
        Remove("a", 7, kA), Remove("b", 7, kA);
    };
    const struct {
        const char* what;
        std::function<void()> actionOfA;
        std::string on7A;
        Calls first, second;
        int slotsAfter;
    } cases[] = {
        {"removes itself", [this] { Remove("a", 7, kA); }, "a b c", "a b c", "b c", 2},
        {"adds to the same list: reached by this walk", [this] { Add("d", 7, kA); }, "a b", "a b d",
         "a b d", 3},
        {"adds to a list walked before: reached from the next Notify",
         [this] { Add("d", 0, kAll); }, "a", "a", "d a", 1},
        {"removes the last observer: an empty list stays", [this] { Remove("a", 7, kA); }, "a", "a",
         "", 0},
        {"nested Notify: removals inside, behind and ahead, are kept by the outer walk", nested,
         "a b c", "a a c c", "c", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Reset();
        Obs("a")->action = c.actionOfA;
        for (size_t at = 0; at < c.on7A.size(); at += 2) {
            Add(c.on7A.substr(at, 1).c_str(), 7, kA);
        }
        EXPECT_EQ(Notify(7, kA), c.first);
        EXPECT_EQ(Slots(7, kA), c.slotsAfter);
        EXPECT_EQ(Notify(7, kA), c.second);
        // Unknown, null and absent removals only drop a list left empty.
        Remove("stranger", 7, kA);
        service->RemoveObserver(nullptr, 7, kA);
        Remove("a", 11, kB);
        EXPECT_EQ(Slots(7, kA), c.slotsAfter == 0 ? -1 : c.slotsAfter);
    }
}

TEST(NotificationObserverListTest, ANonZeroModeStopsAWalkAtItsStartingSize) {
    Calls calls;
    Named a("a", &calls), late("late", &calls);
    for (int mode : {0, 1}) {
        calls.clear();
        QZNotificationObserverList list(mode);
        a.action = [&list, &late] { list.Add(&late); };
        list.Add(&a);
        list.Walk(1, kA, IQZNotificationService::NoParams());
        EXPECT_EQ(calls, mode == 0 ? "a late" : "a");
        EXPECT_EQ(list.SlotCount(), 2u);
        EXPECT_EQ(list.NotifyDepth(), 0);
    }
}

TEST_F(NotificationTest, RegistrarRecordsAndTheServiceStayInStep) {
    QZExtensionKit::InitSDK();
    {
        QZNotificationRegistrar registrar;
        registrar.Add(Obs("x"), 501, kA);
        QZExtensionKit::InitSDK();
        EXPECT_EQ(Notify(501, kA, true), "x");
    }
    EXPECT_EQ(Notify(501, kA, true), "") << "a destroyed registrar removes its observers";
    // Shares kLow's key on 64-bit systems only.
    const Source<int> kLow(reinterpret_cast<const int*>(std::uintptr_t{0x40}));
    const Source<int> kHigh(reinterpret_cast<const int*>(
        (sizeof(void*) > 4 ? (std::uintptr_t{1} << (sizeof(void*) * 4)) : 0) | 0x40));
    using R = QZNotificationRegistrar;
    const struct {
        const char* what;
        const QZNotificationSource* notified;
        const char* reached;  // the one observer reached, if any
        const char* empty;    // of each registrar at the end
        std::function<void(R*, int)> ops;
    } cases[] = {
        {"Remove through another registrar, or of a triple never added, does nothing", &kA, "x",
         "01",
         [&](R* r, int t) {
             r[0].Add(Obs("x"), t, kA), r[1].Remove(Obs("x"), t, kA);
             r[0].Remove(Obs("x"), t, kB), r[0].Remove(Obs("y"), t, kA);
         }},
        {"RemoveAll removes every record of its registrar only", &kA, "z", "10",
         [&](R* r, int t) {
             r[0].Add(Obs("x"), t, kA), r[0].Add(Obs("y"), t, kAll), r[0].Add(Obs("x"), t, kB);
             r[1].Add(Obs("z"), t, kA), r[0].RemoveAll();
         }},
        {"one triple in two registrars: the service holds it once", &kA, "", "10",
         [&](R* r, int t) {
             r[0].Add(Obs("x"), t, kA), r[1].Add(Obs("x"), t, kA), r[0].Remove(Obs("x"), t, kA);
         }},
        {"RemoveAll finds a source by its key", &kLow, "", "11",
         [&](R* r, int t) { r[0].Add(Obs("x"), t, kHigh), r[0].RemoveAll(); }},
    };
    int type = 600;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        R registrars[2];
        c.ops(registrars, ++type);
        EXPECT_EQ(Notify(type, *c.notified, true), *c.reached ? Calls{c.reached} : "");
        EXPECT_EQ(std::string(registrars[0].IsEmpty() ? "1" : "0") +
                      (registrars[1].IsEmpty() ? "1" : "0"),
                  c.empty);
    }
}

TEST_F(NotificationTest, WithoutAServiceOnlyTheRegistrarsRecordsChange) {
    QZServiceManager::GetInstance()->UnInitialize();
    {
        QZNotificationRegistrar registrar;
        registrar.Add(Obs("x"), 801, kA);
        EXPECT_TRUE(registrar.IsRegistered(Obs("x"), 801, kA) &&
                    !registrar.IsRegistered(Obs("x"), 802, kA));
        registrar.Remove(Obs("x"), 801, kA);
        EXPECT_TRUE(registrar.IsEmpty());
        registrar.Add(Obs("x"), 801, kA);
    }
    QZExtensionKit::InitSDK();
    EXPECT_EQ(Notify(801, kA, true), "");
}

}  // namespace
}  // namespace qzextensionkit
