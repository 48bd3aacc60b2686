#pragma once

#include <string>

#include "model/extension.h"
#include "model/setting_map.h"

namespace qzetest {

// version|clsid|1 or 0 (singleton)|payloads|constraints|unifiedId|
// modalPosition,modalSize,url,openType,host,uri of one record.
inline std::string Describe(const qzextensionkit::Extension& record) {
    std::string text =
        record.GetVersion() + "|" + record.GetClsid() + (record.IsSingleton() ? "|1|" : "|0|");
    for (auto& payload : record.GetPayloads()) {
        text += payload.first + "=" + payload.second + ";";
    }
    text += "|";
    for (auto& constraint : record.GetConstraints()) {
        text += constraint.first + ":";
        for (auto& value : constraint.second) {
            text += value + ",";
        }
        text += ";";
    }
    qzextensionkit::SettingMap s = record.GetSettingMap();
    return text + "|" + record.GetUnifiedId() + "|" + s.modalPosition + "," + s.modalSize + "," +
           s.url + "," + s.openType + "," + s.host + "," + s.uri;
}

}  // namespace qzetest
