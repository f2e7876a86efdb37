// bundles.h: which names are those of bundles, directories that are shown and moved as one thing, and where an
// application keeps its executable. Rules on paths as bytes; nothing is looked at in the file system.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ksw::host {

inline constexpr std::string_view kApplicationExtension = ".app";

/// The ending that makes the path's last component the name of a bundle: ".app" or ".bundle". Empty for any other
/// name, and for one that is nothing but the ending. Slashes behind it do not count.
std::string_view bundleExtension(std::string_view path);

/// The bundle whose main executable the path is: /…/X.app for /…/X.app/Contents/Linux/NAME. Absent for any other.
std::optional<std::string> bundleOfExecutable(std::string_view path);
/// The same when that is an application.
std::optional<std::string> applicationOfExecutable(std::string_view path);

/// The folders on the way to the path's end, and that itself, that are called like applications; the outermost one
/// first. None whose path is longer than any of the kernel's (4,095 bytes).
std::vector<std::string> applicationsOnWay(std::string_view path);

}  // namespace ksw::host
