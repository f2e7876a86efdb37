// judgement.h: what a record's disposition in force was a moment ago.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

#include <kestrelwood/KSWTypes.h>

namespace ksw::daemon {

/// Remembers the disposition in force of one record of a family. As long as the family is published, the
/// disposition can change only when the item's file comes into a trash or leaves it, and to look for that costs
/// more than all the rest of a question. A file whose path leads through no link and names no trash can do so only
/// when a link is laid on its way, so those are looked for once a second; the others at every question. Any thread.
class Judgement {
public:
    static constexpr std::chrono::milliseconds kHoldsFor{1000};

    /// What was remembered less than `kHoldsFor` before `now`, a time of the monotonic clock.
    std::optional<KSWDisposition> at(std::chrono::nanoseconds now) const {
        const std::uint64_t packed = packed_.load(std::memory_order_relaxed);
        return milliseconds(now) < packed >> kBits ? std::optional(packed & kMask) : std::nullopt;
    }
    void remember(KSWDisposition disposition, std::chrono::nanoseconds now) {
        packed_.store((milliseconds(now + kHoldsFor) << kBits) | (disposition & kMask), std::memory_order_relaxed);
    }

private:
    /// All bits that a disposition has.
    static constexpr unsigned kBits = 5;
    static constexpr std::uint64_t kMask = (1U << kBits) - 1;

    static std::uint64_t milliseconds(std::chrono::nanoseconds time) {
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
    }

    /// The millisecond up to which it holds, and the disposition below that: one word, so that they always belong
    /// together.
    std::atomic<std::uint64_t> packed_{0};
};

}  // namespace ksw::daemon
