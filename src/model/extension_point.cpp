#include "model/extension_point.h"

namespace qzextensionkit {

ExtensionPoint::ExtensionPoint() = default;
ExtensionPoint::ExtensionPoint(const ExtensionPoint&) = default;
ExtensionPoint& ExtensionPoint::operator=(const ExtensionPoint&) = default;
ExtensionPoint::~ExtensionPoint() = default;

}  // namespace qzextensionkit
