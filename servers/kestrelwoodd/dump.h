// dump.h: all records as text, for people.
#pragma once

#include <string>

#include "servers/kestrelwoodd/record_index.h"

namespace ksw::daemon {

/// What a dump may take, in bytes: a reply holds more. What does not fit is counted at its end.
inline constexpr std::size_t kDumpMax = std::size_t{12} * 1024 * 1024;

/// The records, by user and in that by developer, one block an item; damaged ones by name. One developer after the
/// other in the order in which they were first recorded.
std::string dumpOf(const RecordIndex& records, std::size_t bytesMax = kDumpMax);

}  // namespace ksw::daemon
