// complaint.h: what is wrong, before anyone has said where.
#pragma once

#include <optional>
#include <string_view>

#include <kestrelwood/values/error.h>

namespace ksw::plist {

/// A failure without its place; the reader that knows the place makes an `Error` of it. `text` is a literal.
struct Complaint {
    FormatError code;
    std::string_view text;
};

/// Nothing when all is well.
using Check = std::optional<Complaint>;

inline constexpr Complaint kTooDeep{FormatError::LimitPassed, "nested too deep"};
inline constexpr Complaint kTooManyObjects{FormatError::LimitPassed, "too many values"};
inline constexpr Complaint kTooMuchHeap{FormatError::LimitPassed, "needs more memory than its size allows"};
inline constexpr Complaint kTooLong{FormatError::LimitPassed, "text or data too long"};
inline constexpr Complaint kIntegerRange{FormatError::LimitPassed, "integer out of range"};
inline constexpr Complaint kDuplicateKey{FormatError::Malformed, "duplicate key"};
inline constexpr Complaint kCutOff{FormatError::Malformed, "cut off"};
inline constexpr Complaint kUnknownObject{FormatError::Malformed, "unknown kind of object"};

}  // namespace ksw::plist
