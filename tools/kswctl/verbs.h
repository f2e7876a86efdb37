// verbs.h: what each verb does. Each prints its answer and says which status the program ends with.
#pragma once

#include "tools/kswctl/exit_status.h"
#include "tools/kswctl/options.h"

namespace kswctl {

ExitStatus listUsers(const Options& options);
ExitStatus registerJob(const Options& options);
ExitStatus unregisterJob(const Options& options);
ExitStatus askWhetherJobMayLoad(const Options& options);
ExitStatus showStatus(const Options& options);

}  // namespace kswctl
