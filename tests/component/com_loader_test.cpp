#include "component/com_loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "base/utf_string_conversions.h"
#include "component/support/test_plugins.h"
#include "platform/platform.h"
#include "plugins/test_interfaces.h"

namespace {

namespace platform = qzextensionkit::platform;
using qzetest::DebugCapture;
using qzetest::TestPluginPath;
using ::testing::ElementsAre;

// Sees what the loader stores and which exports it finds missing.
class ProbeLoader : public by::CComLoader {
public:
    int setfuncaddress(int index, void* address) override {
        stored.emplace_back(index, address != nullptr);
        return CComLoader::setfuncaddress(index, address);
    }
    bool Exception(platform::LibraryHandle handle, const char* name) override {
        missing.emplace_back(name);
        return CComLoader::Exception(handle, name);
    }
    bool HasGetter() const { return DllGetClassObject != nullptr; }
    bool HasAllExports() const {
        return DllGetClassObject && DllCanUnloadNow && DllRegisterServer && DllUnregisterServer;
    }

    std::vector<std::pair<int, bool>> stored;
    std::vector<std::string> missing;
};

by::GUID Id(const char* text) {
    return by::ParseGuid(text, true);
}

class ComLoaderTest : public ::testing::Test {
protected:
    void TearDown() override { platform::SetLibraryDirectory(L""); }

    DebugCapture debug_;
};

TEST_F(ComLoaderTest, ExportTableIsTheFourExportsEndedByNull) {
    by::CComLoader loader;
    const by::ModuleFuncEntry* table = loader.GetFuncTable();
    ASSERT_EQ(table, loader.FuncTable());
    std::vector<std::pair<std::string, int>> entries;
    for (int i = 0; i < 5; ++i) {
        entries.emplace_back(table[i].name, table[i].index);
    }
    EXPECT_THAT(
        entries,
        ElementsAre(std::make_pair("DllGetClassObject", 0), std::make_pair("DllCanUnloadNow", 1),
                    std::make_pair("DllRegisterServer", 2),
                    std::make_pair("DllUnregisterServer", 3), std::make_pair("null", 4)));
}

TEST_F(ComLoaderTest, NewLoaderIsClosedAndMakesNothing) {
    ProbeLoader loader;
    EXPECT_FALSE(loader.IsLoaded());
    EXPECT_EQ(loader.ModuleObject(), nullptr);
    void* out = nullptr;
    EXPECT_EQ(loader.CreateInstance(Id(qzetest::kGreeterClass), nullptr, nullptr,
                                    Id(qzetest::kGreeterIid), &out),
              by::kFail);
    EXPECT_EQ(out, nullptr);
    // An index outside the table is accepted and ignored.
    EXPECT_EQ(loader.setfuncaddress(4, &out), 1);
    EXPECT_FALSE(loader.HasGetter());
    EXPECT_THAT(debug_.Lines(), ElementsAre("CComLoader->setfuncaddress"));
}

TEST_F(ComLoaderTest, LoadsACompleteLibraryAndMakesBothClasses) {
    const std::wstring path = TestPluginPath("qzekit_plugin_complete");
    ProbeLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    EXPECT_TRUE(loader.IsLoaded());
    EXPECT_TRUE(loader.HasAllExports());
    EXPECT_NE(loader.ModuleObject(), nullptr);
    EXPECT_EQ(std::wstring(loader.Path()), path);
    EXPECT_TRUE(loader.missing.empty());

    // Each line is the text, then the line end in a call of its own.
    EXPECT_THAT(
        debug_.Calls(),
        ElementsAre("CComLoader->LoadCom", "\n", "IImpModuleBase->Load", "\n",
                    "CComLoader->setfuncaddress", "\n", "CComLoader->setfuncaddress", "\n",
                    "CComLoader->setfuncaddress", "\n", "CComLoader->setfuncaddress", "\n"));
    // The module object is the one live factory-side object.
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), 1);

    debug_.Clear();
    void* out = nullptr;
    ASSERT_EQ(loader.CreateInstance(Id(qzetest::kGreeterClass), nullptr, nullptr,
                                    Id(qzetest::kGreeterIid), &out),
              by::kOk);
    auto* greeter = static_cast<qzetest::ITestGreeter*>(out);
    EXPECT_STREQ(greeter->Greet(), "hello from complete");
    EXPECT_THAT(debug_.Lines(), ElementsAre("pOFClassFactory->CreateInstance"));

    out = nullptr;
    ASSERT_EQ(loader.CreateInstance(Id(qzetest::kCounterClass), nullptr, nullptr,
                                    Id(qzetest::kCounterIid), &out),
              by::kOk);
    auto* counter = static_cast<qzetest::ITestCounter*>(out);
    EXPECT_EQ(counter->Increment(), 1);
    EXPECT_EQ(counter->Increment(), 2);

    // Both factories were released again; the objects carry one reference.
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), 1);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveObjects"), 2);
    EXPECT_EQ(greeter->Release(), 0u);
    EXPECT_EQ(counter->Release(), 0u);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveObjects"), 0);
}

