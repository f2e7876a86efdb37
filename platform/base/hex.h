// hex.h: hexadecimal digits.
#pragma once

#include <string_view>

namespace ksw {

inline constexpr std::string_view kLowerHexDigits = "0123456789abcdef";
inline constexpr std::string_view kUpperHexDigits = "0123456789ABCDEF";

/// The value of a hexadecimal digit of either case; -1 for any other character.
constexpr int hexDigitValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

}  // namespace ksw
