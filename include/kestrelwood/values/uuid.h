// uuid.h: universally unique identifiers (RFC 9562).
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/export.h>

namespace ksw {

/// Sixteen bytes in network order. Value-initialised: the nil UUID.
struct KSW_EXPORT UUID {
    std::array<std::uint8_t, 16> bytes{};

    /// A version 4 UUID from the kernel's random source. Aborts when the kernel has none to give,
    /// because an identity that could repeat is worse than no process.
    static UUID random();

    /// Reads the form 8-4-4-4-12, either case; absent for any other text.
    static std::optional<UUID> fromString(std::string_view text);

    /// The form 8-4-4-4-12 in upper case.
    std::string string() const;

    friend auto operator<=>(const UUID&, const UUID&) = default;
};

}  // namespace ksw

template <>
struct std::hash<ksw::UUID> {
    std::size_t operator()(const ksw::UUID& uuid) const noexcept {
        std::size_t value = 0;
        for (std::uint8_t byte : uuid.bytes) {
            value = value * 131 + byte;
        }
        return value;
    }
};
