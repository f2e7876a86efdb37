// numbers.h: numbers as text, the same in every locale.
#pragma once

#include <array>
#include <charconv>
#include <string>

namespace ksw {

/// The shortest text that reads back as the same number: "0.1", "1e+300", "inf", "nan".
inline std::string shortestText(double value) {
    std::array<char, 64> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
    return {buffer.data(), end};
}

}  // namespace ksw
