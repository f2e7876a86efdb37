// garbage.h: which records have no file any more.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "servers/kestrelwoodd/record_index.h"

namespace ksw::daemon {

/// Whether the file of a user's record is gone for certain: there is none where it was, and none that its bookmark
/// leads to. An item without a file of its own has none to lose. Looked at with the rights of the record's user;
/// what he may not see is not gone.
bool isGone(Uid uid, const KSWItem& record);

/// The path of the file that a record is known by, its job file or its bundle; absent without one.
std::optional<std::string> placeOf(const KSWItem& record);

/// The records whose files are gone, but for those that lie in these folders. Looks at every file.
std::vector<std::pair<Uid, ItemPointer>> goneRecords(const RecordIndex& records,
                                                     const std::vector<std::string>& foldersLeftAlone);

/// The jobs whose files lay in this folder and are gone.
std::vector<std::pair<Uid, ItemPointer>> goneJobsIn(const RecordIndex& records, const std::string& folder);

}  // namespace ksw::daemon
