// date.h: points in time.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/export.h>

namespace ksw {

/// A point in time: seconds since 2001-01-01 00:00:00 UTC, which is 978,307,200 s after the Unix epoch.
struct KSW_EXPORT Date {
    double secondsSinceReference = 0;

    /// From a Unix time in whole seconds and nanoseconds, as `statx` reports it.
    static Date fromUnix(std::int64_t seconds, std::uint32_t nanoseconds);

    /// Reads "2001-01-01T00:00:00Z" (RFC 3339 in UTC, whole seconds); absent for any other text.
    static std::optional<Date> fromString(std::string_view text);

    /// "2001-01-01 00:00:00 +0000", cut to whole seconds.
    std::string string() const;

    friend auto operator<=>(const Date&, const Date&) = default;
};

/// Seconds from the Unix epoch to this system's reference date.
inline constexpr std::int64_t kReferenceDateUnixSeconds = 978'307'200;

}  // namespace ksw
