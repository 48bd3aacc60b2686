// Reading "extensions\config.json": modules, access keys and the bundles
// whose manifests fill the table of extensions.

#include <openssl/crypto.h>

#include <cstring>
#include <mutex>
#include <utility>

#include "base/base64.h"
#include "base/files/file_util.h"
#include "base/json/json_reader.h"
#include "base/values.h"
#include "config/aes_ecb.h"
#include "config/configuration_manager_impl.h"
#include "config/extension_auth_info.h"
#include "kit/log_service.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_point.h"
#include "model/manifest.h"

namespace qzextensionkit {

namespace {

using Hold = std::lock_guard<platform::RecursiveLock>;

QZELogService* Log() {
    return QZELogService::GetInstance();
}

// Appends the records of one auth list: objects with a non-empty "bundleId"
// and "accessKey"; anything else is passed over.
void AppendAuthInfos(const base::ListValue& list, const std::string& host,
                     std::list<std::unique_ptr<QZExtensionAuthInfo>>* infos) {
    for (std::size_t i = 0; i < list.GetSize(); ++i) {
        const base::DictionaryValue* item = nullptr;
        if (!list.GetDictionary(i, &item)) {
            continue;
        }
        std::string bundleId;
        std::string accessKey;
        if (!item->GetString("bundleId", &bundleId) || bundleId.empty() ||
            !item->GetString("accessKey", &accessKey) || accessKey.empty()) {
            continue;
        }
        infos->push_back(std::make_unique<QZExtensionAuthInfo>(host, bundleId, accessKey));
    }
}

}  // namespace

bool QZEConfigurationManagerImpl::LoadLocalConfigurations() {
    base::FilePath extensionsDir = GetExtensionsDir();
    if (extensionsDir.empty()) {
        Log()->LogMessage(0,
                          "configuration manager impl - load local configurations failed, "
                          "because of get extensions dir failed");
        return false;
    }
    base::FilePath configPath = extensionsDir.Append(L"config.json");
    if (!base::PathExists(extensionsDir) || !base::PathExists(configPath)) {
        Log()->LogMessage(0,
                          "configuration manager impl - load local configurations failed, "
                          "becuase of config.json is not exist");
        return false;
    }
    std::string contents;
    if (!base::ReadFileToString(configPath, &contents)) {
        Log()->LogMessage(0,
                          "configuration manager impl - load local configurations failed, "
                          "becuase of load config.json failed");
        return false;
    }
    std::string plain;
    if (!DecryptConfigurations(contents, &plain)) {
        return false;
    }
    std::string errorMessage;
    std::unique_ptr<base::Value> parsed =
        base::JSONReader::ReadAndReturnError(plain, 0, nullptr, &errorMessage);
    if (!parsed) {
        Log()->LogMessage(0,
                          "configuration manager impl - load local configurations failed, "
                          "becuase of parse json config.json failed, %s",
                          errorMessage.c_str());
        return false;
    }
    base::DictionaryValue* root = nullptr;
    if (!parsed->GetAsDictionary(&root)) {
        // Valid JSON of another shape counts as an empty configuration.
        return true;
    }
    LoadModuleConfigurations(root);
    LoadExtensionAuthInfos(root);
    LoadArtifacts(root, extensionsDir);
    CollectExtensionInfos();
    return true;
}

bool QZEConfigurationManagerImpl::DecryptConfigurations(const std::string& encrypted,
                                                        std::string* plain) {
    // Without a key the file is plain text.
    if (secKey.empty()) {
        *plain = encrypted;
        return true;
    }
    char key[32] = {};
    std::memcpy(key, secKey.data(), secKey.size() < sizeof(key) ? secKey.size() : sizeof(key));

    std::string cipherText;
    base::Base64Decode(encrypted, &cipherText);
    if (cipherText.empty()) {
        OPENSSL_cleanse(key, sizeof(key));
        Log()->LogMessage(0,
                          "configuration manager impl - decrypt configurations failed, becuase of "
                          "base64 decode encrypted configs failed");
        return false;
    }
    std::string decrypted = AesEcbDecrypt(cipherText, key);
    OPENSSL_cleanse(key, sizeof(key));
    if (decrypted.empty()) {
        Log()->LogMessage(0,
                          "configuration manager impl - decrypt configurations failed, becuase of "
                          "decrypt config.json failed");
        return false;
    }
    // NUL bytes may stand in for padding: the text ends at the first one.
    std::size_t nul = decrypted.find('\0');
    if (nul != std::string::npos) {
        decrypted.resize(nul);
    }
    *plain = std::move(decrypted);
    return true;
}

void QZEConfigurationManagerImpl::LoadModuleConfigurations(base::DictionaryValue* root) {
    base::ListValue* modules = nullptr;
    if (!root->GetList("modules", &modules)) {
        return;
    }
    for (std::size_t i = 0; i < modules->GetSize(); ++i) {
        base::DictionaryValue* module = nullptr;
        if (!modules->GetDictionary(i, &module)) {
            continue;
        }
        Hold hold(lock);
        std::map<std::string, std::string> settings;
        std::string id;
        if (!module->GetString("id", &id) || id.empty()) {
            continue;
        }
        base::ListValue* configurations = nullptr;
        if (module->GetList("configurations", &configurations)) {
            for (std::size_t j = 0; j < configurations->GetSize(); ++j) {
                base::DictionaryValue* setting = nullptr;
                if (!configurations->GetDictionary(j, &setting)) {
                    continue;
                }
                std::string key;
                std::string value;
                if (!setting->GetString("key", &key) || !setting->GetString("value", &value)) {
                    continue;
                }
                if (value.empty()) {
                    setting->GetString("defaultValue", &value);
                }
                settings[key] = value;
            }
        }
        // A later module of the same id replaces an earlier one whole.
        moduleConfigurations[id] = std::move(settings);
    }
}

void QZEConfigurationManagerImpl::LoadExtensionAuthInfos(base::DictionaryValue* root) {
    base::DictionaryValue* authInfo = nullptr;
    if (!root->GetDictionary("ExtensionAuthInfo", &authInfo)) {
        return;
    }
    Hold hold(lock);
    // H5 records first, host by host in key order; the host keys hold dots,
    // so they are read as they stand and never as paths.
    base::DictionaryValue* h5 = nullptr;
    if (authInfo->GetDictionaryWithoutPathExpansion("H5", &h5)) {
        for (base::DictionaryValue::Iterator it(*h5); !it.IsAtEnd(); it.Advance()) {
            const base::ListValue* list = nullptr;
            if (it.value().GetAsList(&list)) {
                AppendAuthInfos(*list, it.key(), &extensionAuthInfos);
            }
        }
    }
    base::ListValue* native = nullptr;
    if (authInfo->GetListWithoutPathExpansion("Native", &native)) {
        AppendAuthInfos(*native, std::string(), &extensionAuthInfos);
    }
}

void QZEConfigurationManagerImpl::LoadArtifacts(base::DictionaryValue* root,
                                                const base::FilePath& extensionsDir) {
    base::ListValue* list = nullptr;
    if (!root->GetList("artifacts", &list)) {
        return;
    }
    for (std::size_t i = 0; i < list->GetSize(); ++i) {
        std::string name;
        if (!list->GetString(i, &name) || name.empty()) {
            continue;
        }
        base::FilePath directory = extensionsDir.AppendASCII(name);
        Artifact* artifact = nullptr;
        if (!ReadManifest(directory, &artifact)) {
            // A missing or broken bundle keeps none of the others out.
            continue;
        }
        // A manifest that is JSON but no object reads as true with no
        // artifact; the entry is kept and passed over when collecting.
        Hold hold(lock);
        artifacts.emplace_back(artifact);
    }
}

void QZEConfigurationManagerImpl::CollectExtensionInfos() {
    for (auto& artifact : artifacts) {
        // Passed over silently, like a manifest that doesn't parse.
        if (!artifact) {
            continue;
        }
        // A bundle that wants a newer foundation stays installed, without
        // extensions in force.
        if (!FoundationVersionFits(artifact->GetFoundationVersion(),
                                   foundationVersion.components())) {
            continue;
        }
        std::list<ExtensionPoint*> points;
        artifact->GetExtensionPoints(points);
        for (ExtensionPoint* point : points) {
            AppendExtensionPoint(point);
        }
    }
    for (ExtensionPoint* point : extensionPoints) {
        if (!point) {
            continue;
        }
        std::string id = point->GetId();
        auto records = std::make_unique<std::list<Extension*>>();
        if (point->GetExtensions(*records)) {
            AddExtensionsToPoint(id, std::move(records));
        }
    }
}

}  // namespace qzextensionkit
