// application.h: an application as it lies in a folder, and what may be believed of who put it there.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <sys/stat.h>

#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/url.h>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"

namespace ksw::facts {

/// Whose files count in a folder of applications.
struct Owners {
    Uid user = 0;
    Uid administrator = 0;

    /// Whether the file is of one of them, and nobody else may write it: no others, and no group but the owner's
    /// own, which has the owner's number.
    bool own(const struct ::stat& facts) const;

    friend bool operator==(const Owners&, const Owners&) = default;
};

/// Immutable; any thread.
struct Application {
    std::string identifier;      ///< Of the bundle, from its information property list; not empty.
    std::string path;            ///< Through no link.
    URL url;                     ///< Of a directory.
    bool isPlaceholder = false;  ///< Its main executable is not there: it is being installed, or was left half.

    /// Its name for people. Reads it anew.
    std::string localizedName() const;
    /// The team of an embedded signature that holds. Verifies it, unless the same file was verified before.
    std::optional<std::string> team() const;
};

using ApplicationPointer = std::shared_ptr<const Application>;

/// What was read of a bundle.
struct ReadApplication {
    ApplicationPointer application;
    std::size_t bytes = 0;  ///< Of the information property list.
};

/// Reads the bundle at `path`, which must lead through no link. Error: why it is none, has no identifier that can
/// be read, or somebody else than the owners may have written it (EPERM).
Result<ReadApplication> readApplication(const std::string& path, const Owners& owners);

/// A folder that one of the owners has, open. EPERM when it is somebody else's or somebody else may write it.
Result<UniqueFd> openOwnedFolder(const std::string& path, const Owners& owners);

}  // namespace ksw::facts
