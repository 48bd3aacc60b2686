#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "platform/export.h"

namespace qzextensionkit {

class Extension;
class QZExtensionAuthInfo;

// Implemented by the host, which does the network work and hands the kit
// ready-made records. The kit decides when to ask and merges the records
// over its local tables. The order of the operations is binary interface.
class QZEKIT_EXPORT IQZERemoteConfigDataSource {
public:
    IQZERemoteConfigDataSource();
    IQZERemoteConfigDataSource(const IQZERemoteConfigDataSource& other);
    IQZERemoteConfigDataSource& operator=(const IQZERemoteConfigDataSource& other);
    virtual ~IQZERemoteConfigDataSource();

    // Starts a fetch and calls exactly one of the two when it ends, on any
    // thread, possibly before returning. The functions are valid only for
    // this call: a source that answers later keeps copies.
    virtual void FetchConfig(const std::function<void()>& onSuccess,
                             const std::function<void(const std::string&)>& onFailure) = 0;
    // Fills the two containers with the present remote data: extension point
    // id to records (made with ExtensionFactory::createExtension), and auth
    // records. The containers are the kit's own and keep what an earlier
    // call left in them.
    virtual void GetConfig(std::map<std::string, std::list<std::shared_ptr<Extension>>>& extensions,
                           std::list<std::shared_ptr<QZExtensionAuthInfo>>& authInfos) = 0;
    // After a successful fetch: is there fresh data to take?
    virtual bool HasFetchedConfig() = 0;
    // Is there stored data to take without a fetch?
    virtual bool HasCachedConfig() = 0;
};

}  // namespace qzextensionkit