TEST_F(ComLoaderTest, FactoryStatusComesBackUnchanged) {
    const std::wstring path = TestPluginPath("qzekit_plugin_complete");
    by::CComLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    // A greeter doesn't answer the counter's id: the object goes again.
    void* out = nullptr;
    EXPECT_EQ(loader.CreateInstance(Id(qzetest::kGreeterClass), nullptr, nullptr,
                                    Id(qzetest::kCounterIid), &out),
              by::kNoInterface);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveObjects"), 0);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), 1);
}

TEST_F(ComLoaderTest, DestructionAndFreeComReleaseTheModuleObjectBeforeClosing) {
    const std::wstring path = TestPluginPath("qzekit_plugin_complete");
    // A handle of our own keeps the library in the process to look at it.
    platform::LibraryHandle keep = platform::OpenLibrary(path.c_str());
    ASSERT_NE(keep, nullptr);
    {
        by::CComLoader loader;
        ASSERT_TRUE(loader.LoadCom(path.c_str()));
        EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), 1);
    }
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), 0);

    by::CComLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    loader.FreeCom();
    EXPECT_FALSE(loader.IsLoaded());
    EXPECT_EQ(loader.ModuleObject(), nullptr);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), 0);
    platform::CloseLibrary(keep);
}

// One library per missing export: the walk stops at it, the library stays
// open, and what was found before it stays stored.
struct MissingExport {
    const char* library;
    const char* name;
    int index;
};

class MissingExportTest : public ComLoaderTest,
                          public ::testing::WithParamInterface<MissingExport> {};

TEST_P(MissingExportTest, LoadFailsButLeavesTheLibraryOpen) {
    const MissingExport& p = GetParam();
    const std::wstring path = TestPluginPath(p.library);
    ProbeLoader loader;
    EXPECT_FALSE(loader.LoadCom(path.c_str()));

    std::vector<std::pair<int, bool>> expected;
    for (int i = 0; i <= p.index; ++i) {
        expected.emplace_back(i, i != p.index);
    }
    EXPECT_EQ(loader.stored, expected);
    EXPECT_THAT(loader.missing, ElementsAre(p.name));
    EXPECT_TRUE(loader.IsLoaded());
    EXPECT_EQ(loader.ModuleObject(), nullptr);
    EXPECT_EQ(std::wstring(loader.Path()), L"");
    std::vector<std::string> lines = debug_.Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "IImpModuleBase->Exception");
    EXPECT_EQ(lines.back(), "CComLoader->Load fuc fail");

    // Open but incomplete: objects can still be made when the getter was
    // found before the missing export.
    void* out = nullptr;
    by::Result status = loader.CreateInstance(Id(qzetest::kGreeterClass), nullptr, nullptr,
                                              Id(qzetest::kGreeterIid), &out);
    if (p.index == 0) {
        EXPECT_EQ(status, by::kFail);
        EXPECT_EQ(out, nullptr);
    } else {
        ASSERT_EQ(status, by::kOk);
        EXPECT_STREQ(static_cast<qzetest::ITestGreeter*>(out)->Greet(), "hello from complete");
        static_cast<by::IBaseUnknown*>(out)->Release();
    }
}

INSTANTIATE_TEST_SUITE_P(
    EachExport, MissingExportTest,
    ::testing::Values(MissingExport{"qzekit_plugin_no_get_class_object", "DllGetClassObject", 0},
                      MissingExport{"qzekit_plugin_no_can_unload_now", "DllCanUnloadNow", 1},
                      MissingExport{"qzekit_plugin_no_register_server", "DllRegisterServer", 2},
                      MissingExport{"qzekit_plugin_no_unregister_server", "DllUnregisterServer",
                                    3}));

TEST_F(ComLoaderTest, LibraryWithoutModuleObjectIsClosedAgain) {
    ProbeLoader loader;
    EXPECT_FALSE(loader.LoadCom(TestPluginPath("qzekit_plugin_null_module").c_str()));
    EXPECT_TRUE(loader.HasAllExports());
    EXPECT_FALSE(loader.IsLoaded());

    debug_.Clear();
    void* out = nullptr;
    EXPECT_EQ(loader.CreateInstance(Id(qzetest::kGreeterClass), nullptr, nullptr,
                                    Id(qzetest::kGreeterIid), &out),
              by::kFail);
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(debug_.Calls().empty());
}

