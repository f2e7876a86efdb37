// other_version.h: what is said to a peer that speaks another version of the wire.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kestrelwood/values/data.h>

namespace ksw::ipc {

/// The code of a refusal that a connection itself sends, before there is a request; so it is none of `Refusal`'s.
inline constexpr std::int64_t kOtherVersionRefusal = 7;

/// What either side says of it: names both versions.
std::string versionsDiffer(std::uint8_t theirs);

/// The frame that refuses what begins with a header of ours but for its version. It is of our version, and answers
/// the serial, which stands at the same place in every version. Absent for any other bytes.
std::optional<Data> refusalOfOtherVersion(Bytes buffer);

}  // namespace ksw::ipc
