// cbor_head.h: the numbers of CBOR (RFC 8949) that reader and writer share.
#pragma once

#include <cstdint>

namespace ksw::archive {

/// The upper three bits of an item's first byte.
enum class Major : std::uint8_t {
    Unsigned = 0,
    Negative = 1,
    Bytes = 2,
    Text = 3,
    Array = 4,
    Map = 5,
    Tag = 6,
    Simple = 7,
};

// Tags, by their registered meanings.
inline constexpr std::uint64_t kObjectTag = 27;     ///< An object: [class name, {key: value}].
inline constexpr std::uint64_t kShareableTag = 28;  ///< The value is counted, so that it can be referred to.
inline constexpr std::uint64_t kReferenceTag =
    29;  ///< The number of a counted value, from 0 in order of the marks.
inline constexpr std::uint64_t kUrlTag = 32;
inline constexpr std::uint64_t kUuidTag = 37;

// Whole first bytes of major type 7.
inline constexpr std::uint8_t kFalseByte = 0xF4;
inline constexpr std::uint8_t kTrueByte = 0xF5;
inline constexpr std::uint8_t kNullByte = 0xF6;
inline constexpr std::uint8_t kHalfByte = 0xF9;
inline constexpr std::uint8_t kSingleByte = 0xFA;
inline constexpr std::uint8_t kDoubleByte = 0xFB;

}  // namespace ksw::archive
