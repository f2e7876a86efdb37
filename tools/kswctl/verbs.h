// verbs.h: what each verb does. Each prints its answer and says which status the program ends with.
#pragma once

#include "tools/common/exit_status.h"
#include "tools/kswctl/options.h"

namespace tools::kswctl {

ExitStatus listUsers(const Options& options);
ExitStatus registerJob(const Options& options);
ExitStatus unregisterJob(const Options& options);
/// Register every job of folders.
ExitStatus importJobs(const Options& options);
ExitStatus askWhetherJobMayLoad(const Options& options);
ExitStatus showStatus(const Options& options);
/// Done when nothing on the host is wrong.
ExitStatus examineHost(const Options& options);

ExitStatus listItems(const Options& options);
ExitStatus showItem(const Options& options);
ExitStatus addItem(const Options& options);
ExitStatus removeItem(const Options& options);
/// Turn on or off, allow or forbid, hide or show an item, as the verb says.
ExitStatus changeItem(const Options& options);
/// Returns when a signal asks for the end, or when what it prints cannot be written any more.
ExitStatus watchItems(const Options& options);

/// What the daemon keeps about a user.
ExitStatus showSettings(const Options& options);
ExitStatus setSetting(const Options& options);

/// The legacy login items.
ExitStatus listRoster(const Options& options);
ExitStatus addToRoster(const Options& options);
ExitStatus updateRoster(const Options& options);
ExitStatus removeFromRoster(const Options& options);

/// What device management has decided.
ExitStatus showPayload(const Options& options);
ExitStatus setPayload(const Options& options);
ExitStatus removePayload(const Options& options);
/// Lists the managed jobs, or submits or removes one.
ExitStatus manageJobs(const Options& options);

/// The switches of other parts of the system.
ExitStatus askWhetherSwitchIsSet(const Options& options);
ExitStatus showSwitch(const Options& options);
ExitStatus setSwitch(const Options& options);
ExitStatus resetSwitch(const Options& options);

/// The daemon's database, and of which items users are notified.
ExitStatus collectGarbage(const Options& options);
ExitStatus dumpDatabase(const Options& options);
ExitStatus eraseDatabase(const Options& options);
ExitStatus showNotifications(const Options& options);
ExitStatus setNotifications(const Options& options);

// These ask the agent of the caller's session.

/// What opens when the user logs in.
ExitStatus listLoginItems(const Options& options);
ExitStatus addLoginItem(const Options& options);
ExitStatus removeLoginItem(const Options& options);
/// What runs in the background, and letting it or not.
ExitStatus listBackgroundItems(const Options& options);
ExitStatus electBackgroundItem(const Options& options);

// These ask no daemon.

/// What is known of code by its signature.
ExitStatus showFacts(const Options& options);
/// All that would be known of a job's item, and why some of it is not.
ExitStatus inspectJob(const Options& options);
/// Under which identifier and name a file would be recorded.
ExitStatus identifyFile(const Options& options);
/// Write a bookmark, print what one records, the path that it leads to, or whether two are of the same file.
ExitStatus makeBookmark(const Options& options);
ExitStatus showBookmark(const Options& options);
ExitStatus resolveBookmark(const Options& options);
ExitStatus matchBookmarks(const Options& options);

/// Asks the host's folders and no daemon.
ExitStatus listApplications(const Options& options);

}  // namespace tools::kswctl
