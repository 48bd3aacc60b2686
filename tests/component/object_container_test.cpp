#include "component/object_container.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/capture_logger.h"
#include "component/support/test_plugins.h"
#include "plugins/test_interfaces.h"

namespace {

using qzextensionkit::QZEObjectContainer;
using qzextensionkit::QZEObjectCreator;
using ::testing::ElementsAre;

constexpr char kWidgetIid[] = "{0B7E2C44-1F3A-4D59-8E60-7A1B2C3D4E01}";
constexpr char kWidgetClass[] = "{0B7E2C44-1F3A-4D59-8E60-7A1B2C3D4E02}";

class IWidget : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{0B7E2C44-1F3A-4D59-8E60-7A1B2C3D4E01}")
    virtual int Serial() = 0;
};

std::atomic<int> g_nextSerial{1};

class Widget : public IWidget, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    int Serial() override { return serial_; }
    int32_t Count() const { return m_refCount.load(); }

private:
    int serial_ = g_nextSerial++;
};

Widget* AsWidget(void* p) {
    return static_cast<Widget*>(static_cast<IWidget*>(p));
}

// A creator that makes a new Widget each call and counts its calls.
QZEObjectCreator WidgetCreator(std::atomic<int>* calls) {
    return [calls](const std::string&, const std::string&, void** out) {
        ++*calls;
        Widget* w = nullptr;
        if (by::CComObject<Widget>::CreateInstance(&w) != 0) {
            return false;
        }
        *out = static_cast<IWidget*>(w);
        return true;
    };
}

// An object that refuses every query, the root one too.
class Stubborn : public by::IBaseUnknown {
public:
    by::Result QueryInterface(const by::GUID&, void**) override { return by::kNoInterface; }
    uint32_t AddRef() override { return static_cast<uint32_t>(++refs); }
    uint32_t Release() override { return static_cast<uint32_t>(--refs); }
    int refs = 1;
};

std::string Line(const std::string& text) {
    return "[QZExtensionKit] object container impl - " + text;
}

class ObjectContainerTest : public ::testing::Test {
protected:
    by::CComLoader* LoadLibrary(const std::string& name) {
        loaders_.push_back(std::make_unique<by::CComLoader>());
        if (!loaders_.back()->LoadCom(qzetest::TestPluginPath(name).c_str())) {
            return nullptr;
        }
        log_->Clear();
        return loaders_.back().get();
    }

    std::shared_ptr<qzetest::CapturedLines> log_ = qzetest::CaptureLog();
    qzetest::DebugCapture debug_;  // keeps the loader's lines out of the output
    // Before the container: objects it keeps must go before their library.
    std::vector<std::unique_ptr<by::CComLoader>> loaders_;
    QZEObjectContainer container_;
    std::atomic<int> calls_{0};
};

TEST_F(ObjectContainerTest, EmptyIdsAreRefusedWithTheirOwnLines) {
    EXPECT_FALSE(container_.IsRegistered(""));
    EXPECT_FALSE(container_.Register(WidgetCreator(&calls_), "", false));
    EXPECT_FALSE(container_.UnRegister(""));
    void* out = nullptr;
    EXPECT_FALSE(container_.CreateObjectInstanceByCreator("", kWidgetClass, &out));
    EXPECT_FALSE(container_.CreateObjectInstanceByCreator(kWidgetIid, "", &out));
    EXPECT_FALSE(container_.CreateObjectInstanceByLibrary("", kWidgetClass, false, nullptr, &out));
    EXPECT_FALSE(container_.CreateObjectInstanceByLibrary(kWidgetIid, "", false, nullptr, &out));
    EXPECT_EQ(out, nullptr);
    EXPECT_THAT(
        log_->Texts(),
        ElementsAre(
            Line("query class is registered failed, because of class id is empty"),
            Line("register failed, because of class id is empty"),
            Line("unregister failed, because of class id is empty"),
            Line("create object instance by creator failed, because of iid is empty"),
            Line("create object instance by creator failed, because of class id is empty"),
            Line("create object instance failed by library, because of iid is empty"),
            Line("create object instance failed by library, because of class id is empty")));
}

