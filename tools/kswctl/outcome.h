// outcome.h: a value, or the complaint that ends the program.
#pragma once

#include <string>
#include <variant>

#include "tools/kswctl/exit_status.h"

namespace kswctl {

/// Why kswctl stops, and with which status. The text may hold bytes of files and arguments; whoever prints it
/// escapes it.
struct Complaint {
    ExitStatus status = ExitStatus::Failed;
    std::string text;
};

template <class T>
using Outcome = std::variant<T, Complaint>;

}  // namespace kswctl
