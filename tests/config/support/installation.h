#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qzetest {

// A host installation in a fresh temporary folder: the kit sees it as the
// directory of the running executable. Removed again when destroyed.
class Installation {
public:
    Installation();
    ~Installation();
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    const std::filesystem::path& root() const { return root_; }
    // The executable's directory as the kit's paths begin it.
    std::string RootText() const;

    // Writes `bytes` to a file below the root, creating folders on the way.
    void Write(const std::string& relative, const std::string& bytes) const;
    void Remove(const std::string& relative) const;

    void WriteMapping(const std::string& json) const {
        Write("extension_adapter_mapping.json", json);
    }
    void WriteConfig(const std::string& bytes) const { Write("extensions/config.json", bytes); }
    void WriteManifest(const std::string& bundle, const std::string& json) const {
        Write("extensions/" + bundle + "/manifest.json", json);
    }

private:
    std::filesystem::path root_;
};

// base64 of AES-256-ECB ciphertext of `plain`, whose length must be a
// multiple of 16; no padding is added.
std::string EncryptForConfig(const std::string& plain, const std::string& key);

// A manifest with the given artifact id, foundation version and
// "extensionPoints" list text.
std::string Manifest(const std::string& id, const std::string& foundationVersion,
                     const std::string& points, const std::string& mainEntry = "bin/main.dll");

// {"artifacts": [...]} naming the given bundle folders.
std::string ConfigWithArtifacts(const std::vector<std::string>& bundles,
                                const std::string& extraKeys = std::string());

// The text the log sink receives for one of the configuration manager's lines.
std::string ConfigLine(const std::string& text);

}  // namespace qzetest
