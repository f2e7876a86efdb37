// exit_status.h: what a tool's exit status means.
#pragma once

namespace tools {

/// One table for every verb of every tool; scripts depend on the numbers.
enum class ExitStatus : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    Partial = 3,  ///< Of several things some failed; what was printed says which.
    NoSuchItem = 4,
    NotPermitted = 5,  ///< Who is asked does not allow the request, or the item may not launch.
    Unreachable = 6,   ///< No daemon answers.
};

}  // namespace tools
