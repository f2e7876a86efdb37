#include "platform/host/clock.h"

#include <ctime>

#include "platform/base/never_destroyed.h"

namespace ksw::host {

namespace {

timespec now(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return time;
}

class SystemClock final : public Clock {
public:
    std::chrono::nanoseconds monotonic() const override {
        const timespec time = now(CLOCK_MONOTONIC);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }
    Date wall() const override {
        const timespec time = now(CLOCK_REALTIME);
        return Date::fromUnix(time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec));
    }
};

}  // namespace

const Clock& systemClock() {
    static NeverDestroyed<SystemClock> clock;
    return *clock;
}

}  // namespace ksw::host
