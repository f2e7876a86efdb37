// application_access.h: the application registry as the user at the console has it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/KSWApplications.h>

#include "platform/base/text.h"

namespace ksw::config {

/// The applications that a user has. Any thread; blocks for the file system.
class ApplicationAccess {
public:
    /// For the console's user. Absent, with a word in the log under the name of `function`, when who that is has no
    /// account on this host, or has applications that this process may not look at: to find only some of them could
    /// make another one than theirs answer for an item. Without a user at the console, everybody's are what there
    /// is.
    static std::optional<ApplicationAccess> asConsoleUser(Literal function);

    /// The one of this identifier that is there whole.
    std::optional<Application> find(std::string_view identifier) const {
        return applicationWithIdentifier(identifier, uid_);
    }

private:
    explicit ApplicationAccess(Uid uid) : uid_(uid) {}

    Uid uid_;
};

}  // namespace ksw::config
