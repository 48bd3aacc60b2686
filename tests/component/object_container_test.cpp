#include "component/object_container.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "common/capture_logger.h"
#include "component/support/test_plugins.h"
#include "plugins/test_interfaces.h"

namespace {

using qzextensionkit::QZEObjectContainer;
using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

const std::string kIid = "{0B7E2C44-1F3A-4D59-8E60-7A1B2C3D4E01}";
const std::string kClass = "{0B7E2C44-1F3A-4D59-8E60-7A1B2C3D4E02}";

// Counts references only, so the container's share can be read any time.
struct Object : by::IBaseUnknown {
    by::Result QueryInterface(const by::GUID& iid, void** out) override {
        const bool ok = answersRoot && by::IsEqualId(iid, by::IID_IBaseUnknown);
        *out = ok ? (AddRef(), this) : *out;
        return ok ? by::kOk : by::kNoInterface;
    }
    uint32_t AddRef() override { return ++refs; }
    uint32_t Release() override { return --refs; }
    uint32_t refs = 1;  // the creator's, handed to the caller
    bool answersRoot = true;
};

const auto Line = [](const std::string& text) {
    return "[QZExtensionKit] object container impl - " + text;
};
const auto ClassLine = [](const std::string& text, const std::string& id = kClass) {
    return Line("class id:" + id + ", " + text);
};

class ObjectContainerTest : public ::testing::Test {
protected:
    auto Objects() {
        return [this](const std::string&, const std::string&, void** out) {
            *out = static_cast<by::IBaseUnknown*>(&objects_[calls_++]);
            return true;
        };
    }
    void* Create() {
        void* out = nullptr;
        EXPECT_TRUE(container_.CreateObjectInstanceByCreator(kIid, kClass, &out));
        return out;
    }
    Lines Tail(long n) {
        const Lines all = log_->Texts();
        return Lines(all.end() - n, all.end());
    }

    std::shared_ptr<qzetest::CapturedLines> log_ = qzetest::CaptureLog();
    qzetest::DebugCapture debug_;  // keeps the loader's lines out of the output
    // Before the container: what it keeps must outlive it.
    by::CComLoader loader_;
    Object objects_[4];
    std::atomic<int> calls_{0};
    QZEObjectContainer container_;
};

TEST_F(ObjectContainerTest, CreatorObjectsAreNewEachTimeUnlessSingletonAndRefusalsHaveTheirLines) {
    ASSERT_TRUE(container_.Register(Objects(), kClass, true));
    EXPECT_EQ(Create(), &objects_[0]);
    // A fresh singleton ends without the success line.
    EXPECT_THAT(Tail(2), ElementsAre(ClassLine("get singleton object failed, because of object "
                                               "didn't founded"),
                                     ClassLine("set singleton object success")));
    EXPECT_TRUE(Create() == &objects_[0] &&
                objects_[0].refs == 2u);  // the caller's and the table's
    EXPECT_THAT(Tail(2), ElementsAre(ClassLine("get singleton object success"),
                                     Line("create object instance by creator success")));
    ASSERT_TRUE(container_.UnRegister(kClass));
    EXPECT_TRUE(Tail(1)[0] == ClassLine("unregister success") && objects_[0].refs == 1u);
    // A second registration keeps the first creator and flag.
    log_->Clear();
    ASSERT_TRUE(container_.Register(Objects(), kClass, false));
    EXPECT_TRUE(container_.Register([](auto&&...) { return false; }, kClass, true));
    EXPECT_EQ(Create(), &objects_[1]);
    EXPECT_THAT(
        log_->Texts(),
        ElementsAre(ClassLine("class is not registered"),
                    ClassLine("is singletion;false, register success"),
                    ClassLine("class is registered"), ClassLine("class is registered"),
                    ClassLine("class is registered"), Line("get object register info success"),
                    Line("create object instance by creator, iid:" + kIid + ", class id:" + kClass +
                         ", singleton:false"),
                    Line("create object instance by creator success")));
    EXPECT_TRUE(Create() == &objects_[2] && objects_[1].refs == 1u);
    // Class ids are compared as text, case included.
    const std::string lower = "{0b7e2c44-1f3a-4d59-8e60-7a1b2c3d4e02}";
    void* out = nullptr;
    log_->Clear();
    EXPECT_FALSE(container_.UnRegister(lower) ||
                 container_.CreateObjectInstanceByLibrary(kIid, "", false, nullptr, &out) || out);
    EXPECT_THAT(
        log_->Texts(),
        ElementsAre(ClassLine("unregister failed, because of not found register info", lower),
                    Line("create object instance failed by library, because of class id is "
                         "empty")));
    // An object that fails the root query is kept as a null entry.
    objects_[3].answersRoot = false;
    ASSERT_TRUE(container_.UnRegister(kClass) && container_.Register(Objects(), kClass, true));
    EXPECT_TRUE(Create() == &objects_[3] && Create() == nullptr && objects_[3].refs == 1u);
}

// No lock is held while the creator runs: a request from inside it stores first.
TEST_F(ObjectContainerTest, ASingletonStoredWhileTheCreatorRanIsKept) {
    void* inner = nullptr;
    ASSERT_TRUE(container_.Register(
        [&](const std::string& iid, const std::string& id, void** out) {
            const bool first = calls_ == 0, made = Objects()(iid, id, out);
            return first ? (inner = Create(), made) : made;
        },
        kClass, true));
    // Both stores reported success; the table kept the first stored.
    EXPECT_TRUE(Create() == &objects_[0] && inner == &objects_[1] && Create() == &objects_[1]);
    EXPECT_EQ(objects_[1].refs * 10 + objects_[0].refs, 21u);
}

TEST_F(ObjectContainerTest, LibraryObjectsAreNewEachTimeUnlessSingletonAndFailuresReportFalse) {
    const std::wstring completePath = qzetest::TestPluginPath("qzekit_plugin_complete");
    ASSERT_TRUE(loader_.LoadCom(completePath.c_str()));
    log_->Clear();
    const std::string iid = qzetest::kGreeterIid, id = qzetest::kGreeterClass;
    const std::string start = "create object instance by library, iid:" + iid + ", class id:" + id;
    auto make = [&](bool singleton) {
        void* out = nullptr;
        EXPECT_TRUE(container_.CreateObjectInstanceByLibrary(iid, id, singleton, &loader_, &out));
        return static_cast<by::IBaseUnknown*>(out);
    };
    by::IBaseUnknown* a = make(false);
    EXPECT_THAT(log_->Texts(), ElementsAre(Line(start + ", is singleton:false"),
                                           Line("com loader create instance success"),
                                           Line("create object instance success")));
    by::IBaseUnknown* b = make(false);
    // Each carries the caller's reference only.
    EXPECT_TRUE(a != b && a->Release() == 0u && b->Release() == 0u);
    a = make(true);
    EXPECT_EQ(make(true), a);
    EXPECT_THAT(Tail(3), ElementsAre(Line(start + ", is singleton:true"),
                                     ClassLine("get singleton object success", id),
                                     Line("create object instance success")));
    // Caller and table; the hit added nothing.
    EXPECT_TRUE(a->Release() == 1u &&
                qzetest::CallCountExport(completePath, "TestLiveObjects") == 1);
    for (by::CComLoader* with : {static_cast<by::CComLoader*>(nullptr), &loader_}) {
        void* out = nullptr;
        EXPECT_FALSE(container_.CreateObjectInstanceByLibrary(iid, kClass, false, with, &out) ||
                     out);
        EXPECT_EQ(Tail(1)[0], Line("create object instance failed, because of com loader create "
                                   "instance failed"));
    }
}

}  // namespace
