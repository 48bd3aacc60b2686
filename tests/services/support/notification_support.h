#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "component/unknown.h"
#include "services/notification_service.h"

namespace qzextensionkit {

// Reads the service's private tables.
class QZNotificationServiceTestPeer {
public:
    static bool HasType(const QZNotificationService* s, int type) {
        return s->lists_.count(type) != 0;
    }
    // Slots of the list at (type, key), null ones included; -1 when absent.
    static int Slots(const QZNotificationService* s, int type, unsigned int key) {
        auto outer = s->lists_.find(type);
        if (outer == s->lists_.end()) {
            return -1;
        }
        auto inner = outer->second.find(key);
        return inner == outer->second.end() ? -1 : static_cast<int>(inner->second->SlotCount());
    }
};

}  // namespace qzextensionkit

namespace qzetest {

// An observer that appends its name to a shared call log and then runs an
// optional action, which is where the re-entrancy tests act.
class NamedObserver : public qzextensionkit::QZNotificationObserver {
public:
    NamedObserver(std::string name, std::vector<std::string>* calls)
        : name_(std::move(name)), calls_(calls) {}
    ~NamedObserver() override = default;

    void Observe(int type, const qzextensionkit::QZNotificationSource& source,
                 const qzextensionkit::QZNotificationParameters& params) override {
        calls_->push_back(name_);
        lastType = type;
        lastSourceKey = source.map_key();
        lastParamsKey = params.map_key();
        ++count;
        if (action) {
            action();
        }
    }

    std::function<void()> action;
    int count = 0;
    int lastType = -1;
    unsigned int lastSourceKey = 0;
    unsigned int lastParamsKey = 0;

private:
    std::string name_;
    std::vector<std::string>* calls_;
};

// Observers by name, made on first use, all writing to one call log.
class ObserverBook {
public:
    NamedObserver& Obs(const std::string& name) {
        auto& slot = observers_[name];
        if (!slot) {
            slot = std::make_unique<NamedObserver>(name, &calls);
        }
        return *slot;
    }
    void ForgetObservers() { observers_.clear(); }

    std::vector<std::string> calls;

private:
    std::map<std::string, std::unique_ptr<NamedObserver>> observers_;
};

// A fresh service object; the holder gives back its one reference.
inline by::ComPtr<qzextensionkit::QZNotificationService> NewNotificationService() {
    qzextensionkit::QZNotificationService* s = nullptr;
    by::CComObject<qzextensionkit::QZNotificationService>::CreateInstance(&s);
    return by::ComPtr<qzextensionkit::QZNotificationService>::Adopt(s);
}

}  // namespace qzetest
