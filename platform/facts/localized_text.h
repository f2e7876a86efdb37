// localized_text.h: the framework's own texts in the user's language. They stand in LANGUAGE/TABLE.plist of its
// resources.
#pragma once

#include <string>
#include <string_view>

namespace ksw::facts {

/// The text under `key` in the first of the tables that has one: those of the user's languages (languages.h), then
/// English. The key itself, which is English, where none has; a table that cannot be read, or is larger than
/// limits::kPropertyListFileMax, has none. Any thread; blocks for the file system.
std::string localizedText(std::string_view key, std::string_view table);

}  // namespace ksw::facts
