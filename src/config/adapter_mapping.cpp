// The adapter mapping beside the executable, the table of extensions in
// force, and the records derived onto the adapter bundle's points.

#include <utility>

#include "base/files/file_util.h"
#include "base/guid.h"
#include "base/json/json_reader.h"
#include "base/values.h"
#include "config/configuration_manager_impl.h"
#include "config/extension_auth_info.h"
#include "kit/log_service.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "model/extension_impl.h"
#include "model/extension_point_impl.h"
#include "model/manifest.h"
#include "model/setting_map.h"

namespace qzextensionkit {

namespace {

// The artifact id of the bundle whose points host extensions that have no
// library of their own.
const char kAdapterBundleId[] = "extension_adapter";
// The payload key that marks a derived record and names its source.
const char kSourceExtensionIdKey[] = "extensionId";

QZELogService* Log() {
    return QZELogService::GetInstance();
}

std::string NewBracedId() {
    return "{" + base::GenerateGUID() + "}";
}

std::string StringOrEmpty(const base::DictionaryValue& dictionary, const std::string& key) {
    std::string value;
    dictionary.GetString(key, &value);
    return value;
}

bool BooleanOrFalse(const base::DictionaryValue& dictionary, const std::string& key) {
    bool value = false;
    dictionary.GetBoolean(key, &value);
    return value;
}

}  // namespace

bool QZEConfigurationManagerImpl::LoadExtensionAdapterMapping() {
    base::FilePath path = GetExtensionAdapterMappingFilePath();
    if (path.empty() || !base::PathExists(path)) {
        return false;
    }
    std::string text;
    if (!base::ReadFileToString(path, &text)) {
        return false;
    }
    // Text that is not JSON fails like JSON that is no object.
    std::unique_ptr<base::DictionaryValue> mapping =
        base::DictionaryValue::From(base::JSONReader::Read(text));
    if (!mapping) {
        return false;
    }
    adapterMapping = std::move(mapping);
    return true;
}

base::DictionaryValue* QZEConfigurationManagerImpl::GetAdapterMappingEntry(
    const std::string& extensionPointId) {
    base::DictionaryValue* entry = nullptr;
    // A path lookup: an id with dots is reached through nested objects.
    if (!adapterMapping || !adapterMapping->GetDictionary(extensionPointId, &entry)) {
        return nullptr;
    }
    return entry;
}

ExtensionPoint* QZEConfigurationManagerImpl::FindAdapterExtensionPoint(
    const std::string& extensionPointId) {
    auto found = adapterPointIndex.find(extensionPointId);
    return found == adapterPointIndex.end() ? nullptr : found->second;
}

void QZEConfigurationManagerImpl::AppendExtensionPoint(ExtensionPoint* point) {
    extensionPoints.push_back(point);
    auto* impl = dynamic_cast<ExtensionPointImpl*>(point);
    if (!impl || !impl->GetArtifact() || impl->GetArtifact()->GetId() != kAdapterBundleId) {
        return;
    }
    // The first adapter point of an id in list order answers for it.
    adapterPointIndex.emplace(point->GetId(), point);
}

void QZEConfigurationManagerImpl::AppendToExtensionTable(const std::string& extensionPointId,
                                                         std::shared_ptr<Extension> extension) {
    if (extension) {
        extensionIdIndex[extensionPointId].insert(extension->GetId());
    }
    extensionTable[extensionPointId].push_back(std::move(extension));
}

void QZEConfigurationManagerImpl::ClearExtensionTable() {
    extensionTable.clear();
    extensionIdIndex.clear();
}

void QZEConfigurationManagerImpl::EmptyExtensionList(const std::string& extensionPointId) {
    auto list = extensionTable.find(extensionPointId);
    if (list != extensionTable.end()) {
        list->second.clear();
    }
    auto ids = extensionIdIndex.find(extensionPointId);
    if (ids != extensionIdIndex.end()) {
        ids->second.clear();
    }
}

void QZEConfigurationManagerImpl::AddExtensionsToPoint(
    const std::string& extensionPointId, std::unique_ptr<std::list<Extension*>> extensions) {
    // Work on the point's present list, taken out of the table and put back
    // at the end, with the ids it holds.
    ExtensionList working;
    std::unordered_set<std::string> ids;
    auto present = extensionTable.find(extensionPointId);
    if (present != extensionTable.end()) {
        working.swap(present->second);
        auto presentIds = extensionIdIndex.find(extensionPointId);
        if (presentIds != extensionIdIndex.end()) {
            ids.swap(presentIds->second);
        }
    }
    const bool mapped = GetAdapterMappingEntry(extensionPointId) != nullptr;

    for (Extension* record : *extensions) {
        std::shared_ptr<Extension> copy = CopyExtensionShared(record);
        if (!copy) {
            continue;
        }
        if (!ids.insert(copy->GetId()).second) {
            // First come, first kept.
            Log()->LogMessage(2, "%s", "");
            continue;
        }
        working.push_back(copy);
        if (mapped) {
            AdaptExtension(copy.get());
        }
    }
    // After the derivations: a mapping whose source and target are this same
    // point loses its derived records here.
    extensionTable[extensionPointId] = std::move(working);
    extensionIdIndex[extensionPointId] = std::move(ids);
}

void QZEConfigurationManagerImpl::AdaptExtension(Extension* source) {
    std::map<std::string, std::string> payloads = source->GetPayloads();
    if (payloads.count(kSourceExtensionIdKey) != 0) {
        // Already derived: never derived again.
        return;
    }
    base::DictionaryValue* entry = GetAdapterMappingEntry(source->GetExtensionPointId());
    if (!entry) {
        return;
    }
    std::string targetPointId = StringOrEmpty(*entry, "extensionPointId");
    ExtensionPoint* point = FindAdapterExtensionPoint(targetPointId);
    if (!point) {
        return;
    }

    auto derived = std::make_unique<base::DictionaryValue>();
    derived->SetString("version", StringOrEmpty(*entry, "version"));
    derived->SetString("clsid", StringOrEmpty(*entry, "clsid"));
    derived->SetString("unifiedId", source->GetUnifiedId());
    derived->SetString("iid", StringOrEmpty(*entry, "iid"));
    derived->SetString("id", NewBracedId());

    auto derivedPayloads = std::make_unique<base::DictionaryValue>();
    std::string sourceId = source->GetId();
    if (!sourceId.empty()) {
        derivedPayloads->SetString(kSourceExtensionIdKey, sourceId);
    }
    for (auto& payload : payloads) {
        if (!payload.second.empty()) {
            // A path setter: a dotted key lands in a nested object.
            derivedPayloads->SetString(payload.first, payload.second);
        }
    }
    derived->Set("payloads", std::move(derivedPayloads));

    auto constraints = std::make_unique<base::ListValue>();
    for (auto& constraint : source->GetConstraints()) {
        auto values = std::make_unique<base::ListValue>();
        for (auto& value : constraint.second) {
            if (!value.empty()) {
                values->AppendString(value);
            }
        }
        if (values->empty()) {
            continue;
        }
        auto item = std::make_unique<base::DictionaryValue>();
        item->SetString("key", constraint.first);
        item->Set("value", std::move(values));
        constraints->Append(std::move(item));
    }
    derived->Set("constraints", std::move(constraints));

    SettingMap settings = source->GetSettingMap();
    const std::pair<const char*, const std::string*> settingFields[] = {
        {"modalSize", &settings.modalSize},
        {"modalPosition", &settings.modalPosition},
        {"openType", &settings.openType},
        {"host", &settings.host},
        {"uri", &settings.uri},
    };
    auto settingMap = std::make_unique<base::DictionaryValue>();
    for (auto& field : settingFields) {
        if (!field.second->empty()) {
            settingMap->SetString(field.first, *field.second);
        }
    }
    if (!settingMap->empty()) {
        derived->Set("settingMap", std::move(settingMap));
    }
    derived->SetBoolean("isSingleton", BooleanOrFalse(*entry, "isSingleton"));

    Extension* made = nullptr;
    // The reader takes the dictionary over.
    bool parsed = ParseExtensionDictionary(point, derived.release(), &made);
    std::unique_ptr<Extension> record(made);
    if (!parsed || !record) {
        return;
    }
    std::wstring resourcesPath = source->GetResourcesPath();
    if (!resourcesPath.empty()) {
        if (auto* impl = dynamic_cast<ExtensionImpl*>(record.get())) {
            impl->SetResourcesPath(resourcesPath);
        }
    }
    // Ids are new each time, so derived records are never deduplicated.
    AppendToExtensionTable(targetPointId, std::shared_ptr<Extension>(std::move(record)));
}

void QZEConfigurationManagerImpl::HandleDebugExtensionConfigurations(
    const std::function<base::DictionaryValue*(const std::string&)>& findEntry,
    const std::function<ExtensionPoint*(const std::string&)>& findPoint) {
    base::FilePath path = GetDebugExtensionConfigurationFilePath();
    if (path.empty()) {
        Log()->LogMessage(0,
                          "configuration manager impl - handle debug extension configurations "
                          "failed, becuase of get debug_extension_configuration.json file path "
                          "failed");
        return;
    }
    if (!base::PathExists(path)) {
        Log()->LogMessage(0,
                          "configuration manager impl - handle debug extension configurations "
                          "failed, becuase of debug_extension_configuration.json file path not "
                          "exist");
        return;
    }
    std::string text;
    if (!base::ReadFileToString(path, &text)) {
        Log()->LogMessage(0,
                          "configuration manager impl - handle debug extension configurations "
                          "failed, becuase of load debug_extension_configuration.json failed");
        return;
    }
    std::string errorMessage;
    std::unique_ptr<base::Value> parsed =
        base::JSONReader::ReadAndReturnError(text, 0, nullptr, &errorMessage);
    if (!parsed) {
        Log()->LogMessage(0,
                          "configuration manager impl - handle debug extension configurations "
                          "failed, becuase of read debug_extension_configuration.json failed, %s",
                          errorMessage.c_str());
        return;
    }
    base::DictionaryValue* root = nullptr;
    if (!parsed->GetAsDictionary(&root)) {
        return;
    }

    // Hosts whose bundles still need an access key.
    base::DictionaryValue* auths = nullptr;
    if (root->GetDictionaryWithoutPathExpansion("extensionAuths", &auths)) {
        for (base::DictionaryValue::Iterator it(*auths); !it.IsAtEnd(); it.Advance()) {
            const base::DictionaryValue* auth = nullptr;
            if (!it.value().GetAsDictionary(&auth) || auth->empty()) {
                continue;
            }
            std::string bundleId;
            if (!auth->GetString("bundleId", &bundleId) || bundleId.empty()) {
                continue;
            }
            extensionAuthInfos.push_back(
                std::make_unique<QZExtensionAuthInfo>(it.key(), bundleId, std::string()));
        }
    }

    base::ListValue* bindings = nullptr;
    if (!root->GetList("extensionBindings", &bindings)) {
        return;
    }
    for (std::size_t i = 0; i < bindings->GetSize(); ++i) {
        base::DictionaryValue* binding = nullptr;
        base::ListValue* extensions = nullptr;
        std::string sourcePointId;
        if (!bindings->GetDictionary(i, &binding) ||
            !binding->GetString("extensionPointId", &sourcePointId) || sourcePointId.empty() ||
            !binding->GetList("extensions", &extensions)) {
            continue;
        }
        for (std::size_t j = 0; j < extensions->GetSize(); ++j) {
            // The binding's own index picks the element, once per element.
            base::DictionaryValue* extension = nullptr;
            if (!extensions->GetDictionary(i, &extension)) {
                continue;
            }
            base::DictionaryValue* entry = findEntry(sourcePointId);
            if (!entry) {
                continue;
            }
            std::string targetPointId = StringOrEmpty(*entry, "extensionPointId");
            ExtensionPoint* point = findPoint(targetPointId);
            if (!point) {
                continue;
            }
            auto item = std::make_unique<base::DictionaryValue>();
            item->SetString("version", StringOrEmpty(*entry, "version"));
            item->SetString("clsid", StringOrEmpty(*entry, "clsid"));
            item->SetString("iid", StringOrEmpty(*entry, "iid"));
            item->SetString("id", NewBracedId());
            base::ListValue* constraints = nullptr;
            if (extension->GetList("constraints", &constraints)) {
                item->Set("constraints", constraints->CreateDeepCopy());
            }
            base::DictionaryValue* settingMap = nullptr;
            if (extension->GetDictionary("settingMap", &settingMap)) {
                item->Set("settingMap", settingMap->CreateDeepCopy());
            }
            auto payloads = std::make_unique<base::DictionaryValue>();
            base::ListValue* pairs = nullptr;
            if (extension->GetList("payloads", &pairs)) {
                for (std::size_t k = 0; k < pairs->GetSize(); ++k) {
                    base::DictionaryValue* pair = nullptr;
                    if (!pairs->GetDictionary(k, &pair)) {
                        continue;
                    }
                    std::string key = StringOrEmpty(*pair, "key");
                    std::string value = StringOrEmpty(*pair, "value");
                    if (!key.empty() && !value.empty()) {
                        payloads->SetString(key, value);
                    }
                }
            }
            item->Set("payloads", std::move(payloads));
            item->SetBoolean("isSingleton", BooleanOrFalse(*entry, "isSingleton"));

            Extension* made = nullptr;
            ParseExtensionDictionary(point, item.release(), &made);
            std::shared_ptr<Extension> record(made);
            if (record && extensionTable.count(targetPointId) != 0) {
                AppendToExtensionTable(targetPointId, std::move(record));
            }
        }
    }
}

}  // namespace qzextensionkit
