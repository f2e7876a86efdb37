// exit_status.h: what kswctl's exit status means.
#pragma once

namespace kswctl {

/// One table for every verb; scripts depend on the numbers.
enum class ExitStatus : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    NoSuchItem = 4,
    NotPermitted = 5,  ///< The daemon does not allow the request, or the item may not launch.
    Unreachable = 6,   ///< No daemon answers.
};

}  // namespace kswctl
