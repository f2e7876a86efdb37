// roster_file.h: the file in which login items were kept before there was an agent.
#pragma once

#include <optional>
#include <string>

#include "platform/base/result.h"
#include "servers/kestrelwoodagent/login_items.h"

namespace ksw::agentserver {

/// Of the file, in bytes: 1,024 items with long paths, and then some.
inline constexpr std::size_t kRosterFileMax = 16 * 1024 * 1024;

/// "com.velmont.kestrelwoodagent/backgrounditems.ksw" in the user's folder of data; absent without a home.
std::optional<std::string> rosterFile();

/// Adds the items of the file that are not there yet, all of them or none, and then, when they are on disk and
/// `deleteWhenDone`, removes the file. Without a file there is nothing to do. Again after a crash in between: the
/// items are there, and the file goes. Error: the file is damaged, or has more than 1,024 items, or cannot be read
/// or removed; as `LoginItems::import`.
Result<Outcome> importRosterFile(LoginItems& items, bool deleteWhenDone);

}  // namespace ksw::agentserver
