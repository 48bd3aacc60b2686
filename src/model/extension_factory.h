#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"

namespace qzextensionkit {

class Extension;
struct SettingMap;

// Builds, copies and merges extension records.
class QZEKIT_EXPORT ExtensionFactory {
public:
    ExtensionFactory();
    ~ExtensionFactory();

    // A record with no extension point: everything resolved through a point
    // (interface id, library, root, digests) reads as empty, and it is not
    // native. version and clsid are empty, isSingleton false.
    static std::shared_ptr<Extension> createExtension(
        const std::string& id, const std::string& extensionPointId,
        std::map<std::string, std::string>& payloads,
        std::map<std::string, std::vector<std::string>>& constraints, const SettingMap& settingMap,
        const std::string& unifiedId);

    // Stores a new copy of `source` in `*copy`, which the caller then owns.
    // The copy shares the borrowed extension point and holds the resolved
    // resources path in its own field. A source that is not one of the kit's
    // own records (null included) leaves `*copy` untouched.
    static void CopyExtension(Extension* source, Extension** copy);

    // When both records have the same id and `local` comes from a bundle with
    // a library, gives `remote` the local details of how to load the code:
    // version, extension point id, clsid, isSingleton, resources path and
    // the extension point itself. `remote` keeps its id, payloads,
    // constraints, setting map and unified id. `remote` must be one of the
    // kit's own records.
    static void ExtractLocalNativeExtensionInfoToRemote(Extension* remote, Extension* local);
};

// CopyExtension for the kit's own tables: the same copy, held by a shared
// pointer made in one allocation; null for a source that is not one of the
// kit's own records.
QZEKIT_EXPORT std::shared_ptr<Extension> CopyExtensionShared(Extension* source);

}  // namespace qzextensionkit
