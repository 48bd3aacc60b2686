#include "component/com_loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "component/support/test_plugins.h"
#include "platform/platform.h"
#include "plugins/test_interfaces.h"

namespace {

namespace platform = qzextensionkit::platform;
using qzetest::CallCountExport;
using qzetest::TestPluginPath;
using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

// Sees what the loader stores and which exports it finds missing.
class ProbeLoader : public by::CComLoader {
public:
    int setfuncaddress(int index, void* address) override {
        stored += std::to_string(index) + (address ? "+" : "-");
        return CComLoader::setfuncaddress(index, address);
    }
    bool Exception(platform::LibraryHandle handle, const char* name) override {
        missing.emplace_back(name);
        return CComLoader::Exception(handle, name);
    }
    bool HasAllExports() const {
        return DllGetClassObject && DllCanUnloadNow && DllRegisterServer && DllUnregisterServer;
    }

    std::string stored;  // "0+1-": index, and whether an address came
    Lines missing;
};

by::Result Make(by::CComLoader& loader, void** out, const char* classId = qzetest::kGreeterClass,
                const char* iid = qzetest::kGreeterIid) {
    *out = nullptr;
    return loader.CreateInstance(by::ParseGuid(classId, true), nullptr, nullptr,
                                 by::ParseGuid(iid, true), out);
}

// Live factory-side objects, then live objects, of the library at `path`.
long Live(const std::wstring& path) {
    return CallCountExport(path, "TestLiveFactories") * 10 +
           CallCountExport(path, "TestLiveObjects");
}

class ComLoaderTest : public ::testing::Test {
protected:
    qzetest::DebugCapture debug_;
};

TEST_F(ComLoaderTest, LoadsACompleteLibraryMakesObjectsAndReleasesEverything) {
    const std::wstring path = TestPluginPath("qzekit_plugin_complete");
    ProbeLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    EXPECT_TRUE(loader.HasAllExports() && loader.missing.empty() && loader.Path() == path);
    // Each line is the text, then the line end in a call of its own.
    const std::string set = "CComLoader->setfuncaddress";
    EXPECT_THAT(debug_.Calls(), ElementsAre("CComLoader->LoadCom", "\n", "IImpModuleBase->Load",
                                            "\n", set, "\n", set, "\n", set, "\n", set, "\n"));
    // The module object is the one live factory-side object.
    EXPECT_EQ(Live(path), 10);

    debug_.Clear();
    void *greeter = nullptr, *out = nullptr;
    ASSERT_EQ(Make(loader, &greeter), by::kOk);
    EXPECT_STREQ(static_cast<qzetest::ITestGreeter*>(greeter)->Greet(), "hello from complete");
    EXPECT_EQ(debug_.Lines(), Lines{"pOFClassFactory->CreateInstance"});
    // The factory's own status comes back, and its factories are released.
    EXPECT_TRUE(Make(loader, &out, qzetest::kGreeterClass, qzetest::kCounterIid) ==
                    by::kNoInterface &&
                out == nullptr && Live(path) == 11);
    EXPECT_EQ(static_cast<by::IBaseUnknown*>(greeter)->Release(), 0u);

    // FreeCom and destruction release the module object; our own handle
    // keeps the library loaded to look at it.
    platform::LibraryHandle keep = platform::OpenLibrary(path.c_str());
    loader.FreeCom();
    EXPECT_TRUE(!loader.IsLoaded() && !loader.ModuleObject() && Live(path) == 0);
    {
        by::CComLoader second;
        ASSERT_TRUE(second.LoadCom(path.c_str()));
    }
    EXPECT_EQ(Live(path), 0);
    platform::CloseLibrary(keep);
}

// The walk stops at the missing export; the library stays open.
TEST_F(ComLoaderTest, AMissingExportFailsTheLoadButLeavesTheLibraryOpen) {
    const struct {
        const char *name, *library, *stored;
    } cases[] = {
        {"DllGetClassObject", "get_class_object", "0-"},
        {"DllCanUnloadNow", "can_unload_now", "0+1-"},
        {"DllRegisterServer", "register_server", "0+1+2-"},
        {"DllUnregisterServer", "unregister_server", "0+1+2+3-"},
    };
    for (const auto& c : cases) {
        debug_.Clear();
        ProbeLoader loader;
        EXPECT_FALSE(
            loader.LoadCom(TestPluginPath(std::string("qzekit_plugin_no_") + c.library).c_str()));
        EXPECT_EQ(loader.stored, c.stored);
        EXPECT_TRUE(loader.missing == Lines{c.name} && loader.IsLoaded() &&
                    !loader.ModuleObject() && std::wstring(loader.Path()).empty());
        const Lines lines = debug_.Lines();
        EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
                  (Lines{"IImpModuleBase->Exception", "CComLoader->Load fuc fail"}));
        // Objects can still be made when the getter was found.
        void* out = nullptr;
        EXPECT_EQ(Make(loader, &out), c.stored[1] == '-' ? by::kFail : by::kOk);
        EXPECT_TRUE(!out || static_cast<by::IBaseUnknown*>(out)->Release() == 0u);
    }
}

// Loaders without a library make nothing and call nothing.
TEST_F(ComLoaderTest, LoadersWithoutALibraryMakeNothing) {
    const std::wstring noModule = TestPluginPath("qzekit_plugin_null_module");
    for (const wchar_t* path : {static_cast<const wchar_t*>(nullptr), noModule.c_str()}) {
        debug_.Clear();
        ProbeLoader loader;
        EXPECT_FALSE(loader.LoadCom(path) || loader.IsLoaded() || loader.ModuleObject());
        // The library without a module object has all its exports.
        EXPECT_EQ(loader.HasAllExports(), path == noModule.c_str());
        EXPECT_TRUE(path || debug_.Lines() ==
                                (Lines{"CComLoader->LoadCom", "CComLoader->LoadCom path is null"}));
        debug_.Clear();
        void* out = nullptr;
        EXPECT_TRUE(Make(loader, &out) == by::kFail && out == nullptr && debug_.Calls().empty());
    }
}

// A refusal before the factory's call gives E_FAIL.
TEST_F(ComLoaderTest, EachFactoryFailureGivesItsStatusAndReleasesWhatItGot) {
    const std::wstring path = TestPluginPath("qzekit_plugin_faulty");
    for (const char* classId : {qzetest::kGetterFailsClass, qzetest::kNullFactoryClass,
                                qzetest::kPlainFactoryClass, qzetest::kCreateFailsClass}) {
        by::CComLoader loader;
        ASSERT_TRUE(loader.LoadCom(path.c_str()));
        debug_.Clear();
        void* out = nullptr;
        const by::Result status = Make(loader, &out, classId);
        const bool called = classId == qzetest::kCreateFailsClass;
        EXPECT_EQ(status, called ? qzetest::kCreateFailsStatus : by::kFail) << classId;
        // Only the module object is left, and no object.
        EXPECT_TRUE(out == nullptr &&
                    debug_.Lines() ==
                        (called ? Lines{"pOFClassFactory->CreateInstance"} : Lines{}) &&
                    Live(path) == 10)
            << classId;
    }
}

}  // namespace
