// Writes arbitrary bytes as the manifest.json of a bundle folder and reads the
// bundle, then checks what must hold for any manifest: the result agrees with
// what the JSON reader makes of the bytes, every record resolves through its
// own extension point and artifact, copies read the same as their source,
// and both extension readers agree on everything but the setting map.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <system_error>

#include "base/files/file_path.h"
#include "base/json/json_reader.h"
#include "base/utf_string_conversions.h"
#include "base/values.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "model/extension_impl.h"
#include "model/extension_point.h"
#include "model/extension_point_impl.h"
#include "model/manifest.h"

using namespace qzextensionkit;

namespace {

void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

// One bundle folder for the whole run, removed at exit.
struct Bundle {
    Bundle() {
        std::random_device random;
        dir = std::filesystem::temp_directory_path() /
              ("qzekit_manifest_fuzz_" + std::to_string(random()) + std::to_string(random()));
        std::filesystem::create_directories(dir);
#if defined(_WIN32)
        root = base::FilePath(dir.wstring());
#else
        root = base::FilePath(base::UTF8ToWide(dir.string()));
#endif
    }
    ~Bundle() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    std::filesystem::path dir;
    base::FilePath root;
};

Bundle& TheBundle() {
    static Bundle bundle;
    return bundle;
}

bool SameRecord(const Extension& a, const Extension& b) {
    return a.GetId() == b.GetId() && a.GetVersion() == b.GetVersion() &&
           a.GetExtensionPointId() == b.GetExtensionPointId() && a.GetIid() == b.GetIid() &&
           a.GetClsid() == b.GetClsid() && a.GetPayloads() == b.GetPayloads() &&
           a.GetMainEntry() == b.GetMainEntry() && a.GetConstraints() == b.GetConstraints() &&
           a.GetRootPath() == b.GetRootPath() && a.GetResourcesPath() == b.GetResourcesPath() &&
           a.IsSingleton() == b.IsSingleton() && a.GetLibFileMD5() == b.GetLibFileMD5() &&
           a.GetSignMD5() == b.GetSignMD5() && a.GetBundleClassId() == b.GetBundleClassId() &&
           a.IsNative() == b.IsNative() && a.GetUnifiedId() == b.GetUnifiedId();
}

bool EmptySetting(const SettingMap& s) {
    return s.modalPosition.empty() && s.modalSize.empty() && s.url.empty() && s.openType.empty() &&
           s.host.empty() && s.uri.empty();
}

void CheckRecord(Extension* record, ExtensionPoint* point, const Artifact& artifact) {
    auto* impl = dynamic_cast<ExtensionImpl*>(record);
    Check(impl != nullptr && impl->GetExtensionPoint() == point);
    Check(record->GetExtensionPointId() == point->GetId());
    Check(record->GetIid() == point->GetIid());
    Check(record->GetMainEntry() == artifact.GetMainEntry());
    Check(record->IsNative() == !artifact.GetMainEntry().empty());
    Check(record->GetRootPath() == artifact.GetRootPath());
    Check(record->GetResourcesPath() == artifact.GetResourcesPath());
    SettingMap setting = record->GetSettingMap();
    Check(setting.url == setting.host + setting.uri);
    for (const auto& payload : record->GetPayloads()) {
        Check(!payload.second.empty());
    }

    Extension* copy = nullptr;
    ExtensionFactory::CopyExtension(record, &copy);
    Check(copy != nullptr);
    std::unique_ptr<Extension> owned(copy);
    Check(SameRecord(*record, *copy));
}

// Runs the forgiving reader on a copy of an extension object that the strict
// reader has read, and compares the two records.
void CheckReadersAgree(ExtensionPoint* point, const base::DictionaryValue& item,
                       Extension* strict) {
    Extension* raw = nullptr;
    bool made = ParseExtensionDictionary(point, item.CreateDeepCopy().release(), &raw);
    std::unique_ptr<Extension> forgiving(raw);
    Check(made == (strict != nullptr) && made == (raw != nullptr));
    if (!strict) {
        return;
    }
    Check(forgiving->GetId() == strict->GetId() &&
          forgiving->GetPayloads() == strict->GetPayloads() &&
          forgiving->GetConstraints() == strict->GetConstraints() &&
          forgiving->IsSingleton() == strict->IsSingleton() &&
          forgiving->GetUnifiedId() == strict->GetUnifiedId());
    // The strict setting map is all or nothing; when it is there the
    // forgiving one is the same.
    SettingMap s = strict->GetSettingMap();
    SettingMap f = forgiving->GetSettingMap();
    const base::DictionaryValue* setting = nullptr;
    bool allKeys = item.GetDictionary("settingMap", &setting);
    for (const char* key : {"modalPosition", "modalSize", "host", "uri", "openType"}) {
        allKeys = allKeys && setting->GetString(key, static_cast<std::string*>(nullptr));
    }
    if (!allKeys) {
        Check(EmptySetting(s));
    }
    if (!EmptySetting(s)) {
        Check(s.modalPosition == f.modalPosition && s.modalSize == f.modalSize && s.url == f.url &&
              s.openType == f.openType && s.host == f.host && s.uri == f.uri);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Bundle& bundle = TheBundle();
    {
        std::ofstream out(bundle.dir / "manifest.json", std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    std::unique_ptr<base::Value> parsed =
        base::JSONReader::Read(reinterpret_cast<const char*>(data), size);

    Artifact* raw = nullptr;
    bool result = ReadManifest(bundle.root, &raw);
    std::unique_ptr<Artifact> artifact(raw);
    Check(result == (parsed != nullptr));
    Check((artifact != nullptr) == (parsed && parsed->IsType(base::Value::TYPE_DICTIONARY)));
    if (!artifact) {
        return 0;
    }
    Check(artifact->GetRootPath() == bundle.root);
    Check(artifact->GetResourcesPath() == bundle.root.value() + L"\\resources");

    // Walk the points and records next to the objects they came from.
    const base::DictionaryValue* manifest = nullptr;
    Check(parsed->GetAsDictionary(&manifest));
    const base::ListValue* pointItems = nullptr;
    manifest->GetList("extensionPoints", &pointItems);
    std::list<ExtensionPoint*> points;
    Check(artifact->GetExtensionPoints(points));
    auto nextPoint = points.begin();
    for (std::size_t i = 0; pointItems && i < pointItems->GetSize(); ++i) {
        const base::DictionaryValue* pointItem = nullptr;
        if (!pointItems->GetDictionary(i, &pointItem) ||
            !pointItem->GetString("id", static_cast<std::string*>(nullptr))) {
            continue;
        }
        Check(nextPoint != points.end());
        ExtensionPoint* point = *nextPoint++;
        Check(point != nullptr);
        Check(static_cast<ExtensionPointImpl*>(point)->GetArtifact() == artifact.get());
        std::list<Extension*> records;
        Check(point->GetExtensions(records));
        const base::ListValue* items = nullptr;
        pointItem->GetList("extensions", &items);
        auto nextRecord = records.begin();
        for (std::size_t j = 0; items && j < items->GetSize(); ++j) {
            const base::DictionaryValue* item = nullptr;
            if (!items->GetDictionary(j, &item)) {
                continue;
            }
            Check(nextRecord != records.end());
            Extension* record = *nextRecord++;
            Check((record != nullptr) == item->GetString("id", static_cast<std::string*>(nullptr)));
            if (record) {
                CheckRecord(record, point, *artifact);
            }
            CheckReadersAgree(point, *item, record);
        }
        Check(nextRecord == records.end());
    }
    Check(nextPoint == points.end());
    return 0;
}
