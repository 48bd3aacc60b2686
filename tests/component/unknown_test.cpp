#include "component/unknown.h"

#include <gtest/gtest.h>

namespace {

class IWidget : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{A1B2C3D4-0000-4000-8000-000000000001}")
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
};

Widget* NewWidget(by::Result initResult = 0) {
    g_alive = g_destroyed = 0;
    g_initResult = initResult;
    Widget* w = reinterpret_cast<Widget*>(0x1);
    EXPECT_EQ(by::CComObject<Widget>::CreateInstance(&w), initResult);
    return w;
}

TEST(ComponentModel, QueriesAndHoldersCountReferencesAndLastReleaseDestroysOnce) {
    Widget* w = NewWidget();
    ASSERT_NE(w, nullptr);
    void *root = nullptr, *own = nullptr, *untouched = &untouched;
    EXPECT_TRUE(w->QueryInterface(by::IID_IBaseUnknown, &root) == by::kOk &&
                w->QueryInterface(IWidget::InterfaceId(), &own) == by::kOk && root == own &&
                own == static_cast<by::IBaseUnknown*>(w));
    // Left alone on failure.
    EXPECT_TRUE(w->QueryInterface(by::IID_IClassFactory, &untouched) == by::kNoInterface &&
                untouched == &untouched);
    {
        auto held = by::ComPtr<IWidget>::Query(w, IWidget::InterfaceId());
        by::ComPtr<IWidget> copy = held;
        EXPECT_EQ(copy.Get(), w);
        EXPECT_FALSE(by::ComPtr<by::IClassFactory>::Query(w, by::IID_IClassFactory));
        // The creator's, two queries', two holders' and this one.
        EXPECT_EQ(w->AddRef(), 6u);
    }
    for (uint32_t left : {3u, 2u, 1u}) {
        EXPECT_EQ(w->Release(), left);
    }
    EXPECT_EQ(g_destroyed, 0);
    by::ComPtr<IWidget>::Adopt(w).Reset();
    EXPECT_EQ(g_destroyed + g_alive, 1);

    // When init_class fails its status comes back and the object goes at once.
    EXPECT_EQ(by::CComObject<Widget>::CreateInstance(nullptr), by::kPointer);
    EXPECT_EQ(NewWidget(static_cast<by::Result>(0x80070057)), nullptr);
    EXPECT_EQ(g_destroyed + g_alive, 1);
}

}  // namespace
