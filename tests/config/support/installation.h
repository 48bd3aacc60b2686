#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/utf_string_conversions.h"
#include "common/capture_logger.h"
#include "config/configuration_manager_impl.h"
#include "model/extension.h"

namespace qzetest {

// A temporary host folder the kit takes for the executable's directory.
class Installation {
public:
    explicit Installation(const std::string& namePart = "config");
    ~Installation();
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    const std::filesystem::path& root() const { return root_; }
    std::string RootText() const { return root_.u8string(); }
    // Writes `bytes` below the root, creating folders on the way.
    void Write(const std::string& relative, const std::string& bytes) const;
    void WriteMapping(const std::string& json) const {
        Write("extension_adapter_mapping.json", json);
    }
    void WriteConfig(const std::string& bytes) const { Write("extensions/config.json", bytes); }
    void WriteManifest(const std::string& bundle, const std::string& json) const {
        Write("extensions/" + bundle + "/manifest.json", json);
    }
    void Remove(const std::string& relative) const {
        std::filesystem::remove_all(root_ / relative);
    }

private:
    std::filesystem::path root_;
};

// base64 of AES-256-ECB of `plain` (whole blocks, no padding added).
std::string EncryptForConfig(const std::string& plain, const std::string& key);

// A config.json that lists just these bundle folders.
inline std::string ConfigWithArtifacts(const std::vector<std::string>& bundles) {
    std::string list;
    for (auto& bundle : bundles) {
        list += (list.empty() ? "\"" : ", \"") + bundle + "\"";
    }
    return "{\"artifacts\": [" + list + "]}";
}

std::string Manifest(const std::string& id, const std::string& foundationVersion,
                     const std::string& points, const std::string& mainEntry = "bin/main.dll");

// The sample installation loaded in debug mode; `log` starts after the load.
class LoadedSample : public ::testing::Test {
protected:
    void SetUp() override;

    Installation install;
    qzextensionkit::QZEConfigurationManagerImpl manager;
    std::shared_ptr<CapturedLines> loadLog;
    std::shared_ptr<CapturedLines> log;
};

inline std::string ConfigLine(const std::string& text) {
    return "[QZExtensionKit] configuration manager impl - " + text;
}

// The captured lines joined by "\n", without the manager's prefix.
inline std::string Joined(CapturedLines& log) {
    const std::string prefix = ConfigLine("");
    std::string joined;
    for (auto& line : log.Texts()) {
        joined += "\n" + (line.rfind(prefix, 0) == 0 ? line.substr(prefix.size()) : line);
    }
    return joined.empty() ? joined : joined.substr(1);
}

inline std::vector<std::shared_ptr<qzextensionkit::Extension>> InForce(
    qzextensionkit::IQZEConfigurationManager& manager, const std::string& point) {
    std::vector<std::shared_ptr<qzextensionkit::Extension>> records;
    manager.GetExtensionInfosByExntensionPointID(point, records);
    return records;
}
inline std::vector<std::string> Ids(
    const std::vector<std::shared_ptr<qzextensionkit::Extension>>& records) {
    std::vector<std::string> ids;
    for (auto& record : records) {
        ids.push_back(record->GetId());
    }
    return ids;
}

}  // namespace qzetest
