// clock.h: time, behind a seam so that tests can let it pass.
#pragma once

#include <chrono>

#include <kestrelwood/values/date.h>

namespace ksw::host {

/// Tells the time. Any thread.
class Clock {
public:
    virtual ~Clock() = default;

    /// Time since some fixed point; never goes back, stands still while the machine sleeps.
    virtual std::chrono::nanoseconds monotonic() const = 0;
    /// The time of day; may jump when it is set.
    virtual Date wall() const = 0;
};

/// The kernel's clock. Never destroyed.
const Clock& systemClock();

}  // namespace ksw::host
