// regular_file.h: opening what must be a regular file, and nothing else, where others may put what they like.
#pragma once

#include <optional>
#include <string>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"

namespace ksw::host {

/// The regular file that a path leads to, open for reading; nothing when it is something else, which is not opened.
/// What is looked at is what is opened, whatever takes its name in between; only without /proc has it to be found
/// by its name once more. Errors are POSIX ones and name the path. Any thread; blocks for the file system.
Result<std::optional<UniqueFd>> openRegularFile(const std::string& path);
/// The same for a name in an open folder, following no link: one is something else.
Result<std::optional<UniqueFd>> openRegularFileIn(int folder, const std::string& name);

}  // namespace ksw::host
