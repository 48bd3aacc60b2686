#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/export.h"

namespace qzextensionkit {

// The situations an action can run in. They carry nothing yet; they exist so
// that an action's operations can take them and grow later without changing
// the operations.
class ExtensionActionContext {
public:
    ExtensionActionContext() = default;
    ExtensionActionContext(const ExtensionActionContext& other) = default;
    ExtensionActionContext(ExtensionActionContext&& other) = default;
    QZEKIT_EXPORT ExtensionActionContext& operator=(const ExtensionActionContext& other);
    QZEKIT_EXPORT ExtensionActionContext& operator=(ExtensionActionContext&& other);
};

class ExtensionUIActionContext {
public:
    ExtensionUIActionContext() = default;
    ExtensionUIActionContext(const ExtensionUIActionContext& other) = default;
    ExtensionUIActionContext(ExtensionUIActionContext&& other) = default;
    QZEKIT_EXPORT ExtensionUIActionContext& operator=(const ExtensionUIActionContext& other);
    QZEKIT_EXPORT ExtensionUIActionContext& operator=(ExtensionUIActionContext&& other);
};

class ExtensionJSAPIActionContext {
public:
    ExtensionJSAPIActionContext() = default;
    ExtensionJSAPIActionContext(const ExtensionJSAPIActionContext& other) = default;
    ExtensionJSAPIActionContext(ExtensionJSAPIActionContext&& other) = default;
    QZEKIT_EXPORT ExtensionJSAPIActionContext& operator=(const ExtensionJSAPIActionContext& other);
    QZEKIT_EXPORT ExtensionJSAPIActionContext& operator=(ExtensionJSAPIActionContext&& other);
};

// Something an extension can do on request, described by a kind number and
// free text properties. The kit defines no action of its own; the order of
// the virtual operations is binary interface.
class QZEKIT_EXPORT ExtensionAction {
public:
    ExtensionAction();
    ExtensionAction(const ExtensionAction& other);
    ExtensionAction& operator=(const ExtensionAction& other);
    virtual ~ExtensionAction();

    // Whether the action can run now.
    virtual bool IsAvailable() const = 0;
    virtual bool Perform(ExtensionActionContext& context) = 0;
    // Run from the host's user interface.
    virtual bool PerformUIAction(ExtensionUIActionContext& context) = 0;
    // Run on behalf of a web page through its script interface.
    virtual bool PerformJSAPIAction(ExtensionJSAPIActionContext& context) = 0;

    int32_t GetKind() const { return kind_; }
    const std::map<std::string, std::string>& GetProperties() const { return properties_; }

protected:
    int32_t kind_ = -1;
    std::map<std::string, std::string> properties_;
};

}  // namespace qzextensionkit
