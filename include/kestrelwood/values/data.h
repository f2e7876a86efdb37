// data.h: byte strings.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <kestrelwood/export.h>

namespace ksw {

/// An owned byte string: a digest, a bookmark, an archive.
using Data = std::vector<std::uint8_t>;

/// A borrowed view of bytes.
using Bytes = std::span<const std::uint8_t>;

/// The bytes as text for people: "{length = N, bytes = 0x…}", at most the first 24 bytes shown.
KSW_EXPORT std::string describe(Bytes bytes);

}  // namespace ksw