TEST_F(ObjectContainerTest, SecondRegistrationKeepsTheFirstCreatorAndFlag) {
    std::atomic<int> secondCalls{0};
    ASSERT_TRUE(container_.Register(WidgetCreator(&calls_), kWidgetClass, false));
    EXPECT_TRUE(container_.Register(WidgetCreator(&secondCalls), kWidgetClass, true));
    EXPECT_THAT(
        log_->Texts(),
        ElementsAre(Line(std::string("class id:") + kWidgetClass + ", class is not registered"),
                    Line(std::string("class id:") + kWidgetClass +
                         ", is singletion;false, register success"),
                    Line(std::string("class id:") + kWidgetClass + ", class is registered")));

    // Still not a singleton, still the first creator: two calls, two objects.
    void* a = nullptr;
    void* b = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &a));
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &b));
    EXPECT_NE(a, b);
    EXPECT_EQ(calls_.load(), 2);
    EXPECT_EQ(secondCalls.load(), 0);
    EXPECT_EQ(AsWidget(a)->Count(), 1);
    AsWidget(a)->Release();
    AsWidget(b)->Release();
}

TEST_F(ObjectContainerTest, ClassIdsDifferingInCaseAreDifferentClasses) {
    const std::string upper = "{ABCDEF00-0000-0000-0000-000000000001}";
    const std::string lower = "{abcdef00-0000-0000-0000-000000000001}";
    ASSERT_TRUE(container_.Register(WidgetCreator(&calls_), upper, false));
    EXPECT_TRUE(container_.IsRegistered(upper));
    EXPECT_FALSE(container_.IsRegistered(lower));
    EXPECT_FALSE(container_.UnRegister(lower));
    EXPECT_TRUE(log_->Contains(
        Line("class id:" + lower + ", unregister failed, because of not found register info")));
}

TEST_F(ObjectContainerTest, CreatorPathLogsEachStep) {
    ASSERT_TRUE(container_.Register(WidgetCreator(&calls_), kWidgetClass, false));
    log_->Clear();
    void* out = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &out));
    const std::string id = kWidgetClass;
    EXPECT_THAT(
        log_->Texts(),
        ElementsAre(Line("class id:" + id + ", class is registered"),
                    Line("class id:" + id + ", class is registered"),
                    Line("get object register info success"),
                    Line("create object instance by creator, iid:" + std::string(kWidgetIid) +
                         ", class id:" + id + ", singleton:false"),
                    Line("create object instance by creator success")));
    AsWidget(out)->Release();
}

TEST_F(ObjectContainerTest, CreatorFailuresReportFalse) {
    void* out = nullptr;
    EXPECT_FALSE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &out));
    EXPECT_TRUE(log_->Contains(
        Line("create object instance by creator failed, because of class is not registered")));

    QZEObjectCreator refuses = [](const std::string&, const std::string&, void**) { return false; };
    ASSERT_TRUE(container_.Register(refuses, kWidgetClass, false));
    ASSERT_TRUE(container_.Register(refuses, "{refusing-singleton}", true));
    for (const char* id : {kWidgetClass, "{refusing-singleton}"}) {
        log_->Clear();
        EXPECT_FALSE(container_.CreateObjectInstanceByCreator(kWidgetIid, id, &out));
        EXPECT_EQ(log_->Texts().back(), Line("create object instance by creator failed, because "
                                             "of instance creator execute failed"));
    }
    EXPECT_EQ(out, nullptr);
}

TEST_F(ObjectContainerTest, SingletonHitCarriesNoReferenceOfItsOwn) {
    ASSERT_TRUE(container_.Register(WidgetCreator(&calls_), kWidgetClass, true));
    const std::string id = kWidgetClass;
    log_->Clear();
    void* first = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &first));
    // The caller's reference and the table's.
    EXPECT_EQ(AsWidget(first)->Count(), 2);
    std::vector<std::string> texts = log_->Texts();
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(
        texts[texts.size() - 2],
        Line("class id:" + id + ", get singleton object failed, because of object didn't founded"));
    // A fresh singleton ends without the success line.
    EXPECT_EQ(texts.back(), Line("class id:" + id + ", set singleton object success"));

    log_->Clear();
    void* again = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &again));
    EXPECT_EQ(again, static_cast<void*>(static_cast<by::IBaseUnknown*>(AsWidget(first))));
    EXPECT_EQ(AsWidget(first)->Count(), 2);
    EXPECT_EQ(calls_.load(), 1);
    EXPECT_THAT(log_->Texts(),
                ::testing::IsSupersetOf({Line("class id:" + id + ", get singleton object success"),
                                         Line("create object instance by creator success")}));

    // Unregistering drops the table's reference; the next creation builds a
    // new object.
    ASSERT_TRUE(container_.UnRegister(kWidgetClass));
    EXPECT_EQ(log_->Texts().back(), Line("class id:" + id + ", unregister success"));
    EXPECT_EQ(AsWidget(first)->Count(), 1);
    ASSERT_TRUE(container_.Register(WidgetCreator(&calls_), kWidgetClass, true));
    void* second = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &second));
    EXPECT_NE(second, first);
    EXPECT_EQ(calls_.load(), 2);
    AsWidget(first)->Release();
    AsWidget(second)->Release();
}

