// set_aside.h: where a damaged database goes: into a folder beside it, from which nobody reads it again, since one
// stale page could bring a permission back that has been withdrawn. The folder is also the mark that records were
// lost, and stays so until somebody removes it.
#pragma once

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace ksw::servers {

/// The folders with set-aside files beside the database at `path`, ascending by name, hence by age.
Result<std::vector<std::string>> setAsideFolders(const std::string& path);

/// Moves the database at `path`, which nobody has open, and what belongs to it into a folder beside it, and gives
/// the folder. The folder is on disk before anything is moved, and the database is moved before its journal: a
/// crash in between leaves the damaged database, or a journal without one, which counts as damaged, and the next
/// call goes on in the same folder. On failure some of it may have been moved.
Result<std::string> setAside(const std::string& path);

}  // namespace ksw::servers
