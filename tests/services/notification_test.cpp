#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kit/qzextensionkit.h"
#include "services/notification_registrar.h"
#include "services/notification_service.h"

namespace qzextensionkit {

namespace {

const int kDocs[] = {1, 2};
const Source<int> kA(&kDocs[0]), kB(&kDocs[1]);
const QZNotificationSource kAll = IQZNotificationService::AllSources();

struct Named : QZNotificationObserver {
    Named(std::string name, std::string* calls) : name(std::move(name)), calls(calls) {}
    void Observe(int type, const QZNotificationSource& source,
                 const QZNotificationParameters& params) override {
        *calls += (calls->empty() ? "" : " ") + name;
        last = {static_cast<unsigned int>(type), source.map_key(), params.map_key()};
        if (++count, action) {
            action();
        }
    }
    std::string name;
    std::string* calls;
    std::function<void()> action;
    int count = 0;
    std::vector<unsigned int> last;
};

// With `global`, the service InitSDK registers, which lives on between tests:
// those tests use event types of their own.
class NotificationTest : public ::testing::Test {
protected:
    Named* Obs(const std::string& name) {
        return observers_.emplace(name, std::make_unique<Named>(name, &calls)).first->second.get();
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
    std::string Notify(int type, const QZNotificationSource& source, bool global = false) {
        calls.clear();
        IQZNotificationService* target =
            global ? QZServiceManager::GetInstance()->GetService<IQZNotificationService>(
                         kNotificationServiceName)
                   : service.Get();
        target->Notify(type, source, IQZNotificationService::NoParams());
        return calls;
    }

    std::string calls;
    by::ComPtr<QZNotificationService> service;
    std::map<std::string, std::unique_ptr<Named>> observers_;
};

TEST_F(NotificationTest, DispatchWalksTheFourListsInOrder) {
    Reset();
    Add("7A", 7, kA), Add("7all", 7, kAll), Add("0A", 0, kA), Add("0all", 0, kAll);
    // Once per list: a second add of the same triple changes nothing, a null one is dropped.
    Add("x", 5, kB), Add("y", 5, kB), Add("x", 0, kB), Add("x", 5, kB), Add("x", 5, kA);
    service->AddObserver(nullptr, 5, kB);
    EXPECT_EQ(Notify(7, kA) + "|" + Notify(7, kAll) + "|" + Notify(5, kB),
              "0all 0A 7all 7A|0all 7all|0all x x y");
    const struct Info { int code; } info{42};
    service->Notify(9, kB, Params<Info>(&info));
    EXPECT_EQ(Obs("0all")->last,
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
        std::function<void()> actionOfA;
        std::string on7A;
        std::string expected;  // first walk|second walk
    } cases[] = {
        // Reached by this walk.
        {[this] { Add("d", 7, kA); }, "a b", "a b d|a b d"},
        {[this] { Remove("a", 7, kA); }, "a", "a|"},
        // Removals inside, behind and ahead are kept by the outer walk.
        {nested, "a b c", "a a c c|c"},
    };
    for (const auto& c : cases) {
        Reset();
        Obs("a")->action = c.actionOfA;
        for (size_t at = 0; at < c.on7A.size(); at += 2) {
            Add(c.on7A.substr(at, 1).c_str(), 7, kA);
        }
        const std::string first = Notify(7, kA);
        // Unknown, null and absent removals change nothing.
        Remove("stranger", 7, kA), service->RemoveObserver(nullptr, 7, kA), Remove("a", 11, kB);
        EXPECT_EQ(first + "|" + Notify(7, kA), c.expected);
    }
}

TEST_F(NotificationTest, RegistrarRecordsAndTheServiceStayInStep) {
    QZExtensionKit::InitSDK();
    using R = QZNotificationRegistrar;
    const struct {
        const char* reached;  // "observer reached on kA|registrars empty at the end"
        std::function<void(R*, int)> ops;
    } cases[] = {
        // RemoveAll removes every record of its registrar only, finding each source by its key.
        {"z|10",
         [&](R* r, int t) {
             r[0].Add(Obs("x"), t, kA), r[0].Add(Obs("y"), t, kAll), r[0].Add(Obs("x"), t, kB);
             r[1].Add(Obs("z"), t, kA), r[0].RemoveAll();
         }},
        // One triple in two registrars: the service holds it once.
        {"|10",
         [&](R* r, int t) {
             r[0].Add(Obs("x"), t, kA), r[1].Add(Obs("x"), t, kA), r[0].Remove(Obs("x"), t, kA);
         }},
    };
    int type = 600;
    for (const auto& c : cases) {
        {
            R registrars[2];
            c.ops(registrars, ++type);
            EXPECT_EQ(Notify(type, kA, true) + "|" + (registrars[0].IsEmpty() ? "1" : "0") +
                          (registrars[1].IsEmpty() ? "1" : "0"),
                      c.reached);
        }
        EXPECT_EQ(Notify(type, kA, true), "") << type;
    }
}

}  // namespace
}  // namespace qzextensionkit
