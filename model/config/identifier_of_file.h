// identifier_of_file.h: what an item is known by, from the file behind it.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/KSWTypes.h>

#include "platform/facts/file_inside.h"

namespace ksw::config {

/// As ItemIdentifierForURLAndType, which stands in KSWFunctions.h, of a file as it was found.
std::optional<std::string> identifierOfFile(KSWItemType type, const facts::FoundFile& file);

}  // namespace ksw::config
