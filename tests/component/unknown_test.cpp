#include "component/unknown.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

class IWidget : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{A1B2C3D4-0000-4000-8000-000000000001}")
    virtual int Size() = 0;
};

int g_alive = 0;
int g_destroyed = 0;
by::Result g_initResult = 0;

class Widget : public IWidget, public by::CUnknownImp {
public:
    Widget() { ++g_alive; }
    ~Widget() override {
        --g_alive;
        ++g_destroyed;
    }
    by::Result init_class(by::IBaseUnknown* outer, by::IBaseUnknown* inner) {
        EXPECT_EQ(outer, nullptr);
        EXPECT_EQ(inner, nullptr);
        return g_initResult;
    }
    int Size() override { return 3; }
};

class ComponentModel : public ::testing::Test {
protected:
    void SetUp() override {
        g_alive = 0;
        g_destroyed = 0;
        g_initResult = 0;
    }
};

TEST_F(ComponentModel, CreationGivesOneReferenceAndLastReleaseDestroysOnce) {
    Widget* w = nullptr;
    ASSERT_EQ(by::CComObject<Widget>::CreateInstance(&w), by::kOk);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(g_alive, 1);
    EXPECT_EQ(w->AddRef(), 2u);
    EXPECT_EQ(w->Release(), 1u);
    EXPECT_EQ(g_destroyed, 0);
    EXPECT_EQ(w->Release(), 0u);
    EXPECT_EQ(g_destroyed, 1);
    EXPECT_EQ(g_alive, 0);
}

TEST_F(ComponentModel, FailedInitClassLeavesNoObjectBehind) {
    g_initResult = static_cast<by::Result>(0x80070057);
    Widget* w = reinterpret_cast<Widget*>(0x1);
    EXPECT_EQ(by::CComObject<Widget>::CreateInstance(&w), static_cast<by::Result>(0x80070057));
    EXPECT_EQ(w, nullptr);
    EXPECT_EQ(g_alive, 0);
    EXPECT_EQ(g_destroyed, 1);
}

TEST_F(ComponentModel, NullOutParameterIsRefused) {
    EXPECT_EQ(by::CComObject<Widget>::CreateInstance(nullptr), by::kPointer);
    EXPECT_EQ(g_alive, 0);
}

TEST_F(ComponentModel, QueryAnswersRootAndOwnIdWithOnePointer) {
    Widget* w = nullptr;
    ASSERT_EQ(by::CComObject<Widget>::CreateInstance(&w), by::kOk);
    void* root = nullptr;
    void* own = nullptr;
    EXPECT_EQ(w->QueryInterface(by::IID_IBaseUnknown, &root), by::kOk);
    EXPECT_EQ(w->QueryInterface(IWidget::InterfaceId(), &own), by::kOk);
    EXPECT_EQ(root, own);
    EXPECT_EQ(own, static_cast<by::IBaseUnknown*>(w));
    // Two queries, two references on top of the creator's.
    EXPECT_EQ(w->Release(), 2u);
    EXPECT_EQ(w->Release(), 1u);

    void* untouched = &untouched;
    EXPECT_EQ(w->QueryInterface(by::IID_IClassFactory, &untouched), by::kNoInterface);
    EXPECT_EQ(untouched, &untouched);
    EXPECT_EQ(w->Release(), 0u);
    EXPECT_EQ(g_destroyed, 1);
}

TEST_F(ComponentModel, HolderCountsReferencesAndStaysNullOnAFailedQuery) {
    Widget* w = nullptr;
    ASSERT_EQ(by::CComObject<Widget>::CreateInstance(&w), by::kOk);
    {
        auto held = by::ComPtr<IWidget>::Query(w, IWidget::InterfaceId());
        ASSERT_TRUE(held);
        EXPECT_EQ(held->Size(), 3);
        by::ComPtr<IWidget> copy = held;
        EXPECT_EQ(w->AddRef(), 4u);
        w->Release();
        auto missing = by::ComPtr<by::IClassFactory>::Query(w, by::IID_IClassFactory);
        EXPECT_FALSE(missing);
    }
    EXPECT_EQ(g_destroyed, 0);
    auto adopted = by::ComPtr<IWidget>::Adopt(w);
    adopted.Reset();
    EXPECT_EQ(g_destroyed, 1);
}

TEST_F(ComponentModel, ConcurrentAddRefAndReleaseKeepTheCountExact) {
    Widget* w = nullptr;
    ASSERT_EQ(by::CComObject<Widget>::CreateInstance(&w), by::kOk);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([w] {
            for (int i = 0; i < 10000; ++i) {
                w->AddRef();
                w->Release();
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(g_destroyed, 0);
    EXPECT_EQ(w->Release(), 0u);
    EXPECT_EQ(g_destroyed, 1);
}

}  // namespace
