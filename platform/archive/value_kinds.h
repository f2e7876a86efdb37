// value_kinds.h: which kinds of values a place allows.
#pragma once

#include <cstdint>

namespace ksw::archive {

/// A set of kinds of `Value`. `Error` is what stands in an error's user information as its cause.
enum class ValueKinds : std::uint16_t {
    None = 0,
    Null = 1U << 0U,
    Boolean = 1U << 1U,
    Integer = 1U << 2U,
    Real = 1U << 3U,
    String = 1U << 4U,
    Data = 1U << 5U,
    Date = 1U << 6U,
    Array = 1U << 7U,
    Dictionary = 1U << 8U,
    Error = 1U << 9U,

    Number = Boolean | Integer | Real,
    PropertyList = Number | String | Data | Date | Array | Dictionary,
    Any = Null | PropertyList | Error,
};

constexpr ValueKinds operator|(ValueKinds left, ValueKinds right) {
    return static_cast<ValueKinds>(static_cast<unsigned>(left) | static_cast<unsigned>(right));
}

/// Whether `kinds` has all of `kind`.
constexpr bool allows(ValueKinds kinds, ValueKinds kind) {
    return (static_cast<unsigned>(kinds) & static_cast<unsigned>(kind)) == static_cast<unsigned>(kind);
}

}  // namespace ksw::archive
