#pragma once

// Events inside the process: an integer type, a source and parameters.
// Observers register through a QZNotificationRegistrar for a type and a
// source; type 0 stands for all types and AllSources() for all sources.
//
//     class Panel : public qzextensionkit::QZNotificationObserver {
//     public:
//         explicit Panel(const Document* doc) {
//             registrar_.Add(this, kDocumentSaved, Source<Document>(doc));
//         }
//         void Observe(int type, const QZNotificationSource& source,
//                      const QZNotificationParameters& params) override {
//             const Document* doc = SourceAs<Document>(source);
//             const SaveInfo* info = ParamsAs<SaveInfo>(params);
//             ...
//         }
//     private:
//         qzextensionkit::QZNotificationRegistrar registrar_;  // removes on destruction
//     };
//
// Everything here runs on one thread; nothing is locked.

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "component/unknown.h"
#include "platform/export.h"

namespace qzextensionkit {

// The name, class id and interface id under which InitSDK registers the
// service with the service manager.
constexpr char kNotificationServiceName[] = "NotificationService";
constexpr char kNotificationServiceClassId[] = "{45ED99D7-00C2-4082-98D8-5507D2AA3A0F}";
constexpr char kNotificationServiceInterfaceId[] = "{B2F1A919-D15D-4C72-A8C3-2143E2176131}";

class QZNotificationSource;
class QZNotificationParameters;
template <class T>
const T* SourceAs(const QZNotificationSource& source);
template <class T>
const T* ParamsAs(const QZNotificationParameters& params);

// The identity of an event's source: a pointer compared, never followed.
class QZEKIT_EXPORT QZNotificationSource {
public:
    QZNotificationSource(const QZNotificationSource&) = default;
    QZNotificationSource& operator=(const QZNotificationSource&) = default;
    ~QZNotificationSource() = default;

    bool operator==(const QZNotificationSource& other) const { return ptr_ == other.ptr_; }
    bool operator!=(const QZNotificationSource& other) const { return ptr_ != other.ptr_; }

    // The key lists are filed under: the pointer's low 32 bits, so on a
    // 64-bit system two sources 4 GiB apart share a key.
    unsigned int map_key() const {
        return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(ptr_));
    }

protected:
    explicit QZNotificationSource(const void* ptr) : ptr_(ptr) {}

private:
    template <class T>
    friend const T* SourceAs(const QZNotificationSource& source);

    const void* ptr_;
};

// An event's parameters: a pointer that the sender keeps alive for the call.
class QZEKIT_EXPORT QZNotificationParameters {
public:
    QZNotificationParameters() : ptr_(nullptr) {}
    QZNotificationParameters(const QZNotificationParameters&) = default;
    QZNotificationParameters& operator=(const QZNotificationParameters&) = default;
    ~QZNotificationParameters() = default;

    bool operator==(const QZNotificationParameters& other) const { return ptr_ == other.ptr_; }
    bool operator!=(const QZNotificationParameters& other) const { return ptr_ != other.ptr_; }

    unsigned int map_key() const {
        return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(ptr_));
    }

protected:
    explicit QZNotificationParameters(const void* ptr) : ptr_(ptr) {}

private:
    template <class T>
    friend const T* ParamsAs(const QZNotificationParameters& params);

    const void* ptr_;
};

template <class T>
class Source : public QZNotificationSource {
public:
    // Not explicit: a pointer converts where a source is wanted.
    Source(const T* ptr) : QZNotificationSource(ptr) {}
    Source(const Source&) = default;
    Source(Source&&) = default;
    Source& operator=(const Source&) = default;
    Source& operator=(Source&&) = default;
    ~Source() = default;
};

template <class T>
class Params : public QZNotificationParameters {
public:
    // Not explicit: a pointer converts where parameters are wanted.
    Params(const T* ptr) : QZNotificationParameters(ptr) {}
    Params(const Params&) = default;
    Params(Params&&) = default;
    Params& operator=(const Params&) = default;
    Params& operator=(Params&&) = default;
    ~Params() = default;
};

// The typed pointer an event was sent with, read from the whole pointer
// rather than from map_key(), which keeps only 32 bits. The caller names the
// type the sender used for this event type; nothing checks it.
template <class T>
const T* SourceAs(const QZNotificationSource& source) {
    return static_cast<const T*>(source.ptr_);
}
template <class T>
const T* ParamsAs(const QZNotificationParameters& params) {
    return static_cast<const T*>(params.ptr_);
}

class QZEKIT_EXPORT IQZNotificationService : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{B2F1A919-D15D-4C72-A8C3-2143E2176131}")

    // Calls, in this order, the observers of all types and all sources (only
    // when `source` is not AllSources()), of all types and this source, of
    // this type and all sources (same condition), and of this type and
    // source.
    virtual void Notify(int type, const QZNotificationSource& source,
                        const QZNotificationParameters& params) = 0;

    // Out of line, so that the kit's explicit, exported instantiations of
    // Source<void> and Params<void> are the first.
    static Source<void> AllSources();
    static Params<void> NoParams();

protected:
    ~IQZNotificationService() = default;
};

// Implemented by whoever wants events. Not reference counted and not owned
// by the service: remove it (its registrar does) before it is destroyed.
class QZEKIT_EXPORT QZNotificationObserver {
public:
    virtual void Observe(int type, const QZNotificationSource& source,
                         const QZNotificationParameters& params) = 0;

protected:
    virtual ~QZNotificationObserver() = default;
};

// The observers of one (type, source key), in order of registration. A null
// slot is an observer removed during a walk; the outermost walk clears them.
class QZEKIT_EXPORT QZNotificationObserverList {
public:
    // Mode 0: a walk reaches observers added while it runs. Otherwise a walk
    // stops at the size it began with. The service uses 0 only.
    explicit QZNotificationObserverList(int mode = 0);

    // Appends unless present. Reports whether it appended.
    bool Add(QZNotificationObserver* observer);
    // Nulls the observer's slot during a walk, erases it otherwise.
    void Remove(QZNotificationObserver* observer);
    bool Contains(QZNotificationObserver* observer) const;
    // Calls Observe on each observer in turn; safe against re-entry.
    void Walk(int type, const QZNotificationSource& source, const QZNotificationParameters& params);

    // Slots, null ones included.
    std::size_t SlotCount() const { return observers_.size(); }
    int NotifyDepth() const { return notifyDepth_; }

private:
    std::vector<QZNotificationObserver*> observers_;
    int notifyDepth_;
    int mode_;
};

// The component object behind "NotificationService". Single-threaded.
class QZEKIT_EXPORT QZNotificationService : public IQZNotificationService, public by::CUnknownImp {
public:
    QZNotificationService();
    ~QZNotificationService() override;

    by::Result init_class(by::IBaseUnknown* outer, by::IBaseUnknown* reserved);

    void Notify(int type, const QZNotificationSource& source,
                const QZNotificationParameters& params) override;

    // Not in the interface: QZNotificationRegistrar is the way to register.
    void AddObserver(QZNotificationObserver* observer, int type,
                     const QZNotificationSource& source);
    void RemoveObserver(QZNotificationObserver* observer, int type,
                        const QZNotificationSource& source);

private:
    using SourceLists = std::map<unsigned int, std::unique_ptr<QZNotificationObserverList>>;

    // One step of Notify: the type's entry is made if missing, the list is
    // only looked up.
    void NotifyList(int listType, unsigned int key, int type, const QZNotificationSource& source,
                    const QZNotificationParameters& params);

    std::map<int, SourceLists> lists_;
};

}  // namespace qzextensionkit
