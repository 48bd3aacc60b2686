#include "model/extension.h"

namespace qzextensionkit {

Extension::Extension() = default;
Extension::Extension(const Extension&) = default;
Extension& Extension::operator=(const Extension&) = default;
Extension::~Extension() = default;

}  // namespace qzextensionkit
