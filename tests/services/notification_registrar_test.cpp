#include "services/notification_registrar.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/capture_logger.h"
#include "kit/qzextensionkit.h"
#include "services/support/notification_support.h"

namespace qzextensionkit {
namespace {

using qzetest::NamedObserver;
using Calls = std::vector<std::string>;

const int kDocA = 1;
const int kDocB = 2;
const Source<int> kA(&kDocA);
const Source<int> kB(&kDocB);
const QZNotificationSource kAll = IQZNotificationService::AllSources();
// Shares kLow's key on 64-bit systems only.
const Source<int> kLow(reinterpret_cast<const int*>(std::uintptr_t{0x40}));
const Source<int> kHigh(reinterpret_cast<const int*>(
    (sizeof(void*) > 4 ? (std::uintptr_t{1} << (sizeof(void*) * 4)) : 0) | 0x40));

// The process-wide service, as InitSDK registers it. The service lives on
// between tests, so each test uses event types of its own.
class NotificationRegistrarTest : public ::testing::Test, public qzetest::ObserverBook {
protected:
    void SetUp() override { QZExtensionKit::InitSDK(); }

    static IQZNotificationService* Service() {
        return QZServiceManager::GetInstance()->GetService<IQZNotificationService>(
            kNotificationServiceName);
    }
    Calls Notify(int type, const QZNotificationSource& source) {
        calls.clear();
        Service()->Notify(type, source, IQZNotificationService::NoParams());
        return calls;
    }
};

TEST_F(NotificationRegistrarTest, InitSdkRegistersOneSingletonServiceOnce) {
    IQZNotificationService* service = Service();
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(Service(), service);
    QZNotificationRegistrar registrar;
    registrar.Add(&Obs("x"), 501, kA);

    auto log = qzetest::CaptureLog();
    QZExtensionKit::InitSDK();
    EXPECT_TRUE(log->Contains(
        "[QZExtensionKit] service manager impl - register failed, because of the service name "
        "(NotificationService) is registered"));
    // Same object, observers kept.
    EXPECT_EQ(Service(), service);
    EXPECT_EQ(Notify(501, kA), Calls{"x"});
}

enum class OpKind { kAdd, kRemove, kRemoveAll };
struct Op {
    OpKind kind;
    int registrar;
    const char* observer;
    const QZNotificationSource* source;
};
struct Held {
    int registrar;
    const char* observer;
    const QZNotificationSource* source;
};
struct RegistrarCase {
    const char* what;
    std::vector<Op> ops;
    const QZNotificationSource* notifySource;
    Calls reached;
    std::vector<Held> held;  // every record left, in both registrars
};

// Two registrars, each row on an event type of its own.
TEST_F(NotificationRegistrarTest, RecordsAndTheServiceStayInStep) {
    const OpKind add = OpKind::kAdd, remove = OpKind::kRemove, all = OpKind::kRemoveAll;
    const RegistrarCase cases[] = {
        {"a second Add of the same triple changes nothing; one Remove ends it",
         {{add, 0, "x", &kA}, {add, 0, "x", &kA}, {remove, 0, "x", &kA}},
         &kA,
         {},
         {}},
        {"Remove through another registrar does nothing",
         {{add, 0, "x", &kA}, {remove, 1, "x", &kA}},
         &kA,
         {"x"},
         {{0, "x", &kA}}},
        {"Remove of a triple never added does nothing",
         {{add, 0, "x", &kA}, {remove, 0, "x", &kB}, {remove, 0, "y", &kA}},
         &kA,
         {"x"},
         {{0, "x", &kA}}},
        {"RemoveAll removes every record from the service",
         {{add, 0, "x", &kA}, {add, 0, "y", &kAll}, {add, 0, "x", &kB}, {all, 0, nullptr, nullptr}},
         &kA,
         {},
         {}},
        {"RemoveAll of one registrar leaves the other's",
         {{add, 0, "x", &kA}, {add, 1, "y", &kA}, {all, 0, nullptr, nullptr}},
         &kA,
         {"y"},
         {{1, "y", &kA}}},
        {"one triple in two registrars: the service holds it once",
         {{add, 0, "x", &kA}, {add, 1, "x", &kA}, {remove, 0, "x", &kA}},
         &kA,
         {},
         {{1, "x", &kA}}},
        {"RemoveAll finds a source by its key",
         {{add, 0, "x", &kHigh}, {all, 0, nullptr, nullptr}},
         &kLow,
         {},
         {}},
    };
    int type = 600;
    for (const RegistrarCase& c : cases) {
        SCOPED_TRACE(c.what);
        ++type;
        QZNotificationRegistrar registrars[2];
        for (const Op& op : c.ops) {
            QZNotificationRegistrar& r = registrars[op.registrar];
            switch (op.kind) {
                case OpKind::kAdd:
                    r.Add(&Obs(op.observer), type, *op.source);
                    break;
                case OpKind::kRemove:
                    r.Remove(&Obs(op.observer), type, *op.source);
                    break;
                case OpKind::kRemoveAll:
                    r.RemoveAll();
                    break;
            }
        }
        EXPECT_EQ(Notify(type, *c.notifySource), c.reached);
        int held[2] = {0, 0};
        for (const Held& h : c.held) {
            EXPECT_TRUE(registrars[h.registrar].IsRegistered(&Obs(h.observer), type, *h.source))
                << h.observer;
            ++held[h.registrar];
        }
        EXPECT_EQ(registrars[0].IsEmpty(), held[0] == 0);
        EXPECT_EQ(registrars[1].IsEmpty(), held[1] == 0);
        // The records named above are all there is: clearing the registrar
        // that holds none changes nothing in the service.
        for (int i = 0; i < 2; ++i) {
            if (held[i] == 0) {
                registrars[i].RemoveAll();
            }
        }
        EXPECT_EQ(Notify(type, *c.notifySource), c.reached);
    }
}

TEST_F(NotificationRegistrarTest, DestroyingTheRegistrarRemovesItsObservers) {
    {
        QZNotificationRegistrar registrar;
        registrar.Add(&Obs("x"), 701, kA);
        registrar.Add(&Obs("y"), 701, kAll);
        ASSERT_EQ(Notify(701, kA), (Calls{"y", "x"}));
    }
    EXPECT_EQ(Notify(701, kA), Calls{});
}

TEST_F(NotificationRegistrarTest, WithoutAServiceOnlyTheRecordsChange) {
    QZServiceManager::GetInstance()->UnInitialize();
    {
        QZNotificationRegistrar registrar;
        registrar.Add(&Obs("x"), 801, kA);
        EXPECT_TRUE(registrar.IsRegistered(&Obs("x"), 801, kA));
        registrar.Remove(&Obs("x"), 801, kA);
        EXPECT_TRUE(registrar.IsEmpty());
        registrar.Add(&Obs("x"), 801, kA);
        registrar.RemoveAll();
        EXPECT_TRUE(registrar.IsEmpty());
        registrar.Add(&Obs("x"), 801, kA);
    }
    QZExtensionKit::InitSDK();
    EXPECT_EQ(Notify(801, kA), Calls{});
}

}  // namespace
}  // namespace qzextensionkit
