// binary_layout.h: how a binary property list is laid out: magic, objects, table of their offsets, trailer. All
// numbers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <kestrelwood/values/data.h>

#include "platform/base/result.h"

namespace ksw::plist {

inline constexpr std::string_view kBinaryMagic = "bplist00";

/// The trailer, in bytes: six unused, size of an offset, size of a reference, and three numbers of eight: how many
/// objects there are, which of them is the root, and where the table of offsets begins.
inline constexpr std::size_t kTrailerSize = 32;
inline constexpr std::size_t kTrailerUnused = 6;

/// The upper half of an object's first byte; its lower half is a size, a count or, of a `Single`, the value.
enum class Marker : std::uint8_t {
    Single = 0x0,
    Integer = 0x1,
    Real = 0x2,
    Date = 0x3,
    Data = 0x4,
    Ascii = 0x5,
    Utf16 = 0x6,
    Uid = 0x8,
    Array = 0xA,
    OrderedSet = 0xB,
    Set = 0xC,
    Dictionary = 0xD,
};

/// First bytes of objects that have no lower half to fill in.
inline constexpr std::uint8_t kNullByte = 0x00;
inline constexpr std::uint8_t kFalseByte = 0x08;
inline constexpr std::uint8_t kTrueByte = 0x09;
inline constexpr std::uint8_t kFillByte = 0x0F;
inline constexpr std::uint8_t kDoubleByte = 0x23;
inline constexpr std::uint8_t kDateByte = 0x33;

/// The lower half that says that the count follows as an integer object.
inline constexpr std::uint8_t kCountFollows = 0xF;

/// The number in one to eight bytes.
constexpr std::uint64_t bigEndian(Bytes bytes) {
    std::uint64_t number = 0;
    for (const std::uint8_t byte : bytes) {
        number = (number << 8U) | byte;
    }
    return number;
}

/// A list whose trailer has been checked against the bytes: every offset in its table can be read. The bytes are
/// borrowed.
class BinaryLayout {
public:
    /// Errors: `Malformed`, `LimitPassed` for more than `limits::kObjectsMax` objects, `Unsupported` for another
    /// version of the form.
    static Result<BinaryLayout> of(Bytes bytes);

    std::uint64_t objectCount() const { return objectCount_; }
    std::uint64_t root() const { return root_; }
    std::size_t referenceSize() const { return referenceSize_; }

    /// Where the object begins; its number must be less than `objectCount`. Not checked to lie among the objects.
    std::uint64_t offsetOf(std::uint64_t object) const {
        return bigEndian(table_.subspan(static_cast<std::size_t>(object) * offsetSize_, offsetSize_));
    }
    /// All up to the table: the magic and the objects.
    Bytes objects() const { return objects_; }

private:
    BinaryLayout() = default;

    Bytes objects_;
    Bytes table_;
    std::uint64_t objectCount_ = 0;
    std::uint64_t root_ = 0;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
};

}  // namespace ksw::plist
