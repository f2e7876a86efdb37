// checked.h: arithmetic on lengths that a peer had a hand in.
#pragma once

#include <concepts>
#include <limits>
#include <optional>
#include <utility>

namespace ksw {

/// The sum, or nothing when it does not fit the type.
template <std::integral Integer>
[[nodiscard]] constexpr std::optional<Integer> checkedAdd(Integer left, Integer right) {
    Integer sum{};
    if (__builtin_add_overflow(left, right, &sum)) {
        return std::nullopt;
    }
    return sum;
}

/// The product, or nothing when it does not fit the type.
template <std::integral Integer>
[[nodiscard]] constexpr std::optional<Integer> checkedMultiply(Integer left, Integer right) {
    Integer product{};
    if (__builtin_mul_overflow(left, right, &product)) {
        return std::nullopt;
    }
    return product;
}

/// The same number in another integer type, or nothing when that type does not hold it.
template <std::integral To, std::integral From>
[[nodiscard]] constexpr std::optional<To> checkedCast(From value) {
    if (!std::in_range<To>(value)) {
        return std::nullopt;
    }
    return static_cast<To>(value);
}

}  // namespace ksw
