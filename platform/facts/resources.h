// resources.h: property lists that are shipped with the system. Every path lies below the host root. Any thread;
// all of these block for the file system.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/value.h>

#include "platform/base/result.h"

namespace ksw::facts {

/// The framework's own bundle.
inline constexpr std::string_view kFrameworkBundle = "com.velmont.quarrystone.Kestrelwood";

/// The folder with the resources of the bundle of this identifier; absent for one that this system does not ship.
std::optional<std::string> resourceFolder(std::string_view bundleIdentifier);

/// The folder with the resources of the bundle whose directory is at this path of the host.
std::string resourceFolderAtPath(std::string_view bundlePath);

/// The dictionary in NAME.plist of a folder of resources. Error: a POSIX one when there is no regular file of at
/// most `sizeMax` bytes, else FormatError.
Result<Dictionary> readResource(const std::string& folder, std::string_view name, std::size_t sizeMax);

/// Whether this host has internal content for the subsystem: `/usr/share/kestrelwood/internal/SUBSYSTEM` is there.
bool hasInternalContent(std::string_view subsystem);

}  // namespace ksw::facts
