// resource_keys.h: what the file system says of a file, by name: the keys of the values that a bookmark can hold.
#pragma once

#include <kestrelwood/values/string_constant.h>

namespace ksw {

// Strings. Names and paths are a file system's bytes, which need not be UTF-8; a localized name is UTF-8.

/// The name by which the folder calls the file.
inline constexpr StringConstant kResourceKeyName = "KSWResourceName";
/// The name for people: an application's display name in the user's languages, else the name without ".app".
inline constexpr StringConstant kResourceKeyLocalizedName = "KSWResourceLocalizedName";
inline constexpr StringConstant kResourceKeyPath = "KSWResourcePath";
/// The path without symbolic links, "." and "..".
inline constexpr StringConstant kResourceKeyCanonicalPath = "KSWResourceCanonicalPath";

// Bools.

inline constexpr StringConstant kResourceKeyIsDirectory = "KSWResourceIsDirectory";
inline constexpr StringConstant kResourceKeyIsRegularFile = "KSWResourceIsRegularFile";
/// A directory that people take for one thing, by its name: an application, a plug-in, a framework.
inline constexpr StringConstant kResourceKeyIsPackage = "KSWResourceIsPackage";
/// A directory whose name ends in ".app".
inline constexpr StringConstant kResourceKeyIsApplication = "KSWResourceIsApplication";
/// The process may execute the file, or search the directory.
inline constexpr StringConstant kResourceKeyIsExecutable = "KSWResourceIsExecutable";
/// The directory where a file system is mounted.
inline constexpr StringConstant kResourceKeyIsVolume = "KSWResourceIsVolume";

/// A date.
inline constexpr StringConstant kResourceKeyContentModificationDate = "KSWResourceContentModificationDate";
/// Bytes that are the same for the same file and for no other, as long as its file system is mounted.
inline constexpr StringConstant kResourceKeyFileIdentifier = "KSWResourceFileIdentifier";

}  // namespace ksw
