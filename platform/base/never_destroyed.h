// never_destroyed.h: process-wide objects that are made on first use and outlive everything.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace ksw {

/// Holds a T that is constructed with the holder and never destroyed, so that no destructor runs at exit
/// while other threads still use the object. Meant for function-local statics.
template <class T>
class NeverDestroyed {
public:
    template <class... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments) {
        new (storage_) T(std::forward<Arguments>(arguments)...);
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    ~NeverDestroyed() = default;

    T& get() { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T& operator*() { return get(); }
    T* operator->() { return &get(); }

private:
    alignas(T) std::byte storage_[sizeof(T)];
};

}  // namespace ksw
