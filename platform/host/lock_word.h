// lock_word.h: a lock of 32 bits.
#pragma once

#include <atomic>
#include <cstdint>

namespace ksw::host {

/// A lock that is one word, initially 0, unlocked. Not recursive and not fair; blocks. Usable with
/// std::lock_guard. Any thread; unlocked by the thread that locked it.
class LockWord {
public:
    constexpr LockWord() = default;
    LockWord(const LockWord&) = delete;
    LockWord& operator=(const LockWord&) = delete;

    void lock() {
        if (!try_lock()) {
            lockContended();
        }
    }
    bool try_lock() {
        std::uint32_t expected = kUnlocked;
        return word_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire,
                                             std::memory_order_relaxed);
    }
    void unlock() {
        if (word_.exchange(kUnlocked, std::memory_order_release) == kContended) {
            wakeOne();
        }
    }

    /// The word as it is now; 0 while nobody holds the lock.
    std::uint32_t value() const { return word_.load(std::memory_order_relaxed); }

private:
    static constexpr std::uint32_t kUnlocked = 0;
    static constexpr std::uint32_t kLocked = 1;
    static constexpr std::uint32_t kContended = 2;  // locked, and somebody may wait

    void lockContended();
    void wakeOne();

    std::atomic<std::uint32_t> word_{kUnlocked};
};

static_assert(sizeof(LockWord) == 4);

}  // namespace ksw::host
