// verbs.h: what each verb does, and which status the program ends with.
#pragma once

#include "tools/common/exit_status.h"
#include "tools/kswsign/options.h"

namespace tools::kswsign {

/// Prints nothing when all is done.
ExitStatus sign(const Options& options);
ExitStatus strip(const Options& options);
/// Prints a line that says whose signature it is.
ExitStatus verify(const Options& options);
/// A signature that is not valid is shown too, and that is a success.
ExitStatus display(const Options& options);

}  // namespace tools::kswsign
