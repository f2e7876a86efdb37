// command_line.h: what the command lines of all tools have in common.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include "tools/common/exit_status.h"

namespace tools {

/// Adds `--version`.
void addVersion(CLI::App& app);

/// CLI11's form of a check: the complaint, or nothing.
std::string complaintIfEmpty(const std::string& text);

/// Says what is wrong with the command line, and where to read on.
ExitStatus wrongUsage(std::string_view text);

/// Reads the command line. An exit status when there is nothing to do any more: help or version was printed, or the
/// command line was wrong and the complaint stands on standard error.
std::optional<ExitStatus> parse(CLI::App& app, int argc, const char* const* argv);

}  // namespace tools
