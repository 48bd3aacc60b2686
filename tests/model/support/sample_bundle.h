#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <string>

#include "base/files/file_path.h"
#include "base/utf_string_conversions.h"
#include "bundle/support/bundle_dirs.h"
#include "common/capture_logger.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_point.h"
#include "model/manifest.h"
#include "model/setting_map.h"

namespace qzetest {

// One line per record: id|version|clsid|singleton|payloads|constraints|
// unifiedId|modalPosition,modalSize,url,openType,host,uri.
inline std::string Describe(const qzextensionkit::Extension& record) {
    std::string text = record.GetId() + "|" + record.GetVersion() + "|" + record.GetClsid() +
                       (record.IsSingleton() ? "|1|" : "|0|");
    for (auto& payload : record.GetPayloads()) {
        text += payload.first + "=" + payload.second + ";";
    }
    text += "|";
    for (auto& constraint : record.GetConstraints()) {
        text += constraint.first + ":";
        for (auto& value : constraint.second) {
            text += value + ",";
        }
        text += ";";
    }
    qzextensionkit::SettingMap s = record.GetSettingMap();
    return text + "|" + record.GetUnifiedId() + "|" + s.modalPosition + "," + s.modalSize + "," +
           s.url + "," + s.openType + "," + s.host + "," + s.uri;
}

// Bundle folders under a fresh temporary directory, and one sample bundle read
// from there as the configuration reads it. Nothing in the model logs.
class SampleBundle : public ::testing::Test {
protected:
    void SetUp() override {
        log_ = CaptureLog();
        root_ = Bundle("sample", R"({
            "id": "extension_adapter", "version": "1.02.3", "foundationVersion": "3.2",
            "mainEntry": "bin/d\u00e9mo.dll", "libFileMD5": "lib-md5", "signMD5": "sign-md5",
            "BundleClassId": "{BUNDLE}", "bundleClassId": "another key", "unknown": [1],
            "extensionPoints": [
                {"id": "host.point", "type": "service", "iid": "{IID}", "extensions": [
                    {"id": "shared.id", "version": "2.1", "clsid": "{LOCAL}", "isSingleton": false,
                     "payloads": {"local": "1"}, "unifiedId": "local-u"},
                    {"clsid": "{no id}"}, "not an object", {"id": "third"}]},
                "not an object", {"type": "no id"},
                {"id": "host.empty", "iid": 5, "extensions": {"id": "not a list"}}]})");
        qzextensionkit::Artifact* raw = nullptr;
        ASSERT_TRUE(qzextensionkit::ReadManifest(root_, &raw));
        ASSERT_NE(raw, nullptr);
        artifact_.reset(raw);
        std::list<qzextensionkit::ExtensionPoint*> points;
        artifact_->GetExtensionPoints(points);
        ASSERT_EQ(points.size(), 2u);
        point_ = points.front();
        std::list<qzextensionkit::Extension*> records;
        point_->GetExtensions(records);
        ASSERT_EQ(records.size(), 3u);
        local_ = records.front();
    }
    void TearDown() override { EXPECT_EQ(log_->Texts(), std::vector<std::string>()); }

    // Writes `manifest` as the manifest.json of the bundle folder `name`.
    base::FilePath Bundle(const std::string& name, const std::string& manifest) {
        std::filesystem::create_directories(dir_ / name);
        std::ofstream(dir_ / name / "manifest.json", std::ios::binary) << manifest;
        return Path(name);
    }
    // The kit's path of `name` below the folder; nothing is created.
    base::FilePath Path(const std::string& name) const {
        return base::FilePath(base::UTF8ToWide(dir_.u8string())).AppendASCII(name);
    }
    std::wstring Resources() const { return root_.value() + L"\\resources"; }

    qzetest::TempDir temp_;
    const std::filesystem::path& dir_ = temp_.path();
    std::shared_ptr<CapturedLines> log_;
    base::FilePath root_;
    std::unique_ptr<qzextensionkit::Artifact> artifact_;
    qzextensionkit::ExtensionPoint* point_ = nullptr;
    qzextensionkit::Extension* local_ = nullptr;
};

}  // namespace qzetest
