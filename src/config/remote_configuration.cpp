// Remote configuration fed by the host, and the lookups over the access keys.

#include <memory>
#include <mutex>
#include <utility>

#include "base/values.h"
#include "config/configuration_manager_impl.h"
#include "config/extension_auth_info.h"
#include "config/remote_config_data_source.h"
#include "kit/log_service.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "util/url_parser.h"

namespace qzextensionkit {

namespace {

using Hold = std::lock_guard<platform::RecursiveLock>;

QZELogService* Log() {
    return QZELogService::GetInstance();
}

const char kAppNamePrefix[] = "appName_";

// Frees a parser from QZEUrlParser::parseUrl when the scope ends.
struct ParsedUrl {
    explicit ParsedUrl(const std::string& url) : parser(QZEUrlParser::parseUrl(url)) {}
    ~ParsedUrl() { QZEUrlParser::destroy(&parser); }
    ParsedUrl(const ParsedUrl&) = delete;
    ParsedUrl& operator=(const ParsedUrl&) = delete;
    QZEUrlParser* parser;
};

// The name after "appName_" in the first segment of a path such as
// "/appName_x/..."; empty when there is no such segment or no name.
std::string AppNameOf(const std::string& path) {
    if (path.empty() || path[0] != '/') {
        return std::string();
    }
    std::size_t second = path.find('/', 1);
    if (second == std::string::npos) {
        return std::string();
    }
    std::string segment = path.substr(1, second - 1);
    const std::size_t prefixLength = sizeof(kAppNamePrefix) - 1;
    if (segment.size() <= prefixLength || segment.compare(0, prefixLength, kAppNamePrefix) != 0) {
        return std::string();
    }
    return segment.substr(prefixLength);
}

}  // namespace

void QZEConfigurationManagerImpl::SetRemoteConfigDataSource(
    std::shared_ptr<IQZERemoteConfigDataSource> dataSource) {
    remoteConfigDataSource = std::move(dataSource);
}

bool QZEConfigurationManagerImpl::LoadRemoteConfig() {
    std::shared_ptr<IQZERemoteConfigDataSource> source = remoteConfigDataSource;
    if (!source || !source->HasCachedConfig()) {
        return false;
    }
    Hold hold(lock);
    source->GetConfig(remoteExtensions, remoteAuthInfos);
    MergeRemoteConfig();
    return true;
}

void QZEConfigurationManagerImpl::FetchRemoteConfig(
    bool applyFetched, const std::function<void()>& onSuccess,
    const std::function<void(const std::string&)>& onFailure) {
    // A copy keeps the source alive for the call even if the host swaps it.
    std::shared_ptr<IQZERemoteConfigDataSource> source = remoteConfigDataSource;
    if (!source) {
        return;
    }
    // The manager lives to the end of the process, so the raw pointer stays
    // good for a completion on any thread at any time.
    QZEConfigurationManagerImpl* manager = this;
    std::function<void()> success = [applyFetched, manager, onSuccess]() {
        if (applyFetched) {
            std::shared_ptr<IQZERemoteConfigDataSource> current = manager->remoteConfigDataSource;
            // A source taken away meanwhile has nothing to give.
            if (current && current->HasFetchedConfig()) {
                Hold hold(manager->lock);
                current->GetConfig(manager->remoteExtensions, manager->remoteAuthInfos);
                manager->MergeRemoteConfig();
            }
        }
        // With the lock released, so that the host may call back in.
        if (onSuccess) {
            onSuccess();
        }
    };
    std::function<void(const std::string&)> failure = [onFailure](const std::string& reason) {
        if (onFailure) {
            onFailure(reason);
        }
    };
    source->FetchConfig(success, failure);
}

void QZEConfigurationManagerImpl::MergeRemoteConfig() {
    MergeRemoteExtensions();
    MergeRemoteAuthInfos();
}

void QZEConfigurationManagerImpl::MergeRemoteExtensions() {
    for (auto& entry : remoteExtensions) {
        base::DictionaryValue* mapping = GetAdapterMappingEntry(entry.first);
        if (!mapping) {
            // Only mapped points take remote records.
            continue;
        }
        std::string targetPointId;
        mapping->GetString("extensionPointId", &targetPointId);
        const ExtensionList& remoteList = entry.second;

        auto target = extensionTable.find(targetPointId);
        if (target != extensionTable.end()) {
            // A remote record with the id of a native local one runs from
            // that local bundle.
            for (auto& remote : remoteList) {
                for (auto& local : target->second) {
                    if (remote && local) {
                        ExtensionFactory::ExtractLocalNativeExtensionInfoToRemote(remote.get(),
                                                                                  local.get());
                    }
                }
            }
            // The remote list replaces the local one.
            EmptyExtensionList(targetPointId);
        }

        for (auto& remote : remoteList) {
            if (!remote) {
                continue;
            }
            if (remote->IsNative()) {
                auto one = std::make_unique<std::list<Extension*>>();
                one->push_back(remote.get());
                AddExtensionsToPoint(targetPointId, std::move(one));
            } else {
                AdaptExtension(remote.get());
            }
        }
    }
}

void QZEConfigurationManagerImpl::MergeRemoteAuthInfos() {
    for (auto& remote : remoteAuthInfos) {
        if (!remote) {
            continue;
        }
        const std::string bundleId = remote->GetBundleId();
        const std::string host = remote->GetHost();
        // The kit keeps its own copy, never the host's object.
        auto fresh = std::make_unique<QZExtensionAuthInfo>(host, bundleId, remote->GetAccessKey());
        bool replaced = false;
        for (auto& local : extensionAuthInfos) {
            if (local && local->GetBundleId() == bundleId && local->GetHost() == host) {
                local = std::move(fresh);
                replaced = true;
                break;
            }
        }
        if (!replaced) {
            extensionAuthInfos.push_back(std::move(fresh));
        }
    }
}

void QZEConfigurationManagerImpl::CheckAndFetchExtensionAuthInfo() {
    std::vector<std::string> bundleIds;
    for (auto& info : extensionAuthInfos) {
        if (info && info->GetAccessKey().empty()) {
            bundleIds.push_back(info->GetBundleId());
        }
    }
    if (bundleIds.empty()) {
        return;
    }
    Log()->LogMessage(0,
                      "configuration manager impl - total(%d) bundleIds were found without access "
                      "key",
                      static_cast<int>(bundleIds.size()));
    if (!fetchExtensionAuthInfoCallback) {
        return;
    }
    QZEConfigurationManagerImpl* manager = this;
    std::function<void(const std::map<std::string, std::string>&)> success =
        [manager](const std::map<std::string, std::string>& keys) {
            Log()->LogMessage(
                0, "configuration manager impl - fetch extension auth info success, total(%d)",
                static_cast<int>(keys.size()));
            for (auto& key : keys) {
                // Every record of the bundle, a key already present or not.
                for (auto& info : manager->extensionAuthInfos) {
                    if (info && info->GetBundleId() == key.first) {
                        info->SetAccessKey(key.second);
                    }
                }
            }
        };
    std::function<void(const std::string&)> failure = [](const std::string& reason) {
        Log()->LogMessage(0,
                          "configuration manager impl - fetch extension auth info failed, becuase "
                          "of %s",
                          reason.c_str());
    };
    fetchExtensionAuthInfoCallback(bundleIds, success, failure);
}

std::string QZEConfigurationManagerImpl::GetExtensionAccessKey(const std::string& bundleId) {
    Hold hold(lock);
    if (bundleId.empty()) {
        return std::string();
    }
    for (auto& info : extensionAuthInfos) {
        if (info && info->GetBundleId() == bundleId) {
            return info->GetAccessKey();
        }
    }
    return std::string();
}

std::string QZEConfigurationManagerImpl::GetH5ExtensionBundleId(const std::string& url) {
    Hold hold(lock);
    std::string result;
    if (url.empty()) {
        return result;
    }
    ParsedUrl page(url);
    const QZEUrlParser& asked = *page.parser;
    const std::string appName = AppNameOf(asked.path);

    for (auto& info : extensionAuthInfos) {
        if (!info) {
            continue;
        }
        ParsedUrl recordUrl(info->GetHost());
        const QZEUrlParser& record = *recordUrl.parser;
        // Native records have no host and never match.
        if (record.scheme.empty() || record.host.empty()) {
            continue;
        }
        if (asked.scheme != record.scheme || asked.host != record.host) {
            continue;
        }
        // A record without a port serves every port.
        if (!record.port.empty() && record.port != asked.port) {
            continue;
        }
        if (appName.empty()) {
            result = info->GetBundleId();
            break;
        }
        // With an application name the host alone is not enough.
        if (appName == info->GetBundleId()) {
            result = appName;
            break;
        }
    }
    return result;
}

}  // namespace qzextensionkit
