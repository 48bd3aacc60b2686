#include "model/manifest.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/files/file_util.h"
#include "base/json/json_reader.h"
#include "base/utf_string_conversions.h"
#include "base/values.h"
#include "base/version.h"
#include "model/artifact.h"
#include "model/extension_impl.h"
#include "model/extension_point_impl.h"
#include "model/setting_map.h"

namespace qzextensionkit {
namespace {

// How a reader treats a "settingMap" that lacks some of its keys.
enum class SettingMapRule {
    // Any key missing leaves the whole setting map empty.
    kAllKeys,
    // Whatever keys are there are taken; the others stay empty.
    kAnyKey,
};

std::map<std::string, std::string> ReadPayloads(const base::DictionaryValue& item) {
    std::map<std::string, std::string> payloads;
    const base::DictionaryValue* dict = nullptr;
    if (!item.GetDictionary("payloads", &dict)) {
        return payloads;
    }
    for (const auto& entry : *dict) {
        std::string text;
        entry.second->GetAsString(&text);
        if (!text.empty()) {
            payloads.emplace(entry.first, std::move(text));
        }
    }
    return payloads;
}

// False when there is no list or it is empty: then nothing is assigned.
bool ReadConstraints(const base::DictionaryValue& item,
                     std::map<std::string, std::vector<std::string>>* constraints) {
    const base::ListValue* list = nullptr;
    if (!item.GetList("constraints", &list) || list->empty()) {
        return false;
    }
    for (std::size_t i = 0; i < list->GetSize(); ++i) {
        const base::DictionaryValue* entry = nullptr;
        if (!list->GetDictionary(i, &entry)) {
            continue;
        }
        // A missing "key" is the empty key.
        std::string key;
        entry->GetString("key", &key);
        std::vector<std::string> allowed;
        const base::ListValue* values = nullptr;
        if (entry->GetList("value", &values)) {
            for (std::size_t j = 0; j < values->GetSize(); ++j) {
                std::string value;
                if (values->GetString(j, &value)) {
                    allowed.push_back(std::move(value));
                }
            }
        }
        // The first entry of a key wins.
        constraints->emplace(key, std::move(allowed));
    }
    return true;
}

// False when nothing is to be assigned.
bool ReadSettingMap(const base::DictionaryValue& item, SettingMapRule rule,
                    SettingMap* settingMap) {
    const base::DictionaryValue* dict = nullptr;
    if (!item.GetDictionary("settingMap", &dict)) {
        return false;
    }
    SettingMap read;
    const std::pair<const char*, std::string*> keys[] = {
        {"modalPosition", &read.modalPosition},
        {"modalSize", &read.modalSize},
        {"host", &read.host},
        {"uri", &read.uri},
        {"openType", &read.openType},
    };
    bool anyFound = false;
    for (const auto& key : keys) {
        bool found = dict->GetString(key.first, key.second);
        if (!found && rule == SettingMapRule::kAllKeys) {
            return false;
        }
        anyFound = anyFound || found;
    }
    if (!anyFound) {
        return false;
    }
    // The address is joined once, here, with nothing in between.
    read.url = read.host + read.uri;
    *settingMap = std::move(read);
    return true;
}

// What both readers share; `item` stays the caller's.
bool ReadExtension(ExtensionPoint* point, const base::DictionaryValue& item, SettingMapRule rule,
                   Extension** extension) {
    std::string id;
    if (!item.GetString("id", &id)) {
        return false;
    }
    std::string version;
    std::string clsid;
    item.GetString("version", &version);
    item.GetString("clsid", &clsid);

    auto* record = new ExtensionImpl(point);
    *extension = record;
    record->SetId(std::move(id));
    // The extension point's id and interface id come from the point, never
    // from the dictionary.
    record->SetExtensionPointId(point->GetId());
    record->SetVersion(std::move(version));
    record->SetClsid(std::move(clsid));

    bool isSingleton = true;
    if (!item.GetBoolean("isSingleton", &isSingleton)) {
        isSingleton = true;
    }
    record->SetSingleton(isSingleton);

    record->SetPayloads(ReadPayloads(item));

    std::map<std::string, std::vector<std::string>> constraints;
    if (ReadConstraints(item, &constraints)) {
        record->SetConstraints(std::move(constraints));
    }

    SettingMap settingMap;
    if (ReadSettingMap(item, rule, &settingMap)) {
        record->SetSettingMap(std::move(settingMap));
    }

    std::string unifiedId;
    item.GetString("unifiedId", &unifiedId);
    record->SetUnifiedId(std::move(unifiedId));
    return true;
}

}  // namespace

bool ReadManifest(const base::FilePath& root, Artifact** artifact) {
    const base::FilePath manifestPath = root.Append(L"manifest.json");
    if (!base::PathExists(root) || !base::PathExists(manifestPath)) {
        return false;
    }
    std::string bytes;
    if (!base::ReadFileToString(manifestPath, &bytes)) {
        return false;
    }
    std::unique_ptr<base::Value> value = base::JSONReader::Read(bytes);
    if (!value || !artifact) {
        return false;
    }
    base::DictionaryValue* manifest = nullptr;
    if (!value->GetAsDictionary(&manifest)) {
        // Valid JSON that is no object counts as read, with no artifact; the
        // caller's variable stays as it was.
        return true;
    }
    return ParseArtifact(root, manifest, artifact);
}

bool ParseArtifact(const base::FilePath& root, base::DictionaryValue* manifest,
                   Artifact** artifact) {
    if (!manifest || !artifact) {
        return false;
    }
    // Absent keys, or keys of another type, leave empty texts.
    std::string id, version, foundationVersion, mainEntry, libFileMD5, signMD5, bundleClassId;
    manifest->GetString("id", &id);
    manifest->GetString("version", &version);
    manifest->GetString("foundationVersion", &foundationVersion);
    manifest->GetString("mainEntry", &mainEntry);
    manifest->GetString("libFileMD5", &libFileMD5);
    manifest->GetString("signMD5", &signMD5);
    manifest->GetString("BundleClassId", &bundleClassId);

    auto* created = new Artifact(root);
    // The caller owns the artifact from here on, whatever follows.
    *artifact = created;
    created->SetId(id);
    created->SetVersion(base::Version::Parse(version));
    created->SetFoundationVersion(base::Version::Parse(foundationVersion));
    created->SetMainEntry(base::UTF8ToWide(mainEntry));
    created->SetLibFileMD5(libFileMD5);
    created->SetSignMD5(signMD5);
    created->SetBundleClassId(bundleClassId);
    created->SetResourcesPath(root.Append(L"resources").value());

    base::ListValue* points = nullptr;
    if (!manifest->GetList("extensionPoints", &points)) {
        return true;
    }
    for (std::size_t i = 0; i < points->GetSize(); ++i) {
        base::DictionaryValue* item = nullptr;
        if (!points->GetDictionary(i, &item)) {
            continue;
        }
        ExtensionPoint* point = nullptr;
        if (ParseExtensionPoint(created, item, &point) && point) {
            created->AddExtensionPoint(point);
        }
    }
    return true;
}

bool ParseExtensionPoint(Artifact* owner, base::DictionaryValue* item, ExtensionPoint** point) {
    if (!point || !item) {
        return false;
    }
    std::string id;
    if (!item->GetString("id", &id)) {
        return false;
    }
    // "type" is part of the format but no record keeps it.
    std::string type;
    item->GetString("type", &type);
    std::string iid;
    item->GetString("iid", &iid);

    auto* created = new ExtensionPointImpl(owner);
    *point = created;
    created->SetIdentifiers(id, iid);

    base::ListValue* extensions = nullptr;
    if (!item->GetList("extensions", &extensions)) {
        return true;
    }
    for (std::size_t i = 0; i < extensions->GetSize(); ++i) {
        base::DictionaryValue* entry = nullptr;
        if (!extensions->GetDictionary(i, &entry)) {
            continue;
        }
        // An extension without "id" leaves a null in the list, on purpose:
        // the list keeps one slot per object in the manifest.
        Extension* extension = nullptr;
        ParseManifestExtension(created, entry, &extension);
        created->AddExtension(extension);
    }
    return true;
}

bool ParseManifestExtension(ExtensionPoint* point, base::DictionaryValue* item,
                            Extension** extension) {
    if (!extension || !item) {
        return false;
    }
    return ReadExtension(point, *item, SettingMapRule::kAllKeys, extension);
}

bool ParseExtensionDictionary(ExtensionPoint* point, base::DictionaryValue* item,
                              Extension** extension) {
    std::unique_ptr<base::DictionaryValue> owned(item);
    if (!extension || !owned) {
        return false;
    }
    return ReadExtension(point, *owned, SettingMapRule::kAnyKey, extension);
}

bool FoundationVersionFits(const std::vector<uint32_t>& required,
                           const std::vector<uint32_t>& foundation) {
    return base::Version::Compare(required, foundation) <= 0;
}

}  // namespace qzextensionkit
