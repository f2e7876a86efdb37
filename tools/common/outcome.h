// outcome.h: a value, or the complaint that ends the program.
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "tools/common/exit_status.h"

namespace tools {

/// Why a tool stops, and with which status. The text may hold bytes of files and arguments; whoever prints it
/// escapes it.
struct Complaint {
    ExitStatus status = ExitStatus::Failed;
    std::string text;
};

template <class T>
using Outcome = std::variant<T, Complaint>;

/// Writes the tool's name, a colon, the text and a line break to standard error, the text made printable.
void complain(std::string_view text);

/// The same with a complaint's text; gives its status.
ExitStatus complain(const Complaint& complaint);

}  // namespace tools