TEST_F(ComLoaderTest, FilesThatAreNoLibraryFailToOpen) {
    const std::string notLibrary = qzetest::TestPluginDir() + "/not_a_library.so";
    {
        std::ofstream file(notLibrary, std::ios::binary);
        file << "plain text, not a shared library\n";
    }
    for (const std::wstring& path :
         {TestPluginPath("qzekit_plugin_does_not_exist"), base::UTF8ToWide(notLibrary)}) {
        debug_.Clear();
        ProbeLoader loader;
        EXPECT_FALSE(loader.LoadCom(path.c_str()));
        EXPECT_FALSE(loader.IsLoaded());
        EXPECT_TRUE(loader.stored.empty());
        EXPECT_THAT(debug_.Lines(), ElementsAre("CComLoader->LoadCom", "IImpModuleBase->Load",
                                                "CComLoader->Load fuc fail"));
    }
    std::remove(notLibrary.c_str());
}

TEST_F(ComLoaderTest, PathLongerThanTheFieldIsRefusedBeforeOpening) {
    ProbeLoader loader;
    std::wstring longest(259, L'a');
    std::wstring tooLong(260, L'a');

    EXPECT_FALSE(loader.LoadCom(tooLong.c_str()));
    EXPECT_THAT(debug_.Lines(),
                ElementsAre("CComLoader->LoadCom", "CComLoader->LoadCom path too long"));
    EXPECT_FALSE(loader.LoadCom(nullptr));
    EXPECT_TRUE(debug_.HasLine("CComLoader->LoadCom path is null"));

    // 259 characters fit: this one gets as far as opening.
    debug_.Clear();
    EXPECT_FALSE(loader.LoadCom(longest.c_str()));
    EXPECT_THAT(debug_.Lines(), ElementsAre("CComLoader->LoadCom", "IImpModuleBase->Load",
                                            "CComLoader->Load fuc fail"));
}

TEST_F(ComLoaderTest, EachFactoryFailureGivesFailAndReleasesWhatItGot) {
    const std::wstring path = TestPluginPath("qzekit_plugin_faulty");
    by::CComLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    const long baseline = qzetest::CallCountExport(path, "TestLiveFactories");
    ASSERT_EQ(baseline, 1);

    struct Case {
        const char* classId;
        by::Result expected;
        bool reachesFactory;
    };
    const Case cases[] = {
        {qzetest::kGetterFailsClass, by::kFail, false},
        {qzetest::kNullFactoryClass, by::kFail, false},
        {qzetest::kPlainFactoryClass, by::kFail, false},
        {"{00000000-0000-0000-0000-000000000000}", by::kFail, false},
        {qzetest::kCreateFailsClass, qzetest::kCreateFailsStatus, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.classId);
        debug_.Clear();
        void* out = nullptr;
        EXPECT_EQ(
            loader.CreateInstance(Id(c.classId), nullptr, nullptr, Id(qzetest::kGreeterIid), &out),
            c.expected);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(debug_.HasLine("pOFClassFactory->CreateInstance"), c.reachesFactory);
        EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), baseline);
    }
}

TEST_F(ComLoaderTest, FailedInitClassLeavesNoObject) {
    const std::wstring path = TestPluginPath("qzekit_plugin_init_fail");
    by::CComLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    void* out = nullptr;
    EXPECT_EQ(loader.CreateInstance(Id(qzetest::kInitFailsClass), nullptr, nullptr,
                                    Id(qzetest::kGreeterIid), &out),
              qzetest::kInitFailsStatus);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestObjectsBuilt"), 1);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveObjects"), 0);
    EXPECT_EQ(qzetest::CallCountExport(path, "TestLiveFactories"), 1);
}

TEST_F(ComLoaderTest, DependencyInTheBundleBinNeedsTheSearchDirectory) {
    const std::wstring path =
        qzetest::TestPluginPathIn(qzetest::TestBundleDir(), "qzekit_plugin_dependent");
    // Without the directory the dependency can't be found. This runs first:
    // once loaded, the dependency would be reused by name.
    {
        ASSERT_EQ(platform::SetLibraryDirectory(L""), 1);
        by::CComLoader loader;
        EXPECT_FALSE(loader.LoadCom(path.c_str()));
        EXPECT_FALSE(loader.IsLoaded());
        EXPECT_TRUE(debug_.HasLine("CComLoader->Load fuc fail"));
    }
    ASSERT_EQ(platform::SetLibraryDirectory(qzetest::TestBundleBinDir().c_str()), 1);
    by::CComLoader loader;
    ASSERT_TRUE(loader.LoadCom(path.c_str()));
    void* out = nullptr;
    ASSERT_EQ(loader.CreateInstance(Id(qzetest::kDependentClass), nullptr, nullptr,
                                    Id(qzetest::kGreeterIid), &out),
              by::kOk);
    auto* greeter = static_cast<qzetest::ITestGreeter*>(out);
    EXPECT_STREQ(greeter->Greet(), "hello from the bundle's bin");
    greeter->Release();
}

}  // namespace