TEST_F(ObjectContainerTest, SingletonCreatorWithNullObjectFails) {
    QZEObjectCreator nothing = [](const std::string&, const std::string&, void** out) {
        *out = nullptr;
        return true;
    };
    ASSERT_TRUE(container_.Register(nothing, kWidgetClass, true));
    log_->Clear();
    void* out = nullptr;
    EXPECT_FALSE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &out));
    std::vector<std::string> texts = log_->Texts();
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts[texts.size() - 2],
              Line(std::string("class id:") + kWidgetClass +
                   ", set singleton object failed, because of object pointer is nullptr"));
    EXPECT_EQ(texts.back(), Line("create object instance by creator failed, because of set "
                                 "singleton object failed"));
}

TEST_F(ObjectContainerTest, ObjectFailingTheRootQueryIsKeptAsNullEntry) {
    Stubborn stubborn;
    QZEObjectCreator giveStubborn = [&stubborn](const std::string&, const std::string&,
                                                void** out) {
        *out = &stubborn;
        return true;
    };
    ASSERT_TRUE(container_.Register(giveStubborn, kWidgetClass, true));
    void* out = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &out));
    EXPECT_EQ(out, &stubborn);
    EXPECT_EQ(stubborn.refs, 1);

    // The entry is there, empty: a hit with a null result.
    log_->Clear();
    out = &stubborn;
    EXPECT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &out));
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(log_->Contains(
        Line(std::string("class id:") + kWidgetClass + ", get singleton object success")));
}

// Two threads both miss the singleton and both build one. The creator holds
// both until both are inside it, then holds the second until the first
// call has ended, so the order of the stores is fixed.
TEST_F(ObjectContainerTest, RacingSingletonCreationKeepsTheFirstStored) {
    std::mutex m;
    std::condition_variable cv;
    int inside = 0;
    std::vector<int> finished;  // slots in the order their calls ended
    QZEObjectCreator creator = [&](const std::string& iid, const std::string& id, void** out) {
        {
            std::unique_lock<std::mutex> hold(m);
            int order = ++inside;
            cv.notify_all();
            cv.wait(hold, [&] { return inside == 2; });
            if (order == 2) {
                cv.wait(hold, [&] { return !finished.empty(); });
            }
        }
        return WidgetCreator(&calls_)(iid, id, out);
    };
    ASSERT_TRUE(container_.Register(creator, kWidgetClass, true));

    void* results[2] = {nullptr, nullptr};
    bool ok[2] = {false, false};
    auto run = [&](int slot) {
        ok[slot] =
            container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &results[slot]);
        std::lock_guard<std::mutex> hold(m);
        finished.push_back(slot);
        cv.notify_all();
    };
    std::thread a(run, 0);
    std::thread b(run, 1);
    a.join();
    b.join();

    ASSERT_TRUE(ok[0]);
    ASSERT_TRUE(ok[1]);
    ASSERT_EQ(finished.size(), 2u);
    EXPECT_EQ(calls_.load(), 2);
    ASSERT_NE(results[0], results[1]);
    Widget* kept = AsWidget(results[finished[0]]);
    Widget* other = AsWidget(results[finished[1]]);
    // Both stores reported success; the table kept the first.
    EXPECT_EQ(kept->Count(), 2);
    EXPECT_EQ(other->Count(), 1);
    void* hit = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByCreator(kWidgetIid, kWidgetClass, &hit));
    EXPECT_EQ(hit, results[finished[0]]);
    EXPECT_EQ(calls_.load(), 2);
    kept->Release();
    other->Release();
}

