#include "services/notification_registrar.h"

#include <algorithm>
#include <cstdint>

#include "kit/service_manager.h"

namespace qzextensionkit {

namespace {

// The service as the manager hands it out. The reference it carries is not
// given back: the service lives to the end of the process.
QZNotificationService* FetchService() {
    IQZNotificationService* service =
        QZServiceManager::GetInstance()->GetService<IQZNotificationService>(
            kNotificationServiceName);
    return static_cast<QZNotificationService*>(service);
}

// A source with the recorded key; the service looks at nothing else. Not a
// Source<void>: a second, hidden instantiation here would hide the exported
// one on Linux.
class KeySource : public QZNotificationSource {
public:
    explicit KeySource(unsigned int key)
        : QZNotificationSource(reinterpret_cast<const void*>(static_cast<std::uintptr_t>(key))) {}
};

}  // namespace

QZNotificationRegistrar::QZNotificationRegistrar() {
    // Makes the service exist before the first Add.
    FetchService();
}

QZNotificationRegistrar::~QZNotificationRegistrar() {
    RemoveAll();
}

std::vector<QZNotificationRegistrar::Record>::iterator QZNotificationRegistrar::Find(
    QZNotificationObserver* observer, int type, unsigned int sourceKey) {
    return std::find_if(records_.begin(), records_.end(), [&](const Record& r) {
        return r.observer == observer && r.type == type && r.sourceKey == sourceKey;
    });
}

void QZNotificationRegistrar::Add(QZNotificationObserver* observer, int type,
                                  const QZNotificationSource& source) {
    const unsigned int key = source.map_key();
    if (Find(observer, type, key) != records_.end()) {
        return;
    }
    records_.push_back(Record{observer, type, key});
    // Without a service (no InitSDK yet) the triple stays recorded only.
    if (QZNotificationService* service = FetchService()) {
        service->AddObserver(observer, type, source);
    }
}

void QZNotificationRegistrar::Remove(QZNotificationObserver* observer, int type,
                                     const QZNotificationSource& source) {
    auto it = Find(observer, type, source.map_key());
    if (it == records_.end()) {
        return;
    }
    records_.erase(it);
    if (QZNotificationService* service = FetchService()) {
        service->RemoveObserver(observer, type, source);
    }
}

void QZNotificationRegistrar::RemoveAll() {
    if (records_.empty()) {
        return;
    }
    if (QZNotificationService* service = FetchService()) {
        for (const Record& r : records_) {
            service->RemoveObserver(r.observer, r.type, KeySource(r.sourceKey));
        }
    }
    records_.clear();
}

bool QZNotificationRegistrar::IsEmpty() const {
    return records_.empty();
}

bool QZNotificationRegistrar::IsRegistered(QZNotificationObserver* observer, int type,
                                           const QZNotificationSource& source) const {
    const unsigned int key = source.map_key();
    return std::any_of(records_.begin(), records_.end(), [&](const Record& r) {
        return r.observer == observer && r.type == type && r.sourceKey == key;
    });
}

}  // namespace qzextensionkit
