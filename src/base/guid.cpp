#include "base/guid.h"

#include "base/utf_string_conversions.h"
#include "platform/platform.h"

namespace base {

std::string GenerateGUID() {
    namespace platform = qzextensionkit::platform;
    by::GUID id;
    if (!platform::CreateGuid(&id)) {
        return std::string();
    }
    const std::wstring braced = platform::FormatGuid(id);
    if (braced.size() != 38) {
        return std::string();
    }
    return WideToUTF8(braced.substr(1, 36));
}

}  // namespace base
