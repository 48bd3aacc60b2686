#pragma once

// Reading a bundle's manifest.json into records, and the two readers of an
// extension dictionary. Nothing here logs: a failure is a false result or a
// key left at its default, and the caller decides what to say.
//
// Internal to the kit. Exported so that the test programs, which link the
// kit as a shared library, can call them.

#include <cstdint>
#include <vector>

#include "base/files/file_path.h"
#include "platform/export.h"

namespace base {
class DictionaryValue;
}  // namespace base

namespace qzextensionkit {

class Artifact;
class Extension;
class ExtensionPoint;

// Reads `root`\manifest.json. False when the directory or the file is
// missing, unreadable or not JSON, or `artifact` is null. True with
// `*artifact` untouched when the JSON root is not an object: the caller's
// variable stays as it was (null, usually). Otherwise the result of
// ParseArtifact; the new artifact then belongs to the caller.
QZEKIT_EXPORT bool ReadManifest(const base::FilePath& root, Artifact** artifact);

// Builds the artifact from a parsed manifest root. `*artifact` is set as soon
// as the artifact exists. False only for a null `manifest`.
QZEKIT_EXPORT bool ParseArtifact(const base::FilePath& root, base::DictionaryValue* manifest,
                                 Artifact** artifact);

// Builds one extension point of `owner` with its records. False, with
// `*point` untouched, when `item` or `point` is null or "id" is missing.
QZEKIT_EXPORT bool ParseExtensionPoint(Artifact* owner, base::DictionaryValue* item,
                                       ExtensionPoint** point);

// The strict reader, for extensions inside a manifest. `item` stays the
// caller's. A "settingMap" missing any of its five keys leaves the setting
// map empty. `point` must not be null.
QZEKIT_EXPORT bool ParseManifestExtension(ExtensionPoint* point, base::DictionaryValue* item,
                                          Extension** extension);

// The forgiving reader, for extensions that arrive as a dictionary (remote
// and debug configuration). Takes ownership of `item` and deletes it on
// every path. A "settingMap" with any of its five keys gives a setting map
// with the others empty. `point` must not be null.
QZEKIT_EXPORT bool ParseExtensionDictionary(ExtensionPoint* point, base::DictionaryValue* item,
                                            Extension** extension);

// Whether a bundle that asks for foundation version `required` may run on
// foundation version `foundation` (both as number lists, empty when unset or
// invalid): `required` must compare less than or equal. An empty or all-zero
// `required` fits everything.
QZEKIT_EXPORT bool FoundationVersionFits(const std::vector<uint32_t>& required,
                                         const std::vector<uint32_t>& foundation);

}  // namespace qzextensionkit
