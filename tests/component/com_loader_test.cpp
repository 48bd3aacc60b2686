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

class ComLoaderTest : public ::testing::Test {
protected:
    qzetest::DebugCapture debug_;
};

TEST_F(ComLoaderTest, LoadsACompleteLibraryMakesObjectsAndReleasesEverything) {
    const std::wstring path = TestPluginPath("qzekit_plugin_complete");
    ProbeLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    EXPECT_TRUE(loader.HasAllExports() && loader.missing.empty());
    EXPECT_EQ(std::wstring(loader.Path()), path);
    // Each line is the text, then the line end in a call of its own.
    const std::string set = "CComLoader->setfuncaddress";
    EXPECT_THAT(debug_.Calls(), ElementsAre("CComLoader->LoadCom", "\n", "IImpModuleBase->Load",
                                            "\n", set, "\n", set, "\n", set, "\n", set, "\n"));
    // The module object is the one live factory-side object.
    EXPECT_EQ(CallCountExport(path, "TestLiveFactories"), 1);

    debug_.Clear();
    void *greeter = nullptr, *out = nullptr;
    ASSERT_EQ(Make(loader, &greeter), by::kOk);
    EXPECT_STREQ(static_cast<qzetest::ITestGreeter*>(greeter)->Greet(), "hello from complete");
    EXPECT_EQ(debug_.Lines(), Lines{"pOFClassFactory->CreateInstance"});
    // The factory's own status comes back, and the object goes again.
    EXPECT_TRUE(Make(loader, &out, qzetest::kGreeterClass, qzetest::kCounterIid) ==
                    by::kNoInterface &&
                out == nullptr);
    // Factories were released again; the object carries one reference.
    EXPECT_EQ(
        CallCountExport(path, "TestLiveFactories") * 10 + CallCountExport(path, "TestLiveObjects"),
        11);
    EXPECT_EQ(static_cast<by::IBaseUnknown*>(greeter)->Release(), 0u);

    // FreeCom and destruction release the module object; our own handle
    // keeps the library loaded to look at it.
    platform::LibraryHandle keep = platform::OpenLibrary(path.c_str());
    loader.FreeCom();
    EXPECT_FALSE(loader.IsLoaded() || loader.ModuleObject());
    EXPECT_EQ(CallCountExport(path, "TestLiveFactories") + CallCountExport(path, "TestLiveObjects"),
              0);
    {
        by::CComLoader second;
        ASSERT_TRUE(second.LoadCom(path.c_str()));
    }
    EXPECT_EQ(CallCountExport(path, "TestLiveFactories"), 0);
    platform::CloseLibrary(keep);
}

// One library per missing export: the walk stops at it, the library stays
// open, and what was found before it stays stored.
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
        if (out) {
            static_cast<by::IBaseUnknown*>(out)->Release();
        }
    }
}

// Loaders without a library make nothing and call nothing.
TEST_F(ComLoaderTest, LoadersWithoutALibraryMakeNothing) {
    const Lines notOpened = {"CComLoader->LoadCom", "IImpModuleBase->Load",
                             "CComLoader->Load fuc fail"};
    const std::wstring tooLong(260, L'a'), longest(259, L'a');  // the longest gets to opening
    const std::wstring noModule = TestPluginPath("qzekit_plugin_null_module");
    const std::pair<const wchar_t*, Lines> cases[] = {
        {nullptr, {"CComLoader->LoadCom", "CComLoader->LoadCom path is null"}},
        {tooLong.c_str(), {"CComLoader->LoadCom", "CComLoader->LoadCom path too long"}},
        {longest.c_str(), notOpened},
        {noModule.c_str(), {}},
    };
    for (const auto& [path, lines] : cases) {
        debug_.Clear();
        ProbeLoader loader;
        EXPECT_FALSE(loader.LoadCom(path));
        EXPECT_FALSE(loader.IsLoaded() || loader.ModuleObject());
        // The library without a module object has all its exports.
        EXPECT_EQ(loader.HasAllExports(), path == noModule.c_str());
        EXPECT_TRUE(path == noModule.c_str() || debug_.Lines() == lines);
        debug_.Clear();
        void* out = nullptr;
        EXPECT_EQ(Make(loader, &out), by::kFail);
        EXPECT_TRUE(out == nullptr && debug_.Calls().empty());
    }
    // An index outside the table is accepted and ignored.
    ProbeLoader fresh;
    EXPECT_EQ(fresh.setfuncaddress(4, &fresh), 1);
    EXPECT_FALSE(fresh.HasAllExports());
}

TEST_F(ComLoaderTest, EachFactoryFailureGivesItsStatusAndReleasesWhatItGot) {
    const struct {
        const char *library, *classId;
        by::Result expected;
        bool reachesFactory;
    } cases[] = {
        {"qzekit_plugin_faulty", qzetest::kGetterFailsClass, by::kFail, false},
        {"qzekit_plugin_faulty", qzetest::kNullFactoryClass, by::kFail, false},
        {"qzekit_plugin_faulty", qzetest::kPlainFactoryClass, by::kFail, false},
        {"qzekit_plugin_faulty", qzetest::kCreateFailsClass, qzetest::kCreateFailsStatus, true},
        {"qzekit_plugin_init_fail", qzetest::kInitFailsClass, qzetest::kInitFailsStatus, true},
    };
    for (const auto& c : cases) {
        const std::wstring path = TestPluginPath(c.library);
        by::CComLoader loader;
        ASSERT_TRUE(loader.LoadCom(path.c_str()));
        debug_.Clear();
        void* out = nullptr;
        EXPECT_EQ(Make(loader, &out, c.classId), c.expected) << c.classId;
        // Only the module object is left, and no object.
        EXPECT_TRUE(out == nullptr &&
                    debug_.HasLine("pOFClassFactory->CreateInstance") == c.reachesFactory &&
                    CallCountExport(path, "TestLiveFactories") == 1 &&
                    CallCountExport(path, "TestLiveObjects") == 0)
            << c.classId;
    }
}

}  // namespace
