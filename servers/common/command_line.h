// command_line.h: what every server understands on its command line: --help and --version, and words of its own.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "platform/base/result.h"

namespace ksw::servers {

/// An option without a value.
struct Flag {
    const char* name;  ///< Without the dashes.
    bool* isGiven;     ///< Becomes true; otherwise left alone.
};

/// Reads the arguments of the server `name`, which takes no operands. The exit status when the program is done with
/// that: 0 after --help, which prints `help`, and --version; 2 after a mistake, which is printed to standard error.
/// Absent: it goes on.
std::optional<int> readCommandLine(int count, char** arguments, std::string_view name, std::string_view help,
                                   std::span<const Flag> flags = {});

/// Prints "NAME: TEXT" to standard error.
void complain(std::string_view name, std::string_view text);

/// Complains of the error, and gives the exit status of a server that could not do its work: 1.
int failed(std::string_view name, const Error& error);

}  // namespace ksw::servers
