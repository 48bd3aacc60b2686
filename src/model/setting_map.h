#pragma once

#include <string>

#include "platform/export.h"

namespace qzextensionkit {

// Window and address settings of an extension. `url` is `host` followed
// directly by `uri`, worked out once when the record is read; assigning
// `host` or `uri` later does not change it.
struct QZEKIT_EXPORT SettingMap {
    SettingMap();
    SettingMap(const std::string& modalPosition, const std::string& modalSize,
               const std::string& url, const std::string& openType, const std::string& host,
               const std::string& uri);
    SettingMap(const SettingMap& other);
    SettingMap(SettingMap&& other);
    ~SettingMap();
    SettingMap& operator=(const SettingMap& other);
    SettingMap& operator=(SettingMap&& other);

    std::string modalPosition;
    std::string modalSize;
    std::string url;
    std::string openType;
    std::string host;
    std::string uri;
};

}  // namespace qzextensionkit
