// type_identifier.h: what sort of thing a file is, as a text that programs compare.
#pragma once

#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace ksw::host {

/// The type of the file at a path; links are followed.
///
/// | File | Type |
/// |---|---|
/// | a directory by its name: ".app" | "com.velmont.type.application" |
/// | ".bundle" | "com.velmont.type.bundle" |
/// | any other directory | "com.velmont.type.folder" |
/// | a regular file | "com.velmont.type.file" |
/// | a pipe, socket or device | "com.velmont.type.special" |
///
/// The text lives as long as the process. Error: POSIX, when the file cannot be examined. Any thread; blocks for
/// the file system.
Result<std::string_view> typeIdentifier(const std::string& path);

/// Whether the type is one of the two bundles.
bool conformsToBundle(std::string_view type);

}  // namespace ksw::host
