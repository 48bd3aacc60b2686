#include "component/unknown.h"

#include <gtest/gtest.h>

namespace {

class IWidget : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{A1B2C3D4-0000-4000-8000-000000000001}")
};

int g_alive = 0;
by::Result g_initResult = by::kOk;

class Widget : public IWidget, public by::CUnknownImp {
public:
    Widget() { ++g_alive; }
    ~Widget() override { --g_alive; }
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return g_initResult; }
};

TEST(ComponentModel, QueriesAndHoldersCountReferencesAndLastReleaseDestroysOnce) {
    Widget* w = nullptr;
    ASSERT_EQ(by::CComObject<Widget>::CreateInstance(&w), by::kOk);
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
        EXPECT_TRUE(copy.Get() == w &&
                    !by::ComPtr<by::IClassFactory>::Query(w, by::IID_IClassFactory));
        // The creator's, two queries', two holders' and this one.
        EXPECT_EQ(w->AddRef(), 6u);
    }
    EXPECT_TRUE(w->Release() == 3u && w->Release() == 2u && w->Release() == 1u);
    EXPECT_EQ(g_alive, 1);
    by::ComPtr<IWidget>::Adopt(w).Reset();
    EXPECT_EQ(g_alive, 0);

    // When init_class fails its status comes back and the object goes at once.
    EXPECT_EQ(by::CComObject<Widget>::CreateInstance(nullptr), by::kPointer);
    g_initResult = static_cast<by::Result>(0x80070057);
    w = reinterpret_cast<Widget*>(0x1);
    EXPECT_TRUE(by::CComObject<Widget>::CreateInstance(&w) == g_initResult && w == nullptr &&
                g_alive == 0);
}

}  // namespace
