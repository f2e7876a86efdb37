// fork_guarded.h: locks that a fork cannot leave locked for ever.
// A child has none of its parent's threads but the one that forked, and all their locks as they were.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/host/process_epoch.h"

namespace ksw::host {

/// A lock of 32 bits, initially 0, unlocked, which names the process that holds it: one that a thread of another
/// process held when this one was forked counts as open. Not recursive and not fair; blocks. Usable with
/// std::lock_guard. Any thread; unlocked by the thread that locked it.
class ForkLock {
public:
    ForkLock() = default;
    ForkLock(const ForkLock&) = delete;
    ForkLock& operator=(const ForkLock&) = delete;

    void lock() {
        const std::uint32_t ours = ownMark();
        std::uint32_t wanted = ours;
        std::uint32_t seen = kOpen;
        while (!word_.compare_exchange_strong(seen, wanted, std::memory_order_acquire, std::memory_order_relaxed)) {
            if (isStranded(seen, ours)) {
                if (word_.compare_exchange_strong(seen, wanted, std::memory_order_acquire)) {
                    wasStranded_ = true;
                    return;
                }
            } else if (seen != kOpen) {
                // Whoever comes out of the wait cannot know whether others still wait, so it locks as contended.
                wanted = ours | kContended;
                if (seen == wanted || word_.compare_exchange_strong(seen, wanted, std::memory_order_relaxed)) {
                    word_.wait(wanted, std::memory_order_relaxed);
                }
            }
            seen = kOpen;
        }
    }
    void unlock() {
        if ((word_.exchange(kOpen, std::memory_order_release) & kContended) != 0) {
            word_.notify_one();
        }
    }

    /// Whether what the lock guards may have been left half changed by a thread that this process does not have.
    /// Says so once; for who holds the lock.
    bool takeStranded() { return std::exchange(wasStranded_, false); }

private:
    static constexpr std::uint32_t kOpen = 0;
    static constexpr std::uint32_t kContended = 1;  // somebody may wait

    static std::uint32_t ownMark() { return static_cast<std::uint32_t>(processEpoch() << 1); }
    static bool isStranded(std::uint32_t seen, std::uint32_t ours) {
        return seen != kOpen && (seen & ~kContended) != ours;
    }

    std::atomic<std::uint32_t> word_{kOpen};
    bool wasStranded_ = false;  // guarded by the lock
};

/// A T behind such a lock. In a forked child it is as it was, unless a thread of the parent was at it: then it
/// begins anew, and what was there is left alone.
template <class T>
class ForkGuarded {
public:
    class Access {
    public:
        Access(ForkLock& lock, T& value) : lock_(lock), value_(&value) {
            if (lock.takeStranded()) {
                std::construct_at(value_);
            }
        }
        T* operator->() const { return value_; }
        T& operator*() const { return *value_; }

    private:
        std::unique_lock<ForkLock> lock_;
        T* value_;
    };

    Access lock() { return Access(lock_, value_); }

private:
    ForkLock lock_;
    T value_{};
};

/// A pointer to something immutable that is replaced whole. A forked child has the one or the other, whatever the
/// parent's threads were at.
template <class T>
class Replaceable {
public:
    using Pointer = std::shared_ptr<const T>;

    explicit Replaceable(Pointer value) : place_(new Pointer(std::move(value))) {}
    ~Replaceable() { delete place_.load(std::memory_order_relaxed); }
    Replaceable(const Replaceable&) = delete;
    Replaceable& operator=(const Replaceable&) = delete;

    Pointer get() {
        const std::lock_guard lock(lock_);
        return *place_.load(std::memory_order_relaxed);
    }
    /// The former value goes when the lock is open again.
    void set(Pointer value) {
        auto place = std::make_unique<const Pointer>(std::move(value));
        const std::unique_ptr<const Pointer> former(exchanged(place.release()));
    }

private:
    const Pointer* exchanged(const Pointer* place) {
        const std::lock_guard lock(lock_);
        return place_.exchange(place, std::memory_order_acq_rel);
    }

    ForkLock lock_;  // while it is held the place's pointer stays
    std::atomic<const Pointer*> place_;
};

}  // namespace ksw::host
