#include <kestrelwood/values/date.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace ksw {

namespace {

constexpr std::string_view kForm = "dddd-dd-ddTdd:dd:ddZ";
constexpr std::int64_t kSecondsPerDay = 86'400;
/// The years that the calendar's arithmetic holds; about 32,000 either way.
constexpr double kSecondsShownMax = 30'000.0 * 366 * kSecondsPerDay;

bool hasForm(std::string_view text) {
    if (text.size() != kForm.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (kForm[i] == 'd' ? !isDigit : text[i] != kForm[i]) {
            return false;
        }
    }
    return true;
}

/// The number in `length` digits of a text that has the form.
int numberAt(std::string_view text, std::size_t offset, std::size_t length) {
    int number = 0;
    for (char digit : text.substr(offset, length)) {
        number = number * 10 + (digit - '0');
    }
    return number;
}

}  // namespace

Date Date::fromUnix(std::int64_t seconds, std::uint32_t nanoseconds) {
    // In doubles, because a hostile file system may report any number of seconds.
    const double whole = static_cast<double>(seconds) - static_cast<double>(kReferenceDateUnixSeconds);
    return Date{whole + static_cast<double>(nanoseconds) / 1e9};
}

std::optional<Date> Date::fromString(std::string_view text) {
    if (!hasForm(text)) {
        return std::nullopt;
    }
    const std::chrono::year_month_day day(std::chrono::year(numberAt(text, 0, 4)),
                                          std::chrono::month(static_cast<unsigned>(numberAt(text, 5, 2))),
                                          std::chrono::day(static_cast<unsigned>(numberAt(text, 8, 2))));
    const int hour = numberAt(text, 11, 2);
    const int minute = numberAt(text, 14, 2);
    const int second = numberAt(text, 17, 2);
    if (!day.ok() || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const std::int64_t days = std::chrono::sys_days(day).time_since_epoch().count();
    return fromUnix(days * kSecondsPerDay + hour * 3'600 + minute * 60 + second, 0);
}

std::string Date::string() const {
    if (!(std::fabs(secondsSinceReference) <= kSecondsShownMax)) {
        return "(no such date)";
    }
    const auto unixSeconds =
        static_cast<std::int64_t>(std::floor(secondsSinceReference)) + kReferenceDateUnixSeconds;
    const std::chrono::sys_seconds time{std::chrono::seconds(unixSeconds)};
    const auto midnight = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day day(midnight);
    const std::chrono::hh_mm_ss clock(time - midnight);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d +0000", static_cast<int>(day.year()),
                  static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}

}  // namespace ksw
