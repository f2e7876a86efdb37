// code_status.h: saying why there are no facts of code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kestrelwood/values.h>

#include "tools/common/exit_status.h"

namespace tools {

/// The exit status that a status of the code signatures stands for.
ExitStatus exitStatusOfCodeStatus(std::int64_t status);

/// Says on standard error what is amiss with the code, which is named by its path or in other words, with the
/// number of the status, and gives the exit status that follows from it.
ExitStatus complainOfCode(const std::string& code, const std::optional<ksw::Error>& error);
ExitStatus complainOfCode(const std::string& code, std::int64_t status, const std::string& text);

}  // namespace tools
