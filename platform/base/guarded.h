// guarded.h: state that is reachable only while its lock is held.
#pragma once

#include <mutex>
#include <utility>

namespace ksw {

/// A T behind a mutex. `lock()` gives access for as long as the returned handle lives; there is no other way in.
template <class T, class Mutex = std::mutex>
class Guarded {
public:
    class Access {
    public:
        Access(Mutex& mutex, T& value) : lock_(mutex), value_(&value) {}
        T* operator->() const { return value_; }
        T& operator*() const { return *value_; }
        /// The lock itself, for waiting on a condition.
        std::unique_lock<Mutex>& mutexLock() { return lock_; }

    private:
        std::unique_lock<Mutex> lock_;
        T* value_;
    };

    template <class... Arguments>
    explicit Guarded(Arguments&&... arguments) : value_(std::forward<Arguments>(arguments)...) {}

    Access lock() { return Access(mutex_, value_); }

private:
    Mutex mutex_;
    T value_;
};

}  // namespace ksw
