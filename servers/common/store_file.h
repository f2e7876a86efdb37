// store_file.h: a store's file as the file system sees it: what its first bytes say, and how it comes to be.
// Knows nothing of what is in the database.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace ksw::servers {

/// What a database's files have behind its name; the first is the database itself.
inline constexpr std::array<std::string_view, 4> kStoreFileEndings = {"", "-wal", "-shm", "-journal"};

enum class StoreFile : std::uint8_t { Missing, Present };

/// Looks at the file before it is opened as a database, which may already write beside it. A file that is not
/// there, or empty, is missing. Error: its schema is newer than `versionMax`; it is damaged (`saysDamaged`): no
/// database, or gone without its journal; it cannot be read.
Result<StoreFile> checkStoreFile(const std::string& path, std::int64_t versionMax);

/// Reads the file and its journal through. Error: the disk cannot give all of them now.
Status readStoreFile(const std::string& path);

Error newerSchemaError(const std::string& path, std::int64_t version, std::int64_t versionMax);

/// Makes a file that is missing: `make` makes the database under another name, and it takes its own when it is
/// whole and on disk. On failure there is none.
Status makeStoreFile(const std::string& path, const std::function<Status(const std::string&)>& make);

/// The folder that a file lies in.
std::string folderOf(const std::string& path);

}  // namespace ksw::servers
