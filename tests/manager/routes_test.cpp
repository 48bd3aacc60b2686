#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "bundle/support/bundle_dirs.h"
#include "manager/extension_object.h"
#include "manager/support/kit_host.h"
#include "plugins/probe_extension.h"
#include "plugins/test_interfaces.h"

namespace qzetest {
namespace {

using ::testing::ElementsAre;

class RoutesTest : public KitHost {};

TEST_F(RoutesTest, OneRequestFromLoadToTheHostsPointer) {
    AddBundle("b1", Point("p.one", kProbeIid,
                          {{"e1", kProbeClass, false,
                            R"("unifiedId": "u1", "payloads": {"title": "T", "color": "C"},
                               "constraints": [{"key": "os", "value": ["win", "mac"]}],
                               "settingMap": {"modalPosition": "center", "modalSize": "400x300",
                                              "host": "https://h", "uri": "/x",
                                              "openType": "modal"})"}}));
    const long loads = QzeTestCounter(kLoadsCounter);
    ASSERT_TRUE(Load());
    EXPECT_EQ(QzeTestCounter(kLoadsCounter), loads + 1);

    log->Clear();
    void* object = &object;
    ASSERT_TRUE(kit()->GetExtension("p.one", &object));
    ASSERT_NE(object, nullptr);
    const std::string cls = kProbeClass;
    EXPECT_THAT(
        Lines(),
        ElementsAre(
            "extension manager impl - get extension by extension point id:p.one",
            "extension manager impl - get extension list by extension point id:p.one",
            "configuration manager impl - get extension infos by extension point id:p.one, "
            "extension infos is founded, total(1)",
            "object container impl - class id:" + cls + ", class is not registered",
            "Bundle Loader - key:" + Key("b1") + ", com loader is exist",
            "Bundle Loader - key:" + Key("b1") + ", get com loader success",
            "extension manager impl - create extension instance from dynamic library, class id:" +
                cls + ", iid:" + kProbeIid + ", singleton:false",
            "object container impl - create object instance by library, iid:" +
                std::string(kBaseExtensionIid) + ", class id:" + cls + ", is singleton:false",
            "object container impl - com loader create instance success",
            "object container impl - create object instance success",
            "extension manager impl - create extension instance from dynamic library success",
            "extension manager impl - get extension list by extension point id success",
            "extension manager impl - get extension list first item",
            "extension manager impl - get extension by extension point id success"));
    ITestExtensionProbe* probe = Probe(object);
    EXPECT_EQ(std::string(probe->Seen()),
              "ext=e1;unified=u1;res=" + RootText("b1") + "\\resources;bin=" + RootText("b1") +
                  "\\bin;launch=center,400x300,https://h/x,modal;title=T;color=C;os=win|mac");
    EXPECT_EQ(probe->Initializations(), 1);
    // The host's is the only reference.
    EXPECT_EQ(RefCount(probe), 1u);
    EXPECT_EQ(probe->Release(), 0u);
    EXPECT_TRUE(NewObjects().empty());
}

// The manifest members that every row of the route comparison carries.
constexpr const char kFullRecord[] =
    R"("unifiedId": "u", "payloads": {"title": "T"},
       "settingMap": {"modalPosition": "pos", "modalSize": "size", "host": "https://h",
                      "uri": "/x", "openType": "tab"})";
constexpr const char kRegisteredClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D01}";

// A host creator that builds probe objects and notes what it was asked.
qzextensionkit::ExtensionCreator ProbeCreator(std::vector<std::string>* asked) {
    return [asked](const std::string& iid, const std::string& classId, void** out) {
        asked->push_back(iid + " " + classId);
        return qzextensionkit::CreateExtensionObject<ProbeExtension, ITestExtensionProbe>(
                   by::ParseGuid(iid.c_str(), true), out) == 0;
    };
}

TEST_F(RoutesTest, TheTwoRoutesDifferWhereTheyShould) {
    // The same record once with a library and once through a creator the
    // host registered. The registry route sets no launch parameters and no
    // ids, and keeps one reference of its own on the object.
    AddBundle("lib", Point("p.lib", kProbeIid, {{"e.lib", kProbeClass, false, kFullRecord}}));
    AddBundle("reg", Point("p.reg", kProbeIid, {{"e.reg", kRegisteredClass, false, kFullRecord}}),
              "", nullptr);
    std::vector<std::string> asked;
    ASSERT_TRUE(kit()->RegisterExtension(ProbeCreator(&asked), kRegisteredClass, false));
    // A class both registered and in a library is built from the library.
    ASSERT_TRUE(kit()->RegisterExtension(ProbeCreator(&asked), kProbeClass, false));
    ASSERT_TRUE(Load());

    struct Row {
        const char* point;
        const char* folder;
        std::string routeLine;
        std::string seenIdsAndLaunch;
        uint32_t references;
        std::string creatorAsked;
    } const rows[] = {
        {"p.lib", "lib",
         "create extension instance from dynamic library, class id:" + std::string(kProbeClass) +
             ", iid:" + kProbeIid + ", singleton:false",
         "ext=e.lib;unified=u;launch=pos,size,https://h/x,tab", 1, ""},
        {"p.reg", "reg",
         "create extension instance from registry, class id:" + std::string(kRegisteredClass) +
             ", iid:" + kProbeIid,
         "ext=;unified=;launch=,,,", 2, std::string(kProbeIid) + " " + kRegisteredClass},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.point);
        asked.clear();
        log->Clear();
        void* object = nullptr;
        ASSERT_TRUE(kit()->GetExtension(row.point, &object));
        EXPECT_THAT(ManagerLines(), ::testing::Contains(row.routeLine));
        EXPECT_EQ(asked, row.creatorAsked.empty() ? std::vector<std::string>{}
                                                  : std::vector<std::string>{row.creatorAsked});
        std::string seen = Probe(object)->Seen();
        const std::string root = RootText(row.folder);
        std::string launch = seen.substr(seen.find("launch="));
        launch = launch.substr(0, launch.find(';'));
        EXPECT_EQ(seen.substr(0, seen.find(";res=")) + ";" + launch, row.seenIdsAndLaunch);
        EXPECT_NE(seen.find(";res=" + root + "\\resources;bin=" + root + "\\bin;"),
                  std::string::npos)
            << seen;
        EXPECT_NE(seen.find(";title=T;"), std::string::npos) << seen;
        EXPECT_EQ(RefCount(Probe(object)), row.references);
        for (uint32_t i = 0; i < row.references; ++i) {
            Probe(object)->Release();
        }
    }
    EXPECT_TRUE(NewObjects().empty());
    EXPECT_TRUE(kit()->unRegisterExtension(kRegisteredClass));
    EXPECT_TRUE(kit()->unRegisterExtension(kProbeClass));
}

// Host classes for the registry rows that fail: one that is no extension
// at all, and an extension that answers no interface of its point.
class HostGreeter : public ITestGreeter, public by::CUnknownImp {
public:
    HostGreeter() { QzeTestTrackObject(this, 1); }
    ~HostGreeter() override { QzeTestTrackObject(this, 0); }
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    const char* Greet() override { return "hello"; }
};

template <class T>
qzextensionkit::ExtensionCreator BareCreator() {
    return [](const std::string&, const std::string&, void** out) {
        T* object = nullptr;
        by::CComObject<T>::CreateInstance(&object);
        *out = static_cast<by::IBaseUnknown*>(object);
        return object != nullptr;
    };
}

TEST_F(RoutesTest, EachBadRecordFailsWithItsLineAndTheNextRequestWorks) {
    const std::string cls = kProbeClass;
    const std::string greeterClass = kGreeterClass;
    const std::string regNoBase = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D11}";
    const std::string regNoTarget = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D12}";
    const std::string regFails = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D13}";
    const std::string unknown = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D14}";
    const std::string missingInLibrary = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1D15}";
    AddBundle("good", Point("p.good", kProbeIid, {{"good", cls}, {"noclass", missingInLibrary}}) +
                          ", " + Point("p.noiid", "", {{"noiid", regFails}}) + ", " +
                          Point("p.nocls", kProbeIid, {{"nocls", ""}}) + ", " +
                          Point("p.plain", kProbeIid, {{"notarget", kPlainExtensionClass}}));
    AddBundle("gone", Point("p.gone", kProbeIid, {{"noroot", cls}}), "", "");
    AddBundle("nofile", Point("p.nofile", kProbeIid, {{"nofile", cls}}), "", "");
    AddBundle("late", Point("p.late", kProbeIid, {{"unloaded", cls}}), "", "");
    AddBundle("greeter", Point("p.greeter", kGreeterIid, {{"nobase", greeterClass}}), "",
              "qzekit_plugin_complete");
    AddBundle("reg",
              Point("p.reg", kProbeIid,
                    {{"unregistered", unknown},
                     {"creatorfails", regFails},
                     {"regnobase", regNoBase},
                     {"regnotarget", regNoTarget}}),
              "", nullptr);
    ASSERT_TRUE(kit()->RegisterExtension(
        [](const std::string&, const std::string&, void**) { return false; }, regFails, false));
    ASSERT_TRUE(kit()->RegisterExtension(BareCreator<HostGreeter>(), regNoBase, false));
    ASSERT_TRUE(kit()->RegisterExtension(BareCreator<PlainExtension>(), regNoTarget, false));
    ASSERT_TRUE(Load());
    // After the load: one root goes, one library arrives too late.
    std::filesystem::remove_all(install.root() / "extensions" / "gone");
    std::filesystem::copy_file(BuiltPlugin("qzekit_plugin_extension"), LibraryFile("late"));

    const std::string fromLibrary = "create extension instance from dynamic library";
    const std::string libraryLine =
        fromLibrary + ", class id:" + cls + ", iid:" + kProbeIid + ", singleton:false";
    const std::string fromRegistry = "create extension instance from registry";
    auto registryLine = [&](const std::string& classId) {
        return fromRegistry + ", class id:" + classId + ", iid:" + kProbeIid;
    };
    struct Row {
        const char* id;
        // The manager's lines between the request's first and last.
        std::vector<std::string> lines;
        // Whether the container's empty-class-id line comes first.
        bool emptyClassIdLine;
    } const rows[] = {
        {"noiid", {"create extension instance failed, because of iid empty"}, false},
        {"nocls", {"create extension instance failed, because of class Id empty"}, true},
        {"noroot", {fromLibrary + " failed, because of root path not exist"}, false},
        {"nofile",
         {fromLibrary + " failed, because of library file path not exist or empty"},
         false},
        {"unloaded",
         {libraryLine, fromLibrary + " failed, because of create object instance failed"},
         false},
        {"noclass",
         {fromLibrary + ", class id:" + missingInLibrary + ", iid:" + kProbeIid +
              ", singleton:false",
          fromLibrary + " failed, because of create object instance failed"},
         false},
        // The factory itself is asked for the base interface.
        {"nobase",
         {fromLibrary + ", class id:" + greeterClass + ", iid:" + kGreeterIid + ", singleton:false",
          fromLibrary + " failed, because of create object instance failed"},
         false},
        {"notarget",
         {fromLibrary + ", class id:" + kPlainExtensionClass + ", iid:" + kProbeIid +
              ", singleton:false",
          fromLibrary + " failed, because of query target interface failed"},
         false},
        {"unregistered", {"create extension instance failed"}, false},
        {"creatorfails",
         {registryLine(regFails),
          fromRegistry + " failed, because of create object instance failed"},
         false},
        {"regnobase",
         {registryLine(regNoBase),
          fromRegistry + " failed, because of query base interface failed"},
         false},
        {"regnotarget",
         {registryLine(regNoTarget),
          fromRegistry + " failed, because of query target interface failed"},
         false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.id);
        log->Clear();
        void* object = &object;
        EXPECT_FALSE(kit()->GetExtensionById(row.id, &object));
        EXPECT_EQ(object, nullptr);
        std::vector<std::string> want{"get extension by extension id:" + std::string(row.id)};
        want.insert(want.end(), row.lines.begin(), row.lines.end());
        want.push_back(
            "get extension by extension id failed, because of create extension instance failed");
        EXPECT_EQ(ManagerLines(), want);
        EXPECT_EQ(Lines()[2] ==
                      "object container impl - query class is registered failed, "
                      "because of class id is empty",
                  row.emptyClassIdLine);
        // The registry route keeps its reference on the object it could not
        // hand out; the host can't reach it, so the test gives it back.
        for (by::IBaseUnknown* left : NewObjects()) {
            left->Release();
        }
        EXPECT_TRUE(NewObjects().empty());

        object = nullptr;
        ASSERT_TRUE(kit()->GetExtensionById("good", &object));
        EXPECT_EQ(Probe(object)->Release(), 0u);
    }
    for (const std::string& registered : {regFails, regNoBase, regNoTarget}) {
        EXPECT_TRUE(kit()->unRegisterExtension(registered));
    }
}

}  // namespace
}  // namespace qzetest
