#pragma once

// Process-wide singletons of the kit. Nothing here is ever destroyed: the
// objects live to the end of the process.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "platform/platform.h"

namespace qzextensionkit {
namespace internal {

// One pointer-sized word per singleton: 0 (nothing yet), 1 (a thread is
// building it), or the object. Losers of the race yield until the builder
// is done. `create` may return null, which leaves the word at 0.
template <class T>
T* MarkerWordInstance(std::atomic<uintptr_t>& word, T* (*create)()) {
    uintptr_t value = word.load(std::memory_order_acquire);
    if (value != 0 && value != 1) {
        return reinterpret_cast<T*>(value);
    }
    uintptr_t expected = 0;
    if (word.compare_exchange_strong(expected, 1, std::memory_order_acq_rel)) {
        T* object = create();
        word.store(reinterpret_cast<uintptr_t>(object), std::memory_order_release);
        return object;
    }
    while ((value = word.load(std::memory_order_acquire)) == 1) {
        platform::YieldThread();
    }
    return reinterpret_cast<T*>(value);
}

// The process-wide instance of a class with a private constructor, made on
// first use by the marker-word scheme above. The class befriends it.
template <class T>
class ProcessSingleton {
public:
    static T* Get() { return MarkerWordInstance<T>(word_, &Create); }

private:
    static T* Create() { return new (std::nothrow) T(); }
    static std::atomic<uintptr_t> word_;
};

template <class T>
std::atomic<uintptr_t> ProcessSingleton<T>::word_{0};

// The shared accessor of an implementation: built once per process with one
// allocation of object and count, then handed out as copies. A failure of
// the one-time primitive aborts the process.
template <class Interface, class Impl>
class SharedInstance {
public:
    static std::shared_ptr<Interface> Get() {
        static platform::OnceFlag flag{nullptr};
        static std::shared_ptr<Interface>* holder = nullptr;
        if (!platform::RunOnce(&flag, &Build, &holder)) {
            std::abort();
        }
        return *holder;
    }

private:
    static void Build(void* context) {
        // Leaked on purpose: the implementation outlives every static
        // destructor that might still reach it.
        *static_cast<std::shared_ptr<Interface>**>(context) =
            new std::shared_ptr<Interface>(std::make_shared<Impl>());
    }
};

}  // namespace internal
}  // namespace qzextensionkit
