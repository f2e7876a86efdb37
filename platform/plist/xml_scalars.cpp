#include "platform/plist/xml_scalars.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "platform/base/limits.h"
#include "platform/plist/xml_scanner.h"

namespace ksw::plist {
namespace {

constexpr Complaint kNoInteger{FormatError::Malformed, "not an integer"};
constexpr Complaint kNoReal{FormatError::Malformed, "not a number"};
constexpr Complaint kNoDate{FormatError::Malformed, "not a date in UTC with whole seconds"};
constexpr Complaint kNoData{FormatError::Malformed, "not base64"};

/// Takes a sign off the text. True: it was a minus.
bool takeSign(std::string_view& text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    return negative;
}

bool isNamed(std::string_view text, std::string_view lower) {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                      [](char left, char right) { return (left | 0x20) == right; });
}

/// The six bits of a base64 character; -1 for any other.
constexpr std::array<std::int8_t, 256> kSixBits = [] {
    std::array<std::int8_t, 256> table{};
    table.fill(-1);
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t index = 0; index < kAlphabet.size(); ++index) {
        table[static_cast<unsigned char>(kAlphabet[index])] = static_cast<std::int8_t>(index);
    }
    return table;
}();

/// Collects six bits at a time; gives bytes.
class Base64Decoder {
public:
    explicit Base64Decoder(Data& out) : out_(out) {}

    bool take(char character) {
        if (isWhiteSpace(character)) {
            return true;
        }
        if (character == '=') {
            return ++padding_ <= 2;
        }
        const std::int8_t bits = kSixBits[static_cast<unsigned char>(character)];
        if (bits < 0 || padding_ != 0) {
            return false;
        }
        group_ = (group_ << 6U) | static_cast<std::uint32_t>(bits);
        if (++inGroup_ == 4) {
            give(3);
        }
        return true;
    }

    /// Whether the text may end here; gives the bytes of a padded group.
    bool end() {
        if (inGroup_ + padding_ != 4) {
            return inGroup_ == 0 && padding_ == 0;
        }
        group_ <<= 6U * padding_;
        const std::uint32_t spareBits = (1U << (8U * padding_)) - 1;
        if (inGroup_ < 2 || (group_ & spareBits) != 0) {
            return false;
        }
        give(3 - padding_);
        return true;
    }

private:
    void give(unsigned count) {
        for (unsigned index = 0; index < count; ++index) {
            out_.push_back(static_cast<std::uint8_t>(group_ >> (16U - 8U * index)));
        }
        group_ = 0;
        inGroup_ = 0;
    }

    Data& out_;
    std::uint32_t group_ = 0;
    unsigned inGroup_ = 0;
    unsigned padding_ = 0;
};

}  // namespace

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isWhiteSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isWhiteSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

Parsed parseInteger(std::string_view text) {
    text = trimmed(text);
    const bool negative = takeSign(text);
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hex ? 2 : 0);
    std::uint64_t magnitude = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, magnitude, hex ? 16 : 10);
    if (failure == std::errc::invalid_argument || stop != end) {
        return kNoInteger;
    }
    constexpr std::uint64_t kNegativeMax = std::uint64_t{1} << 63U;
    if (failure == std::errc::result_out_of_range || (negative && magnitude > kNegativeMax)) {
        return kIntegerRange;
    }
    if (negative) {
        return Value(static_cast<std::int64_t>(0 - magnitude));
    }
    return Value(magnitude);
}

Parsed parseReal(std::string_view text) {
    text = trimmed(text);
    const double sign = takeSign(text) ? -1.0 : 1.0;
    if (isNamed(text, "nan")) {
        return Value(std::numeric_limits<double>::quiet_NaN());
    }
    if (isNamed(text, "inf") || isNamed(text, "infinity")) {
        return Value(std::copysign(std::numeric_limits<double>::infinity(), sign));
    }
    if (text.find_first_not_of("0123456789.eE+-") != std::string_view::npos || text.starts_with('-')) {
        return kNoReal;
    }
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number);
    if (failure == std::errc::invalid_argument || stop != end) {
        return kNoReal;
    }
    if (failure == std::errc::result_out_of_range) {
        return Complaint{FormatError::LimitPassed, "number out of range"};
    }
    return Value(std::copysign(number, sign));
}

Parsed parseDate(std::string_view text) {
    const auto date = Date::fromString(trimmed(text));
    return date ? Parsed(Value(*date)) : Parsed(kNoDate);
}

Parsed parseData(std::string_view text) {
    Data data;
    data.reserve(dataSizeMax(text.size()));
    Base64Decoder decoder(data);
    if (!std::all_of(text.begin(), text.end(), [&](char character) { return decoder.take(character); }) ||
        !decoder.end()) {
        return kNoData;
    }
    if (data.size() > limits::kStringMax) {
        return kTooLong;
    }
    return Value(std::move(data));
}

bool appendDate(std::string& text, Date date) {
    // 0000-01-01T00:00:00Z and 10000-01-01T00:00:00Z, in seconds since 1970.
    constexpr double kFirst = -62'167'219'200.0;
    constexpr double kBehindLast = 253'402'300'800.0;
    const double unixTime = std::floor(date.secondsSinceReference) + static_cast<double>(kReferenceDateUnixSeconds);
    if (!(unixTime >= kFirst && unixTime < kBehindLast)) {
        return false;
    }
    // "2001-01-01 00:00:00 +0000": the same digits with other marks between and behind them.
    const std::string shown = date.string();
    constexpr std::size_t kDayLength = 10;
    constexpr std::size_t kTimeLength = 8;
    text.append(shown, 0, kDayLength).append("T").append(shown, kDayLength + 1, kTimeLength).append("Z");
    return true;
}

void appendReal(std::string& text, double number) {
    if (std::isnan(number)) {
        text += "nan";
        return;
    }
    // The shortest form of a double has at most 24 characters.
    std::array<char, 32> digits{};
    text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

}  // namespace ksw::plist
