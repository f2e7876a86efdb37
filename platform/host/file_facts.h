// file_facts.h: what the file system says about a file. Paths are bytes; symbolic links are followed. Every call
// may block as long as the file system does. Errors are POSIX ones and name the path.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include <kestrelwood/values/data.h>
#include <kestrelwood/values/date.h>

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/base/result.h"

namespace ksw::host {

/// Tells a file from every other on this host, now and later: an inode number is used again, but not with the
/// same time of birth. Birth is 0 on a file system that does not keep it.
struct FileIdentifier {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t birthSeconds = 0;
    std::uint32_t birthNanoseconds = 0;

    friend auto operator<=>(const FileIdentifier&, const FileIdentifier&) = default;
};

struct FileFacts {
    bool isDirectory = false;
    bool isRegularFile = false;
    /// A directory whose name ends in ".app".
    bool isApplication = false;
    Date contentModificationDate;
    FileIdentifier identifier;
};

/// Error: ENOENT and the like.
Result<FileFacts> fileFacts(const std::string& path);

/// What statx(2) is asked for, for the facts, and what it answered about the file at `path`.
inline constexpr unsigned kFactsMask = STATX_TYPE | STATX_MTIME | STATX_INO | STATX_BTIME;
FileFacts factsIn(const struct ::statx& answer, std::string_view path);

/// Whether the folder is where a file system is mounted; false too when it cannot be examined.
bool isTopOfVolume(const std::string& folder);

/// False too when the file cannot be examined.
bool fileExists(const std::string& path);

/// The path without links, "." and "..".
Result<std::string> canonicalPath(const std::string& path);

/// The whole content of a regular file. Error: EFBIG when there are more than `sizeMax` bytes, EINVAL for what is
/// not a regular file, which is not even opened.
Result<Data> readFile(const std::string& path, std::size_t sizeMax);

}  // namespace ksw::host
