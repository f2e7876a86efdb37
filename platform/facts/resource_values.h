// resource_values.h: what the file system says of a file, by the keys of resource_keys.h, and whether a URL has
// one at all. Symbolic links are followed. Any thread; blocks for the file system.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <kestrelwood/resource_keys.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/value.h>

namespace ksw::facts {

/// The value of the key for the file at `path`; absent when the file cannot be examined, and for a key that is
/// none.
std::optional<Value> resourceValue(const std::string& path, std::string_view key);

/// The same for several keys at once; what is absent is left out.
Dictionary resourceValues(const std::string& path, std::span<const std::string_view> keys);

/// Whether it is true; false when absent.
bool isResource(const std::string& path, std::string_view key);

/// Whether there is a URL and a file where it leads; false too when the file cannot be examined.
bool hasFile(const std::optional<URL>& url);

}  // namespace ksw::facts
