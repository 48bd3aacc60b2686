#include "bundle/base_bundle.h"

#include <gtest/gtest.h>

#include <new>

namespace qzextensionkit {
namespace {

class Plain : public QZEBaseBundle {
public:
    int Count() const { return m_refCount.load(); }
};

TEST(BaseBundle, AnEntryObjectHasItsOwnStableContextAndAnswersTheBundleId) {
    Plain* a = nullptr;
    Plain* b = nullptr;
    ASSERT_EQ(by::CComObject<Plain>::CreateInstance(&a), 0);
    ASSERT_EQ(by::CComObject<Plain>::CreateInstance(&b), 0);
    QZEBundleContext* context = a->GetContext();
    ASSERT_NE(context, nullptr);
    a->Initialize();  // the base's does nothing
    EXPECT_EQ(a->GetContext(), context);
    EXPECT_NE(b->GetContext(), context);
    EXPECT_EQ(a->init_class(nullptr, nullptr), 0);
    EXPECT_EQ(a->init_class(a, b), 0);

    void* bundle = nullptr;
    ASSERT_EQ(a->QueryInterface(by::IID_IQZEBundle, &bundle), 0);
    EXPECT_TRUE(by::IsEqualId(IQZEBundle::InterfaceId(), by::IID_IQZEBundle));
    EXPECT_EQ(static_cast<IQZEBundle*>(bundle)->GetContext(), context);
    EXPECT_EQ(a->Release(), 1u);
    EXPECT_EQ(a->Release(), 0u);
    EXPECT_EQ(b->Release(), 0u);
}

TEST(BaseBundle, CopiesTakeTheCountAndShareTheContext) {
    using Object = by::CComObject<Plain>;
    Plain* original = nullptr;
    ASSERT_EQ(Object::CreateInstance(&original), 0);
    original->AddRef();
    // Each copy would delete the shared context: copies are built in
    // storage that is never destroyed.
    alignas(Object) unsigned char storage[2][sizeof(Object)];
    Object* copy = new (storage[0]) Object(*static_cast<Object*>(original));
    EXPECT_EQ(copy->GetContext(), original->GetContext());
    EXPECT_EQ(copy->Count(), 2);

    Object* assigned = new (storage[1]) Object();
    QZEBundleContext* earlier = assigned->GetContext();
    *assigned = *static_cast<Object*>(original);
    EXPECT_EQ(assigned->GetContext(), original->GetContext());
    EXPECT_EQ(assigned->Count(), 2);
    // Still ours to delete: assignment left it alone.
    delete earlier;
    EXPECT_EQ(original->Release(), 1u);
    EXPECT_EQ(original->Release(), 0u);
}

}  // namespace
}  // namespace qzextensionkit
