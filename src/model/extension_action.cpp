#include "model/extension_action.h"

namespace qzextensionkit {

ExtensionActionContext& ExtensionActionContext::operator=(const ExtensionActionContext&) {
    return *this;
}
ExtensionActionContext& ExtensionActionContext::operator=(ExtensionActionContext&&) {
    return *this;
}

ExtensionUIActionContext& ExtensionUIActionContext::operator=(const ExtensionUIActionContext&) {
    return *this;
}
ExtensionUIActionContext& ExtensionUIActionContext::operator=(ExtensionUIActionContext&&) {
    return *this;
}

ExtensionJSAPIActionContext& ExtensionJSAPIActionContext::operator=(
    const ExtensionJSAPIActionContext&) {
    return *this;
}
ExtensionJSAPIActionContext& ExtensionJSAPIActionContext::operator=(ExtensionJSAPIActionContext&&) {
    return *this;
}

ExtensionAction::ExtensionAction() = default;
ExtensionAction::ExtensionAction(const ExtensionAction& other) = default;
ExtensionAction& ExtensionAction::operator=(const ExtensionAction& other) = default;
ExtensionAction::~ExtensionAction() = default;

}  // namespace qzextensionkit
