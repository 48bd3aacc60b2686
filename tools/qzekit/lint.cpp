#include "qzekit/lint.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "base/base64.h"
#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/json/json_reader.h"
#include "base/utf_string_conversions.h"
#include "base/values.h"
#include "base/version.h"
#include "config/aes_ecb.h"
#include "model/manifest.h"
#include "qzekit/tool.h"

namespace qzekit {
namespace {

using base::DictionaryValue;
using base::ListValue;
using base::Value;

const char kMappingFile[] = "extension_adapter_mapping.json";
const char kConfigFile[] = "extensions/config.json";
const char kAdapterBundleId[] = "extension_adapter";
const char kLoadFails[] = "the kit fails the whole load";
const char kPassesOver[] = "the kit passes over it";
const char kBundlePassedOver[] = "the kit passes over the bundle";
const char kNoEntryObject[] = "the kit cannot create the bundle's entry object";

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// Keys that read well bare are written bare, others in brackets and quotes,
// so that a key with "." or "/" in it stays one step of the path.
bool IsPlainKey(const std::string& key) {
    if (key.empty() || (key[0] >= '0' && key[0] <= '9')) {
        return false;
    }
    for (char c : key) {
        bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '$';
        if (!word) {
            return false;
        }
    }
    return true;
}

std::string Member(const std::string& path, const std::string& key) {
    if (!IsPlainKey(key)) {
        return path + "[" + JsonQuote(key) + "]";
    }
    return path.empty() ? key : path + "." + key;
}

std::string Item(const std::string& path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

// A path text as the findings show it: "/" between the parts, none at the end.
std::string Slashed(std::string text) {
    for (char& c : text) {
        if (c == '\\') {
            c = '/';
        }
    }
    while (!text.empty() && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

const char* NotOfType(Value::Type type) {
    switch (type) {
        case Value::TYPE_BOOLEAN:
            return "not a boolean";
        case Value::TYPE_LIST:
            return "not a list";
        case Value::TYPE_DICTIONARY:
            return "not an object";
        default:
            return "not a string";
    }
}

// The keys the kit reads hold no ".", so its path lookups reach exactly the
// key itself.
const Value* Find(const DictionaryValue& dictionary, const std::string& key) {
    const Value* value = nullptr;
    dictionary.GetWithoutPathExpansion(key, &value);
    return value;
}

// Parses with the options the kit uses (none); on failure describes the
// error with the reader's own line and column.
std::unique_ptr<Value> ParseJson(const std::string& text, std::string* problem) {
    int32_t code = 0;
    int32_t line = 0;
    int32_t column = 0;
    std::unique_ptr<Value> value =
        base::JSONReader::ReadAndReturnError(text, 0, &code, nullptr, &line, &column);
    if (!value) {
        std::string where;
        if (line != 0 || column != 0) {
            where = "line " + std::to_string(line) + ", column " + std::to_string(column) + ": ";
        }
        *problem = "not JSON (" + where + base::JSONReader::ErrorCodeToString(code) + ")";
    }
    return value;
}

// Text that base64-decodes to whole AES blocks is most likely an encrypted
// config.json.
bool LooksEncrypted(const std::string& text) {
    std::string decoded;
    return base::Base64Decode(text, &decoded) && !decoded.empty() && decoded.size() % 16 == 0;
}

bool IsBracedClassId(const std::string& text) {
    static const char kShape[] = "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}";
    if (text.size() != sizeof(kShape) - 1) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        if (kShape[i] == 'X' ? !hex : c != kShape[i]) {
            return false;
        }
    }
    return true;
}

class Linter {
public:
    explicit Linter(const LintOptions& options)
        : options_(options),
          hostDir_(options.hostDir),
          extensionsDir_(hostDir_.Append(L"extensions")) {}

    std::vector<LintFinding> Run() {
        std::unique_ptr<DictionaryValue> mapping = ReadMapping();
        std::unique_ptr<Value> config = ReadConfig();
        const DictionaryValue* root = nullptr;
        if (config && !config->GetAsDictionary(&root)) {
            Add(kConfigFile, "",
                "root is not an object: the kit loads nothing from it and still succeeds");
        }
        if (root) {
            CheckModules(*root);
            CheckAuthInfos(*root);
            CheckArtifacts(*root);
        }
        // Entries are looked up only once every bundle's points are known.
        if (mapping) {
            CheckMappingEntries(*mapping);
        }
        return std::move(findings_);
    }

private:
    void Add(const std::string& file, const std::string& path, const std::string& message) {
        findings_.push_back(LintFinding{file, path, message});
    }

    // A key the kit needs: reports it absent, of another type or (when
    // `nonEmpty`) empty, and then answers false.
    bool Required(const std::string& file, const DictionaryValue& dictionary,
                  const std::string& key, const std::string& path, const std::string& consequence,
                  bool nonEmpty, std::string* text) {
        const Value* value = Find(dictionary, key);
        if (!value) {
            Add(file, path, "no " + Quoted(key) + ": " + consequence);
            return false;
        }
        if (!value->GetAsString(text)) {
            Add(file, Member(path, key), "not a string: " + consequence);
            return false;
        }
        if (nonEmpty && text->empty()) {
            Add(file, Member(path, key), "empty: " + consequence);
            return false;
        }
        return true;
    }

    // An optional key of another type counts as absent for the kit.
    void Optional(const std::string& file, const DictionaryValue& dictionary,
                  const std::string& key, const std::string& path, Value::Type type,
                  const std::string& consequence) {
        const Value* value = Find(dictionary, key);
        if (value && !value->IsType(type)) {
            Add(file, Member(path, key), std::string(NotOfType(type)) + ": " + consequence);
        }
    }

    std::unique_ptr<DictionaryValue> ReadMapping() {
        const base::FilePath path = hostDir_.Append(L"extension_adapter_mapping.json");
        std::string text;
        if (!base::PathExists(path)) {
            Add(kMappingFile, "", std::string("missing: ") + kLoadFails);
            return nullptr;
        }
        if (!base::ReadFileToString(path, &text)) {
            Add(kMappingFile, "", std::string("unreadable: ") + kLoadFails);
            return nullptr;
        }
        std::string problem;
        std::unique_ptr<Value> value = ParseJson(text, &problem);
        if (!value) {
            Add(kMappingFile, "", problem + ": " + kLoadFails);
            return nullptr;
        }
        std::unique_ptr<DictionaryValue> mapping = DictionaryValue::From(std::move(value));
        if (!mapping) {
            Add(kMappingFile, "", std::string("root is not an object: ") + kLoadFails);
            return nullptr;
        }
        CheckMappingKeys(*mapping, "", true);
        return mapping;
    }

    // Entries are found by path lookups, which split an id at every ".": a
    // key that holds one is never reached, at any level.
    void CheckMappingKeys(const DictionaryValue& level, const std::string& levelPath, bool root) {
        for (const auto& entry : level) {
            const std::string path = Member(levelPath, entry.first);
            const DictionaryValue* inner = nullptr;
            if (entry.first.find('.') != std::string::npos) {
                Add(kMappingFile, path,
                    "key holds \".\": the kit looks ids up by path and never finds this entry");
            } else if (entry.second->GetAsDictionary(&inner)) {
                CheckMappingKeys(*inner, path, false);
            } else if (root) {
                Add(kMappingFile, path, "not an object: the kit finds no entry here");
            }
        }
    }

    // The root of config.json as the kit parses it, after the kit's
    // decryption when a key is given.
    std::unique_ptr<Value> ReadConfig() {
        const base::FilePath path = extensionsDir_.Append(L"config.json");
        std::string contents;
        if (!base::PathExists(extensionsDir_) || !base::PathExists(path)) {
            Add(kConfigFile, "", std::string("missing: ") + kLoadFails);
            return nullptr;
        }
        if (!base::ReadFileToString(path, &contents)) {
            Add(kConfigFile, "", std::string("unreadable: ") + kLoadFails);
            return nullptr;
        }
        std::string plain = contents;
        std::string hint;
        if (!options_.secKey.empty()) {
            std::string cipherText;
            base::Base64Decode(contents, &cipherText);
            if (cipherText.empty()) {
                std::string unused;
                Add(kConfigFile, "",
                    std::string("not base64 text: ") + kLoadFails +
                        (ParseJson(contents, &unused) ? "; it reads as plain JSON, which the kit "
                                                        "reads only when the host sets no key"
                                                      : ""));
                return nullptr;
            }
            char key[32] = {};
            std::memcpy(key, options_.secKey.data(), std::min(options_.secKey.size(), sizeof(key)));
            plain = qzextensionkit::AesEcbDecrypt(cipherText, key);
            if (plain.empty()) {
                Add(kConfigFile, "", std::string("does not decrypt with this key: ") + kLoadFails);
                return nullptr;
            }
            // As the kit: the text ends at the first NUL.
            std::size_t nul = plain.find('\0');
            if (nul != std::string::npos) {
                plain.resize(nul);
            }
            hint = "; a wrong key reads like this";
        } else if (LooksEncrypted(contents)) {
            hint = "; if it is encrypted, give --key-file";
        }
        std::string problem;
        std::unique_ptr<Value> value = ParseJson(plain, &problem);
        if (!value) {
            Add(kConfigFile, "", problem + ": " + kLoadFails + hint);
        }
        return value;
    }

    void CheckModules(const DictionaryValue& root) {
        const Value* value = Find(root, "modules");
        const ListValue* modules = nullptr;
        if (!value) {
            return;
        }
        if (!value->GetAsList(&modules)) {
            Add(kConfigFile, "modules", "not a list: the kit reads no modules");
            return;
        }
        std::map<std::string, std::string> kept;
        for (std::size_t i = 0; i < modules->GetSize(); ++i) {
            const std::string path = Item("modules", i);
            const DictionaryValue* module = nullptr;
            std::string id;
            if (!modules->GetDictionary(i, &module)) {
                Add(kConfigFile, path, std::string("not an object: ") + kPassesOver);
                continue;
            }
            if (!Required(kConfigFile, *module, "id", path, "the kit passes over the module", true,
                          &id)) {
                continue;
            }
            auto earlier = kept.find(id);
            if (earlier != kept.end()) {
                Add(kConfigFile, path,
                    "id " + Quoted(id) + " again: the kit keeps this module and drops " +
                        earlier->second);
            }
            kept[id] = path;
            CheckSettings(*module, path);
        }
    }

    void CheckSettings(const DictionaryValue& module, const std::string& modulePath) {
        const Value* value = Find(module, "configurations");
        const ListValue* settings = nullptr;
        const std::string listPath = Member(modulePath, "configurations");
        if (!value) {
            return;
        }
        if (!value->GetAsList(&settings)) {
            Add(kConfigFile, listPath, "not a list: the kit registers the module with no settings");
            return;
        }
        std::map<std::string, std::string> kept;
        for (std::size_t j = 0; j < settings->GetSize(); ++j) {
            const std::string path = Item(listPath, j);
            const DictionaryValue* setting = nullptr;
            if (!settings->GetDictionary(j, &setting)) {
                Add(kConfigFile, path, std::string("not an object: ") + kPassesOver);
                continue;
            }
            const char consequence[] = "the kit passes over the setting";
            std::string key;
            std::string text;
            bool hasKey = Required(kConfigFile, *setting, "key", path, consequence, false, &key);
            bool hasValue =
                Required(kConfigFile, *setting, "value", path, consequence, false, &text);
            if (!hasKey || !hasValue) {
                continue;
            }
            if (text.empty()) {
                Optional(kConfigFile, *setting, "defaultValue", path, Value::TYPE_STRING,
                         "the kit keeps the empty value");
            }
            auto earlier = kept.find(key);
            if (earlier != kept.end()) {
                Add(kConfigFile, path,
                    "key " + Quoted(key) + " again: the kit keeps this setting and drops " +
                        earlier->second);
            }
            kept[key] = path;
        }
    }

    void CheckAuthInfos(const DictionaryValue& root) {
        const Value* value = Find(root, "ExtensionAuthInfo");
        const DictionaryValue* auth = nullptr;
        if (!value) {
            return;
        }
        if (!value->GetAsDictionary(&auth)) {
            Add(kConfigFile, "ExtensionAuthInfo", "not an object: the kit reads no access keys");
            return;
        }
        const std::string h5Path = Member("ExtensionAuthInfo", "H5");
        const Value* h5 = Find(*auth, "H5");
        const DictionaryValue* hosts = nullptr;
        if (h5 && !h5->GetAsDictionary(&hosts)) {
            Add(kConfigFile, h5Path, "not an object: the kit reads no H5 access keys");
        }
        if (hosts) {
            for (const auto& host : *hosts) {
                const ListValue* list = nullptr;
                if (host.second->GetAsList(&list)) {
                    CheckAuthList(*list, Member(h5Path, host.first));
                } else {
                    Add(kConfigFile, Member(h5Path, host.first),
                        "not a list: the kit passes over this host");
                }
            }
        }
        const Value* native = Find(*auth, "Native");
        const ListValue* list = nullptr;
        if (native && !native->GetAsList(&list)) {
            Add(kConfigFile, Member("ExtensionAuthInfo", "Native"),
                "not a list: the kit reads no native access keys");
        }
        if (list) {
            CheckAuthList(*list, Member("ExtensionAuthInfo", "Native"));
        }
    }

    void CheckAuthList(const ListValue& list, const std::string& listPath) {
        for (std::size_t i = 0; i < list.GetSize(); ++i) {
            const std::string path = Item(listPath, i);
            const DictionaryValue* item = nullptr;
            if (!list.GetDictionary(i, &item)) {
                Add(kConfigFile, path, std::string("not an object: ") + kPassesOver);
                continue;
            }
            std::string text;
            Required(kConfigFile, *item, "bundleId", path, "the kit makes no record", true, &text);
            Required(kConfigFile, *item, "accessKey", path, "the kit makes no record", true, &text);
        }
    }

    void CheckArtifacts(const DictionaryValue& root) {
        const Value* value = Find(root, "artifacts");
        const ListValue* artifacts = nullptr;
        if (!value) {
            return;
        }
        if (!value->GetAsList(&artifacts)) {
            Add(kConfigFile, "artifacts", "not a list: the kit reads no bundles");
            return;
        }
        std::map<std::string, std::string> named;
        for (std::size_t i = 0; i < artifacts->GetSize(); ++i) {
            const std::string path = Item("artifacts", i);
            std::string name;
            if (!artifacts->GetString(i, &name)) {
                Add(kConfigFile, path, std::string("not a string: ") + kPassesOver);
                continue;
            }
            if (name.empty()) {
                Add(kConfigFile, path, std::string("empty: ") + kPassesOver);
                continue;
            }
            auto earlier = named.find(name);
            if (earlier != named.end()) {
                Add(kConfigFile, path,
                    "names the folder of " + earlier->second +
                        " again: the kit reads the bundle twice and drops the second copy's "
                        "extensions as duplicates");
                continue;
            }
            named.emplace(name, path);
            CheckBundle(name, path);
        }
    }

    void CheckBundle(const std::string& name, const std::string& configPath) {
        // The kit appends the name byte by byte, as ASCII.
        const base::FilePath root = extensionsDir_.AppendASCII(name);
        const std::string folder = "extensions/" + Slashed(name);
        const std::string file = folder + "/manifest.json";
        if (!base::PathExists(root)) {
            bool ascii = true;
            for (unsigned char c : name) {
                ascii = ascii && c < 0x80;
            }
            Add(kConfigFile, configPath,
                "no folder " + folder +
                    (ascii ? "" : " as the kit spells it (byte by byte, as ASCII)") + ": " +
                    kBundlePassedOver);
            return;
        }
        const base::FilePath manifestPath = root.Append(L"manifest.json");
        std::string text;
        if (!base::PathExists(manifestPath)) {
            Add(file, "", std::string("missing: ") + kBundlePassedOver);
            return;
        }
        if (!base::ReadFileToString(manifestPath, &text)) {
            Add(file, "",
                std::string("unreadable: ") +
                    (root.ReferencesParent()
                         ? "the kit reads no path with a \"..\" part and passes over the bundle"
                         : kBundlePassedOver));
            return;
        }
        std::string problem;
        std::unique_ptr<Value> value = ParseJson(text, &problem);
        if (!value) {
            Add(file, "", problem + ": " + kBundlePassedOver);
            return;
        }
        const DictionaryValue* manifest = nullptr;
        if (!value->GetAsDictionary(&manifest)) {
            Add(file, "", std::string("root is not an object: ") + kBundlePassedOver);
            return;
        }
        CheckManifest(*manifest, root, folder, file);
    }

    void CheckManifest(const DictionaryValue& manifest, const base::FilePath& root,
                       const std::string& folder, const std::string& file) {
        for (const char* key : {"id", "version", "foundationVersion", "mainEntry", "libFileMD5",
                                "signMD5", "BundleClassId"}) {
            Optional(file, manifest, key, "", Value::TYPE_STRING, "the kit takes the empty text");
        }
        std::string id;
        std::string version;
        std::string foundation;
        std::string mainEntry;
        manifest.GetString("id", &id);
        manifest.GetString("version", &version);
        manifest.GetString("foundationVersion", &foundation);
        manifest.GetString("mainEntry", &mainEntry);
        if (!version.empty() && base::Version::Parse(version).empty()) {
            Add(file, "version", Quoted(version) + " is not a version: the kit reads no numbers");
        }
        const std::vector<uint32_t> required = base::Version::Parse(foundation);
        if (!foundation.empty() && required.empty()) {
            Add(file, "foundationVersion",
                Quoted(foundation) +
                    " is not a version: the kit lets the bundle run on every foundation");
        }
        bool inForce = true;
        if (options_.hasFoundation &&
            !qzextensionkit::FoundationVersionFits(required, options_.foundation)) {
            inForce = false;
            Add(file, "foundationVersion",
                Quoted(foundation) + " is above the foundation " + options_.foundationText +
                    ": the kit keeps the bundle but none of its extensions");
        }
        // Without a library the bundle has no entry object to build, and its
        // extensions come from creators the host registers.
        if (!mainEntry.empty()) {
            if (!base::PathExists(root.Append(base::UTF8ToWide(mainEntry)))) {
                Add(file, "mainEntry",
                    "no file " + folder + "/" + Slashed(mainEntry) +
                        ": the kit fails to load the bundle");
            }
            CheckBundleClassId(manifest, file);
        }
        CheckExtensionPoints(manifest, file, id == kAdapterBundleId, inForce);
    }

    // An empty class id is a library without an entry object, which the
    // kit accepts; any other text has to be a braced class id.
    void CheckBundleClassId(const DictionaryValue& manifest, const std::string& file) {
        std::string classId;
        if (!manifest.GetString("BundleClassId", &classId) || classId.empty()) {
            return;
        }
        if (classId.size() != 38) {
            Add(file, "BundleClassId",
                std::to_string(classId.size()) + " characters, not 38: " + kNoEntryObject);
        } else if (!IsBracedClassId(classId)) {
            Add(file, "BundleClassId", std::string("not a class id in braces: ") + kNoEntryObject);
        }
    }

    void CheckExtensionPoints(const DictionaryValue& manifest, const std::string& file,
                              bool adapterBundle, bool inForce) {
        const Value* value = Find(manifest, "extensionPoints");
        const ListValue* points = nullptr;
        if (!value) {
            return;
        }
        if (!value->GetAsList(&points)) {
            Add(file, "extensionPoints", "not a list: the kit reads no extension points");
            return;
        }
        for (std::size_t i = 0; i < points->GetSize(); ++i) {
            const std::string path = Item("extensionPoints", i);
            const DictionaryValue* point = nullptr;
            std::string pointId;
            if (!points->GetDictionary(i, &point)) {
                Add(file, path, std::string("not an object: ") + kPassesOver);
                continue;
            }
            if (!Required(file, *point, "id", path,
                          "the kit passes over the extension point and its extensions", false,
                          &pointId)) {
                continue;
            }
            Optional(file, *point, "iid", path, Value::TYPE_STRING, "the kit takes the empty text");
            if (inForce) {
                if (seenPoints_.insert(pointId).second) {
                    sourcePoints_.push_back(pointId);
                }
                if (adapterBundle) {
                    adapterPoints_.insert(pointId);
                }
            }
            const Value* extensions = Find(*point, "extensions");
            const ListValue* list = nullptr;
            if (extensions && !extensions->GetAsList(&list)) {
                Add(file, Member(path, "extensions"), "not a list: the kit reads no extensions");
            }
            for (std::size_t j = 0; list && j < list->GetSize(); ++j) {
                const Value* item = nullptr;
                list->Get(j, &item);
                CheckExtension(*item, file, Item(Member(path, "extensions"), j), pointId, inForce);
            }
        }
    }

    void CheckExtension(const Value& value, const std::string& file, const std::string& path,
                        const std::string& pointId, bool inForce) {
        const DictionaryValue* extension = nullptr;
        std::string id;
        if (!value.GetAsDictionary(&extension)) {
            Add(file, path, std::string("not an object: ") + kPassesOver);
            return;
        }
        if (!Required(file, *extension, "id", path, "the kit leaves a null entry", false, &id)) {
            return;
        }
        for (const char* key : {"version", "clsid", "unifiedId"}) {
            Optional(file, *extension, key, path, Value::TYPE_STRING,
                     "the kit takes the empty text");
        }
        for (const char* key : {"iid", "extensionPointId"}) {
            if (Find(*extension, key)) {
                Add(file, Member(path, key), "ignored: the kit takes it from the extension point");
            }
        }
        Optional(file, *extension, "isSingleton", path, Value::TYPE_BOOLEAN, "the kit takes true");
        CheckPayloads(*extension, file, path);
        CheckConstraints(*extension, file, path);
        CheckSettingMap(*extension, file, path);
        if (!inForce) {
            return;
        }
        // The table of extensions in force keeps the first record of an id
        // in each extension point, across bundles.
        std::map<std::string, std::string>& kept = keptIds_[pointId];
        auto earlier = kept.find(id);
        if (earlier != kept.end()) {
            Add(file, path,
                "id " + Quoted(id) + " again in extension point " + Quoted(pointId) +
                    ": the kit keeps the first (" + earlier->second + ") and drops this one");
            return;
        }
        kept.emplace(id, file + ": " + path);
        // What the records derived from this one lose, should the mapping
        // send its extension point to the adapter.
        const DictionaryValue* payloads = nullptr;
        if (!extension->GetDictionary("payloads", &payloads)) {
            return;
        }
        std::vector<LintFinding>& losses = derivationLosses_[pointId];
        const std::string payloadsPath = Member(path, "payloads");
        std::string mark;
        if (payloads->GetString("extensionId", &mark) && !mark.empty()) {
            losses.push_back({file, Member(payloadsPath, "extensionId"),
                              "marks the record as derived: the kit derives no record from it"});
            return;
        }
        for (const auto& payload : *payloads) {
            std::string text;
            if (payload.first.find('.') != std::string::npos &&
                payload.second->GetAsString(&text) && !text.empty()) {
                losses.push_back({file, Member(payloadsPath, payload.first),
                                  "key holds \".\": the kit leaves this payload out of the "
                                  "record it derives"});
            }
        }
    }

    void CheckPayloads(const DictionaryValue& extension, const std::string& file,
                       const std::string& path) {
        const Value* value = Find(extension, "payloads");
        const DictionaryValue* payloads = nullptr;
        const std::string payloadsPath = Member(path, "payloads");
        if (value && !value->GetAsDictionary(&payloads)) {
            Add(file, payloadsPath, "not an object: the kit keeps no payloads");
        }
        if (!payloads) {
            return;
        }
        for (const auto& payload : *payloads) {
            std::string text;
            if (!payload.second->GetAsString(&text)) {
                Add(file, Member(payloadsPath, payload.first),
                    "not a string: the kit leaves the payload out");
            } else if (text.empty()) {
                Add(file, Member(payloadsPath, payload.first),
                    "empty: the kit leaves the payload out");
            }
        }
    }

    void CheckConstraints(const DictionaryValue& extension, const std::string& file,
                          const std::string& path) {
        const Value* value = Find(extension, "constraints");
        const ListValue* constraints = nullptr;
        const std::string listPath = Member(path, "constraints");
        if (value && !value->GetAsList(&constraints)) {
            Add(file, listPath, "not a list: the kit keeps no constraints");
        }
        std::map<std::string, std::string> kept;
        for (std::size_t i = 0; constraints && i < constraints->GetSize(); ++i) {
            const std::string itemPath = Item(listPath, i);
            const DictionaryValue* constraint = nullptr;
            if (!constraints->GetDictionary(i, &constraint)) {
                Add(file, itemPath, std::string("not an object: ") + kPassesOver);
                continue;
            }
            std::string key;
            const Value* keyValue = Find(*constraint, "key");
            if (!keyValue) {
                Add(file, itemPath, "no \"key\": the kit files the values under the empty key");
            } else if (!keyValue->GetAsString(&key)) {
                Add(file, Member(itemPath, "key"),
                    "not a string: the kit files the values under the empty key");
            }
            const Value* values = Find(*constraint, "value");
            const ListValue* list = nullptr;
            if (!values) {
                Add(file, itemPath, "no \"value\": the kit keeps the constraint with no values");
            } else if (!values->GetAsList(&list)) {
                Add(file, Member(itemPath, "value"),
                    "not a list: the kit keeps the constraint with no values");
            }
            for (std::size_t j = 0; list && j < list->GetSize(); ++j) {
                std::string text;
                if (!list->GetString(j, &text)) {
                    Add(file, Item(Member(itemPath, "value"), j),
                        std::string("not a string: the kit leaves it out"));
                }
            }
            auto earlier = kept.find(key);
            if (earlier != kept.end()) {
                Add(file, itemPath,
                    "key " + Quoted(key) + " again: the kit keeps " + earlier->second +
                        " and drops this one");
            } else {
                kept.emplace(key, itemPath);
            }
        }
    }

    void CheckSettingMap(const DictionaryValue& extension, const std::string& file,
                         const std::string& path) {
        const Value* value = Find(extension, "settingMap");
        const DictionaryValue* settings = nullptr;
        const std::string mapPath = Member(path, "settingMap");
        if (!value) {
            return;
        }
        if (!value->GetAsDictionary(&settings)) {
            Add(file, mapPath, "not an object: the kit keeps an empty setting map");
            return;
        }
        // The manifest's reader takes a setting map only whole.
        std::string missing;
        for (const char* key : {"modalPosition", "modalSize", "host", "uri", "openType"}) {
            std::string text;
            if (!settings->GetString(key, &text)) {
                missing += (missing.empty() ? "" : ", ") + Quoted(key);
            }
        }
        if (!missing.empty()) {
            Add(file, mapPath, "missing " + missing + ": the kit keeps an empty setting map");
        }
    }

    void CheckMappingEntries(const DictionaryValue& mapping) {
        for (const std::string& pointId : sourcePoints_) {
            const DictionaryValue* entry = nullptr;
            // The kit's path lookup: "a.b" is "b" inside "a".
            if (!mapping.GetDictionary(pointId, &entry)) {
                continue;
            }
            std::string path;
            for (std::size_t start = 0;;) {
                std::size_t dot = pointId.find('.', start);
                path = Member(path, pointId.substr(start, dot - start));
                if (dot == std::string::npos) {
                    break;
                }
                start = dot + 1;
            }
            const std::string noRecords =
                "the kit derives no records from extension point " + Quoted(pointId);
            const Value* target = Find(*entry, "extensionPointId");
            std::string targetId;
            bool derives = false;
            if (!target) {
                Add(kMappingFile, path, "no \"extensionPointId\": " + noRecords);
            } else if (!target->GetAsString(&targetId)) {
                Add(kMappingFile, Member(path, "extensionPointId"), "not a string: " + noRecords);
            } else if (adapterPoints_.count(targetId) == 0) {
                Add(kMappingFile, Member(path, "extensionPointId"),
                    "no extension point " + Quoted(targetId) + " in a bundle with id " +
                        Quoted(kAdapterBundleId) + ": " + noRecords);
            } else if (targetId == pointId) {
                Add(kMappingFile, Member(path, "extensionPointId"),
                    "names its own extension point: the kit drops the records it derives");
            } else {
                derives = true;
            }
            for (const char* key : {"version", "clsid", "iid"}) {
                Optional(kMappingFile, *entry, key, path, Value::TYPE_STRING,
                         "the kit gives derived records the empty text");
            }
            Optional(kMappingFile, *entry, "isSingleton", path, Value::TYPE_BOOLEAN,
                     "the kit takes false");
            if (derives) {
                for (const LintFinding& loss : derivationLosses_[pointId]) {
                    findings_.push_back(loss);
                }
            }
        }
    }

    const LintOptions& options_;
    const base::FilePath hostDir_;
    const base::FilePath extensionsDir_;
    std::vector<LintFinding> findings_;
    // Extension points of the bundles in force, in the order the kit
    // collects them, and those of the adapter bundle.
    std::vector<std::string> sourcePoints_;
    std::set<std::string> seenPoints_;
    std::set<std::string> adapterPoints_;
    // Extension point id to extension id to where its kept record stands.
    std::map<std::string, std::map<std::string, std::string>> keptIds_;
    // Extension point id to what its records lose when they are derived.
    std::map<std::string, std::vector<LintFinding>> derivationLosses_;
};

}  // namespace

std::vector<LintFinding> LintInstallation(const LintOptions& options) {
    return Linter(options).Run();
}

}  // namespace qzekit
