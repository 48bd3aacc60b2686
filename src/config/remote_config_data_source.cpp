#include "config/remote_config_data_source.h"

namespace qzextensionkit {

IQZERemoteConfigDataSource::IQZERemoteConfigDataSource() = default;
IQZERemoteConfigDataSource::IQZERemoteConfigDataSource(const IQZERemoteConfigDataSource&) = default;
IQZERemoteConfigDataSource& IQZERemoteConfigDataSource::operator=(
    const IQZERemoteConfigDataSource&) = default;
IQZERemoteConfigDataSource::~IQZERemoteConfigDataSource() = default;

}  // namespace qzextensionkit
