// changed_files.h: whether the files of a recorded item are others than they were, and what is to be read anew
// then.
#pragma once

#include "servers/kestrelwoodd/launch_item.h"

namespace ksw::daemon {

/// Whether the item's own file or its executable has another date than the record says, or is an application that
/// somebody else has made by now. A file that is not there, or that these rights do not show, is none that has
/// changed; nor has a user's document, whose content says nothing of the item. Blocks while an application is read.
bool haveFilesChanged(const KSWItem& record, const Caller& rights);

/// A recorded item as if it were registered as its files are now: by its job file when that has changed and tells
/// what the same job runs, else by what the record says of its job, with the digest that the executable has now.
/// Absent for a record without a place. Blocks while the executable is read.
std::optional<LaunchItem> recordedItem(const KSWItem& record, Uid uid, const Caller& rights);

}  // namespace ksw::daemon
