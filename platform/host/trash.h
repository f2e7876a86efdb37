// trash.h: whether a file has been thrown away. Trash folders are those of the freedesktop.org layout: the home
// trash of the process's user (`$XDG_DATA_HOME/Trash`, `~/.local/share/Trash`) and of any other user of the host
// (in the home that the database of users names), either perhaps a link to elsewhere, and at the top of each volume
// `.Trash/UID` and `.Trash-UID`. What was thrown away lies in their folder `files`.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"

namespace ksw::host {

enum class Relationship {
    Contains,  ///< The trash contains the file, or is the file.
    Other      ///< The file lies elsewhere.
};

/// The relationship of the trash of the file's own volume to the file. Symbolic links are followed first: the
/// file's own place decides. Costs two opens for a file on whose way no folder is called `files`. Error: POSIX,
/// naming the path, when the file does not exist or cannot be examined. Any thread.
Result<Relationship> relationshipOfTrash(const std::string& path);

/// Whether a path that leads through no link may lead into a trash, by its names alone. One for which this is false
/// does not, unless `files` of the home trash is itself a link to a folder of another name.
bool mayLeadIntoTrash(std::string_view path);

/// Where that lies which the process's user has thrown away from the volume that the folder is on: the folders
/// `files` of the home trash, and of both trashes at the top of the volume. They need not exist.
std::vector<std::string> ownTrashFolders(const std::string& folder);

}  // namespace ksw::host
