// paths.h: paths as bytes. Nothing is looked at in the file system; "." and ".." are names like any other.
#pragma once

#include <string>
#include <string_view>

namespace ksw {

/// The path without slashes at its end; "/" stays.
std::string_view withoutEndSlashes(std::string_view path);

/// The last component of a path, without slashes at its end; "/" for the root.
std::string_view lastComponent(std::string_view path);

/// The folder that an absolute path's last component is a name in: "/" for /a. Empty for the root, and for a name
/// alone.
std::string_view folderOf(std::string_view path);

/// The path of a name, or of a relative path, in a folder.
std::string pathBelow(std::string_view folder, std::string_view name);

/// Whether the path is the folder or one of something in it. Neither has a slash at its end; the folder may be "/",
/// or empty, which is the same.
bool isAtOrBelow(std::string_view path, std::string_view folder);

}  // namespace ksw