TEST_F(ObjectContainerTest, LibraryObjectsAreNewEachTimeUnlessSingleton) {
    by::CComLoader* loader = LoadLibrary("qzekit_plugin_complete");
    ASSERT_NE(loader, nullptr);
    const std::string iid = qzetest::kGreeterIid;
    const std::string id = qzetest::kGreeterClass;
    void* a = nullptr;
    void* b = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByLibrary(iid, id, false, loader, &a));
    EXPECT_THAT(log_->Texts(), ElementsAre(Line("create object instance by library, iid:" + iid +
                                                ", class id:" + id + ", is singleton:false"),
                                           Line("com loader create instance success"),
                                           Line("create object instance success")));
    ASSERT_TRUE(container_.CreateObjectInstanceByLibrary(iid, id, false, loader, &b));
    EXPECT_NE(a, b);
    EXPECT_STREQ(static_cast<qzetest::ITestGreeter*>(a)->Greet(), "hello from complete");
    // Each carries the caller's reference only.
    EXPECT_EQ(static_cast<by::IBaseUnknown*>(a)->Release(), 0u);
    EXPECT_EQ(static_cast<by::IBaseUnknown*>(b)->Release(), 0u);

    void* s1 = nullptr;
    void* s2 = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByLibrary(iid, id, true, loader, &s1));
    log_->Clear();
    ASSERT_TRUE(container_.CreateObjectInstanceByLibrary(iid, id, true, loader, &s2));
    EXPECT_EQ(s1, s2);
    EXPECT_THAT(log_->Texts(),
                ElementsAre(Line("create object instance by library, iid:" + iid +
                                 ", class id:" + id + ", is singleton:true"),
                            Line("class id:" + id + ", get singleton object success"),
                            Line("create object instance success")));
    // Caller and table; the hit added nothing.
    auto* object = static_cast<by::IBaseUnknown*>(s1);
    EXPECT_EQ(object->AddRef(), 3u);
    object->Release();

    // Not in the register table, so UnRegister can't reach the singleton.
    EXPECT_FALSE(container_.UnRegister(id));
    EXPECT_TRUE(log_->Contains(
        Line("class id:" + id + ", unregister failed, because of not found register info")));
    void* s3 = nullptr;
    ASSERT_TRUE(container_.CreateObjectInstanceByLibrary(iid, id, true, loader, &s3));
    EXPECT_EQ(s3, s1);
    object->Release();
    EXPECT_EQ(qzetest::CallCountExport(qzetest::TestPluginPath("qzekit_plugin_complete"),
                                       "TestLiveObjects"),
              1);
}

TEST_F(ObjectContainerTest, LoaderFailuresReportFalse) {
    by::CComLoader* loader = LoadLibrary("qzekit_plugin_faulty");
    ASSERT_NE(loader, nullptr);
    const std::wstring path = qzetest::TestPluginPath("qzekit_plugin_faulty");
    const std::string failLine =
        Line("create object instance failed, because of com loader create instance failed");
    void* out = nullptr;
    for (bool singleton : {false, true}) {
        log_->Clear();
        EXPECT_FALSE(container_.CreateObjectInstanceByLibrary(
            qzetest::kGreeterIid, qzetest::kCreateFailsClass, singleton, loader, &out));
        EXPECT_EQ(log_->Texts().back(), failLine);
    }
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLastClassIdIsZero"), 0);

    // A class id of the wrong length reaches the library as the zero id.
    EXPECT_FALSE(container_.CreateObjectInstanceByLibrary(
        qzetest::kGreeterIid, "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A34", false, loader, &out));
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLastClassIdIsZero"), 1);
    EXPECT_EQ(log_->Texts().back(), failLine);

    log_->Clear();
    EXPECT_FALSE(container_.CreateObjectInstanceByLibrary(
        qzetest::kGreeterIid, qzetest::kGreeterClass, false, nullptr, &out));
    EXPECT_EQ(log_->Texts().back(), failLine);
    EXPECT_EQ(out, nullptr);
}

TEST(ObjectContainerInstance, OneInstanceForAllThreads) {
    QZEObjectContainer* seen[4] = {};
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = QZEObjectContainer::GetInstance(); });
    }
    for (auto& t : threads) {
        t.join();
    }
    ASSERT_NE(seen[0], nullptr);
    for (auto* p : seen) {
        EXPECT_EQ(p, seen[0]);
    }
    EXPECT_EQ(QZEObjectContainer::GetInstance(), seen[0]);
}

}  // namespace
