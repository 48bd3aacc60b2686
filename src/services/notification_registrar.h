#pragma once

#include <vector>

#include "platform/export.h"
#include "services/notification_service.h"

namespace qzextensionkit {

// The one way to register an observer. It records what it added and removes
// it all on destruction, so an observer holding one as a member is removed
// before it goes. It fetches the service from the service manager for each
// change and keeps no pointer to it.
class QZEKIT_EXPORT QZNotificationRegistrar {
public:
    QZNotificationRegistrar();
    ~QZNotificationRegistrar();
    QZNotificationRegistrar(const QZNotificationRegistrar&) = delete;
    QZNotificationRegistrar& operator=(const QZNotificationRegistrar&) = delete;

    // A triple already recorded is not added again.
    void Add(QZNotificationObserver* observer, int type, const QZNotificationSource& source);
    // Only what this registrar added is removed.
    void Remove(QZNotificationObserver* observer, int type, const QZNotificationSource& source);
    void RemoveAll();

    // Both look at this registrar's records only, not at the service.
    bool IsEmpty() const;
    bool IsRegistered(QZNotificationObserver* observer, int type,
                      const QZNotificationSource& source) const;

private:
    struct Record {
        QZNotificationObserver* observer;
        int type;
        unsigned int sourceKey;
    };

    std::vector<Record>::iterator Find(QZNotificationObserver* observer, int type,
                                       unsigned int sourceKey);

    std::vector<Record> records_;
};

}  // namespace qzextensionkit
