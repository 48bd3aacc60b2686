#include "model/extension_factory.h"

#include "model/extension.h"
#include "model/extension_impl.h"
#include "model/setting_map.h"

namespace qzextensionkit {

ExtensionFactory::ExtensionFactory() = default;
ExtensionFactory::~ExtensionFactory() = default;

std::shared_ptr<Extension> ExtensionFactory::createExtension(
    const std::string& id, const std::string& extensionPointId,
    std::map<std::string, std::string>& payloads,
    std::map<std::string, std::vector<std::string>>& constraints, const SettingMap& settingMap,
    const std::string& unifiedId) {
    auto record = std::make_shared<ExtensionImpl>();
    record->SetId(id);
    record->SetExtensionPointId(extensionPointId);
    record->SetPayloads(payloads);
    record->SetConstraints(constraints);
    record->SetSettingMap(settingMap);
    record->SetUnifiedId(unifiedId);
    return record;
}

void ExtensionFactory::CopyExtension(Extension* source, Extension** copy) {
    auto* original = dynamic_cast<ExtensionImpl*>(source);
    if (!original || !copy) {
        return;
    }
    // The same values the getters give, with the resources path resolved;
    // the data itself is shared until one of the two records changes.
    auto record = original->Copy();
    *copy = record.release();
}

std::shared_ptr<Extension> CopyExtensionShared(Extension* source) {
    auto* original = dynamic_cast<ExtensionImpl*>(source);
    return original ? original->CopyShared() : nullptr;
}

void ExtensionFactory::ExtractLocalNativeExtensionInfoToRemote(Extension* remote,
                                                               Extension* local) {
    auto* target = dynamic_cast<ExtensionImpl*>(remote);
    auto* origin = dynamic_cast<ExtensionImpl*>(local);
    if (!target || !origin) {
        return;
    }
    if (remote->GetId() != local->GetId()) {
        return;
    }
    if (!local->IsNative()) {
        return;
    }
    // How to load the code comes from the local bundle; what the server said
    // about the extension (id, payloads, constraints, settings, unified id)
    // stays.
    target->SetVersion(local->GetVersion());
    target->SetExtensionPointId(local->GetExtensionPointId());
    target->SetClsid(local->GetClsid());
    target->SetSingleton(local->IsSingleton());
    target->SetResourcesPath(local->GetResourcesPath());
    target->SetExtensionPoint(origin->GetExtensionPoint());
}

}  // namespace qzextensionkit
