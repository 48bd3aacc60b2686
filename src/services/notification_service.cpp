#include "services/notification_service.h"

#include <algorithm>
#include <limits>

namespace qzextensionkit {

template class QZEKIT_EXPORT Source<void>;
template class QZEKIT_EXPORT Params<void>;

Source<void> IQZNotificationService::AllSources() {
    return Source<void>(nullptr);
}

Params<void> IQZNotificationService::NoParams() {
    return Params<void>(nullptr);
}

QZNotificationObserverList::QZNotificationObserverList(int mode) : notifyDepth_(0), mode_(mode) {}

bool QZNotificationObserverList::Add(QZNotificationObserver* observer) {
    if (Contains(observer)) {
        return false;
    }
    observers_.push_back(observer);
    return true;
}

void QZNotificationObserverList::Remove(QZNotificationObserver* observer) {
    auto it = std::find(observers_.begin(), observers_.end(), observer);
    if (it == observers_.end()) {
        return;
    }
    // A walk in progress holds an index into the vector: keep the slots.
    if (notifyDepth_ != 0) {
        *it = nullptr;
    } else {
        observers_.erase(it);
    }
}

bool QZNotificationObserverList::Contains(QZNotificationObserver* observer) const {
    return std::find(observers_.begin(), observers_.end(), observer) != observers_.end();
}

void QZNotificationObserverList::Walk(int type, const QZNotificationSource& source,
                                      const QZNotificationParameters& params) {
    const std::size_t bound =
        mode_ == 0 ? std::numeric_limits<unsigned int>::max() : observers_.size();
    ++notifyDepth_;
    std::size_t index = 0;
    for (;;) {
        // The size is read afresh: Observe may add, remove or re-enter.
        const std::size_t end = std::min(bound, observers_.size());
        while (index < end && observers_[index] == nullptr) {
            ++index;
        }
        if (index >= end) {
            break;
        }
        QZNotificationObserver* observer = observers_[index];
        ++index;
        observer->Observe(type, source, params);
    }
    --notifyDepth_;
    if (notifyDepth_ == 0) {
        observers_.erase(std::remove(observers_.begin(), observers_.end(), nullptr),
                         observers_.end());
    }
}

QZNotificationService::QZNotificationService() = default;
QZNotificationService::~QZNotificationService() = default;

by::Result QZNotificationService::init_class(by::IBaseUnknown*, by::IBaseUnknown*) {
    return 0;
}

void QZNotificationService::Notify(int type, const QZNotificationSource& source,
                                   const QZNotificationParameters& params) {
    const unsigned int key = source.map_key();
    // With AllSources() steps 2 and 4 already reach the all-sources lists.
    if (key != 0) {
        NotifyList(0, 0, type, source, params);
    }
    NotifyList(0, key, type, source, params);
    if (key != 0) {
        NotifyList(type, 0, type, source, params);
    }
    NotifyList(type, key, type, source, params);
}

void QZNotificationService::NotifyList(int listType, unsigned int key, int type,
                                       const QZNotificationSource& source,
                                       const QZNotificationParameters& params) {
    SourceLists& sources = lists_[listType];
    auto it = sources.find(key);
    if (it == sources.end() || it->second->SlotCount() == 0) {
        return;
    }
    // The list stays put: it holds slots while walked, so nothing deletes
    // it, and map nodes don't move when Observe adds other keys.
    it->second->Walk(type, source, params);
}

void QZNotificationService::AddObserver(QZNotificationObserver* observer, int type,
                                        const QZNotificationSource& source) {
    if (observer == nullptr) {
        return;
    }
    std::unique_ptr<QZNotificationObserverList>& list = lists_[type][source.map_key()];
    if (!list) {
        list = std::make_unique<QZNotificationObserverList>(0);
    }
    list->Add(observer);
}

void QZNotificationService::RemoveObserver(QZNotificationObserver* observer, int type,
                                           const QZNotificationSource& source) {
    SourceLists& sources = lists_[type];
    auto it = sources.find(source.map_key());
    if (it == sources.end()) {
        return;
    }
    if (observer != nullptr) {
        it->second->Remove(observer);
    }
    if (it->second->SlotCount() == 0) {
        sources.erase(it);
    }
}

}  // namespace qzextensionkit
