// open_registry.h: how the daemon comes to its records at the start, whatever has happened to them since.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "servers/common/state_folder.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

/// The folder of the daemon's state under the host root, made when it is missing, and its lock.
Result<servers::StateFolder> takeStateFolder();

struct OpenedRegistry {
    std::unique_ptr<Registry> registry;
    std::optional<std::string> loss;  ///< What was just found damaged, and where it is now.
};

/// Opens the store at `path` and reads it. A damaged one is set aside, with an error in the log, and a new one is
/// made; as long as something lies set aside the registry's history is lost. Error, and all is left as it is: the
/// store is of a newer schema, or another program's; the disk cannot give it now; it cannot be set aside whole.
Result<OpenedRegistry> openRegistry(const std::string& path, std::int64_t pagesMax = kStorePagesMax);

}  // namespace ksw::daemon
