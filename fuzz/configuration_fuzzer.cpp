// Builds a host installation from the input and runs the whole local load on
// it: the adapter mapping, config.json (plain, or encrypted when the input
// sets a key) and up to four bundle manifests. Then checks that the lookups
// agree with each other, that an unload empties the tables, and that a
// second load of the same files gives the same tables.
//
// Input: one byte of flags, then the parts, separated by "\n--\n": the
// mapping, config.json, and the manifests of the bundles "b0" to "b3". A
// part that is not there leaves its file out.
// Flags: 1 set a key; 2 encrypt config.json with it (else the part is the
// file as it stands); 4 pad with NUL bytes instead of PKCS#7; 8 set a
// foundation version; 16 leave the mapping out.

#include <openssl/evp.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/configuration_manager_impl.h"
#include "config/module_codes.h"
#include "fuzz_support.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "platform/platform.h"

using namespace qzextensionkit;
using fuzzing::Check;

namespace {

const std::string kKey = "0123456789abcdef0123456789ABCDEF";

fuzzing::TempFolder& Host() {
    static fuzzing::TempFolder folder("qzekit_configuration_fuzz_");
    static bool placed = [] {
        platform::testing::SetExecutablePathOverride(folder.Wide() + L"\\host.exe");
        return true;
    }();
    (void)placed;
    return folder;
}

// base64 of AES-256-ECB over the text, padded to whole blocks.
std::string Encrypt(std::string plain, bool nulPadding) {
    const std::size_t pad = 16 - plain.size() % 16;
    plain.append(pad, nulPadding ? '\0' : static_cast<char>(pad));
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                            &EVP_CIPHER_CTX_free);
    EVP_EncryptInit_ex(context.get(), EVP_aes_256_ecb(), nullptr,
                       reinterpret_cast<const unsigned char*>(kKey.data()), nullptr);
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    std::string cipher(plain.size(), '\0');
    int written = 0;
    EVP_EncryptUpdate(context.get(), reinterpret_cast<unsigned char*>(&cipher[0]), &written,
                      reinterpret_cast<const unsigned char*>(plain.data()),
                      static_cast<int>(plain.size()));
    std::string text(4 * ((cipher.size() + 2) / 3) + 1, '\0');
    text.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                        reinterpret_cast<const unsigned char*>(cipher.data()), written)));
    return text;
}

struct Tables {
    bool loaded = false;
    std::size_t artifacts = 0;
    std::size_t records = 0;
};

// Every record in force is found again by its point and by its id, and no
// point holds one id twice.
Tables Inspect(QZEConfigurationManagerImpl& manager, bool loaded) {
    Tables tables;
    tables.loaded = loaded;
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    tables.artifacts = artifacts.size();
    std::vector<Extension*> records;
    manager.GetAllExtensionInfos(records);
    tables.records = records.size();
    for (Extension* record : records) {
        Check(record != nullptr);
        std::vector<std::shared_ptr<Extension>> samePoint;
        Check(
            manager.GetExtensionInfosByExntensionPointID(record->GetExtensionPointId(), samePoint));
        int sameId = 0;
        for (auto& other : samePoint) {
            sameId += other->GetId() == record->GetId() ? 1 : 0;
        }
        Check(sameId == 1);
        Extension* copy = nullptr;
        const bool found = manager.GetExtensionInfoByID(record->GetId(), &copy);
        std::unique_ptr<Extension> owned(copy);
        Check(found == !record->GetId().empty() && (copy != nullptr) == found);
        Check(!found || copy->GetId() == record->GetId());
    }
    // The other lookups must merely survive whatever was loaded.
    bool enabled = false;
    for (ModuleCode code : {kModuleInstantMessaging, kModuleMail, kModuleInvalid}) {
        manager.IsModuleEnabled(code, enabled);
        std::map<std::string, std::string> settings;
        manager.GetConfigurationsByID(code, &settings);
    }
    std::string value;
    manager.GetMuduleConfig("instantmessaging", "key", value);
    manager.GetExtensionAccessKey("b0");
    manager.GetH5ExtensionBundleId("https://h5.example.com/appName_b0/index.html");
    manager.CheckAndFetchExtensionAuthInfo();
    return tables;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const uint8_t flags = data[0];
    const std::vector<std::string> parts =
        fuzzing::Split(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), "\n--\n");

    const std::filesystem::path root = Host().path();
    std::filesystem::remove_all(root / "extensions");
    std::filesystem::remove(root / "extension_adapter_mapping.json");
    const bool hasMapping = (flags & 16) == 0;
    if (hasMapping) {
        fuzzing::WriteFile(root / "extension_adapter_mapping.json", parts[0]);
    }
    if (parts.size() > 1) {
        const bool encrypt = (flags & 1) && (flags & 2);
        fuzzing::WriteFile(root / "extensions" / "config.json",
                           encrypt ? Encrypt(parts[1], (flags & 4) != 0) : parts[1]);
    }
    for (std::size_t i = 2; i < parts.size() && i < 6; ++i) {
        fuzzing::WriteFile(root / "extensions" / ("b" + std::to_string(i - 2)) / "manifest.json",
                           parts[i]);
    }

    QZEConfigurationManagerImpl manager;
    if (flags & 1) {
        Check(manager.SetSecKey(kKey));
    }
    if (flags & 8) {
        manager.SetFoundationVersion("1.0");
    }
    const Tables first = Inspect(manager, manager.LoadAllExtensionInfos());
    Check(hasMapping || (!first.loaded && first.artifacts == 0));

    Check(manager.UnloadAllExtensionInfos());
    std::vector<Extension*> records;
    manager.GetAllExtensionInfos(records);
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    Check(records.empty() && artifacts.empty());

    const Tables second = Inspect(manager, manager.LoadAllExtensionInfos());
    Check(second.loaded == first.loaded && second.artifacts == first.artifacts &&
          second.records == first.records);
    return 0;
}
