// desktop.h: tells the user something through the notification service of the desktop.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/base/result.h"
#include "platform/host/clock.h"

namespace ksw::host {

/// How much a notice presses: the desktop keeps a critical one until the user has seen it.
enum class Urgency : std::uint8_t { Low = 0, Normal = 1, Critical = 2 };

struct DesktopNotice {
    std::string summary;  ///< One line.
    std::string body;     ///< Plain text; what the desktop would take for markup is escaped.
    Urgency urgency = Urgency::Normal;
    std::uint32_t replaces = 0;  ///< The number of an earlier notice that this one takes the place of; 0: none.
};

/// Any thread; notices are shown one at a time.
class Desktop {
public:
    /// No notice takes longer than `patience`. One that does has the desktop left alone for a while: the notices of
    /// that time fail at once.
    explicit Desktop(std::chrono::milliseconds patience = kPatience, const Clock& clock = systemClock());

    /// Shows the notice: its number. Blocks until the desktop has taken it. Error: Unreachable when the session has
    /// no bus, or nobody shows notices there; and as for BusConnection.
    Result<std::uint32_t> show(const DesktopNotice& notice);

    static constexpr std::chrono::milliseconds kPatience = std::chrono::seconds(5);
    /// How long a desktop is left alone that was late.
    static constexpr std::chrono::nanoseconds kRest = std::chrono::seconds(60);

private:
    const std::chrono::milliseconds patience_;
    const Clock& clock_;
    std::mutex mutex_;                           // held while a notice is shown; guards the next
    std::chrono::nanoseconds leftAloneUntil_{};  // on the clock
};

}  // namespace ksw::host
