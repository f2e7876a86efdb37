// moved_file.h: finds a file that is no longer at its path.
#pragma once

#include <optional>
#include <string>

#include "platform/facts/bookmark_blob.h"
#include "platform/host/quiet_lookup.h"

namespace ksw::facts {

/// Whether the file that is at `path` is the one on record.
bool isRecordedFile(const FileRecord& record, const host::FileIdentifier& identifier, const std::string& path);

/// The path of the recorded file, which was at `path`: by its handle where the kernel lets the process use it; else
/// the file is looked for in the folder, in the folder above and those in that, and in what the user has thrown
/// away on the same volume. At most `limits::kBookmarkSearchEntriesMax` directory entries are read. Absent when it
/// is not found, and when its volume is not mounted. Blocks for the file system, mounts nothing. Any thread.
std::optional<std::string> findMovedFile(const std::string& path, const BookmarkContent& bookmark);

}  // namespace ksw::facts
