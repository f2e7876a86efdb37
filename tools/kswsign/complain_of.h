// complain_of.h: saying why something about code failed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kestrelwood/values.h>

#include "tools/common/exit_status.h"

namespace tools::kswsign {

/// Says on standard error what is amiss with the code at the path, with the number of the status, and gives the
/// exit status that follows from it.
ExitStatus complainOf(const std::string& path, const std::optional<ksw::Error>& error);
ExitStatus complainOf(const std::string& path, std::int64_t status, const std::string& text);

}  // namespace tools::kswsign
