#include "model/setting_map.h"

#include <utility>

namespace qzextensionkit {

SettingMap::SettingMap() = default;

SettingMap::SettingMap(const std::string& modalPosition, const std::string& modalSize,
                       const std::string& url, const std::string& openType, const std::string& host,
                       const std::string& uri)
    : modalPosition(modalPosition),
      modalSize(modalSize),
      url(url),
      openType(openType),
      host(host),
      uri(uri) {}

SettingMap::SettingMap(const SettingMap& other) = default;
SettingMap::SettingMap(SettingMap&& other) = default;
SettingMap::~SettingMap() = default;
SettingMap& SettingMap::operator=(const SettingMap& other) = default;
SettingMap& SettingMap::operator=(SettingMap&& other) = default;

}  // namespace qzextensionkit
