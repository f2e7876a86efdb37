// kinds.h: the names under which the command line knows the kinds of items.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/KSWTypes.h>

namespace tools::kswctl {

/// The base kind of this name; absent for any other text.
std::optional<KSWItemType> kindNamed(std::string_view name);

/// The mask of the kinds in a text such as "agent,daemon". Absent when one of the names is none.
std::optional<KSWItemType> kindsNamed(std::string_view names);

/// Every name, for people: "user-item, app, ...".
std::string kindNames();

}  // namespace tools::kswctl
