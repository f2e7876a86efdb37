// verbs.h: what each verb does. Each prints its answer and says which status the program ends with.
#pragma once

#include "tools/common/exit_status.h"
#include "tools/kswctl/options.h"

namespace tools::kswctl {

ExitStatus listUsers(const Options& options);
ExitStatus registerJob(const Options& options);
ExitStatus unregisterJob(const Options& options);
ExitStatus askWhetherJobMayLoad(const Options& options);
ExitStatus showStatus(const Options& options);

ExitStatus listItems(const Options& options);
ExitStatus showItem(const Options& options);
ExitStatus addItem(const Options& options);
ExitStatus removeItem(const Options& options);
/// Turn on or off, allow or forbid, hide or show an item, as the verb says.
ExitStatus changeItem(const Options& options);
/// Returns when a signal asks for the end, or when what it prints cannot be written any more.
ExitStatus watchItems(const Options& options);

/// What is known of code by its signature. Asks no daemon.
ExitStatus showFacts(const Options& options);

/// Asks the host's folders and no daemon.
ExitStatus listApplications(const Options& options);

}  // namespace tools::kswctl
