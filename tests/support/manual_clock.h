// manual_clock.h: a clock that goes only when it is told to. Any thread.
#pragma once

#include <atomic>

#include "platform/host/clock.h"

namespace ksw::test {

class ManualClock final : public host::Clock {
public:
    std::chrono::nanoseconds monotonic() const override { return std::chrono::nanoseconds(elapsed_.load()); }
    Date wall() const override { return Date{static_cast<double>(elapsed_.load()) / 1e9}; }

    /// Lets time pass on both.
    void advance(std::chrono::nanoseconds time) { elapsed_ += time.count(); }

private:
    std::atomic<std::int64_t> elapsed_{0};
};

}  // namespace ksw::test
