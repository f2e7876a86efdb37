// xml_scalars.h: the texts of numbers, dates and data in an XML property list.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include <kestrelwood/values/value.h>

#include "platform/plist/complaint.h"

namespace ksw::plist {

/// A value, or what is wrong with its text.
using Parsed = std::variant<Value, Complaint>;

/// Decimal, or hexadecimal after "0x", with a sign or without; from INT64_MIN to UINT64_MAX. White space around
/// it is passed over, as in all of these.
Parsed parseInteger(std::string_view text);

/// A decimal fraction with or without exponent, "nan", "inf" or "infinity" in any case, with a sign or without.
/// One that a double cannot hold, even as a denormal, is out of range.
Parsed parseReal(std::string_view text);

/// RFC 3339 in UTC, whole seconds.
Parsed parseDate(std::string_view text);

/// Base64 (RFC 4648, section 4) with its padding; white space anywhere. The most that comes out of N characters
/// is `dataSizeMax(N)` bytes, which is also what is allocated.
Parsed parseData(std::string_view text);
constexpr std::size_t dataSizeMax(std::size_t characters) {
    return characters / 4 * 3;
}

/// The text without white space at its ends.
std::string_view trimmed(std::string_view text);

/// Appends the date as `parseDate` reads it, cut to whole seconds. False, and nothing is appended, when its year
/// is not one of 0 to 9999.
bool appendDate(std::string& text, Date date);

/// Appends the shortest text that `parseReal` reads as the same number.
void appendReal(std::string& text, double number);

}  // namespace ksw::plist
