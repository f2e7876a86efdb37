// KSWApplications.h: the applications that lie in the host's folders for them, and in those of its users.
// An application is a directory whose name ends in ".app" and whose information property list names an identifier.
// It counts in /Applications, /opt and /usr/local/Applications, or a folder in these, when nobody but the
// administrator may write it; in a user's ~/Applications, when nobody else but that user may. What lies behind a
// symbolic link does not count. Any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/export.h>
#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/url.h>

namespace ksw {

namespace facts {
struct Application;
}  // namespace facts

/// An application as it was found. An immutable value; copies share.
class KSW_EXPORT Application {
public:
    /// Made by the functions below, of what they found.
    explicit Application(std::shared_ptr<const facts::Application> record);

    /// The bundle's identifier; not empty.
    const std::string& identifier() const;
    /// The bundle, a directory.
    const URL& url() const;
    /// Whether the main executable is not there: the application is being installed, or was left half.
    bool isPlaceholder() const;

    /// The name to show, in the user's languages. Blocks for the file system.
    std::string localizedName() const;
    /// The team that has signed it, with an embedded signature that holds. Absent for any other. Blocks for the
    /// verification, which can take seconds for a large executable that was not verified before.
    std::optional<std::string> team() const;

private:
    std::shared_ptr<const facts::Application> record_;
};

/// The applications that the user has, placeholders too: those of the system in the order of the folders above,
/// then the user's own. For 4294967294, which is every user, the system's. Blocks for the file system when they are
/// asked for the first time, and when the folders have changed; as they were at most a second ago.
KSW_EXPORT std::vector<Application> applications(Uid uid);

/// The first of these that has the identifier and is no placeholder; in a folder before those in the folders in it.
/// Absent when there is none. Blocks as above.
KSW_EXPORT std::optional<Application> applicationWithIdentifier(std::string_view identifier, Uid uid);

}  // namespace ksw
