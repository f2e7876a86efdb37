// maker.h: who made an item's code, as its signature proves it.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/KSWItem.h>

#include "servers/kestrelwoodd/caller.h"

namespace ksw::daemon {

/// What a signature says that holds and leads to a certificate that this host trusts. All of it is absent for code
/// without one: what a file merely claims is nobody's word.
struct Maker {
    std::optional<std::string> signingIdentifier;
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> team;
    std::optional<std::string> requirement;  ///< The designated one, as text.
    std::optional<Data> constraint;          ///< The launch constraint.
    /// The organization in the signer's certificate. Absent too for the platform's maker, and for a name that
    /// could be an item's identifier or has a control character in it, since the developer's record is known by it.
    std::optional<std::string> developer;
    bool isSandboxed = false;
};

/// The name if a record can hold it and a developer's record can be known by it.
std::optional<std::string> usableDeveloperName(std::optional<std::string> name);

/// The maker of the code at the path: a program, a script or an application. The file is opened with the caller's
/// rights; whom the host trusts is the daemon's to look up. Blocks while the code is read and hashed; what has been
/// looked at before and is as it was costs next to nothing.
Maker makerOf(const std::optional<std::string>& path, const Caller& caller);

/// Whether the code at the path can be read with the caller's rights, and its signature names another team,
/// requirement or developer than the record. Blocks as `makerOf` does.
bool isOfOtherMaker(const KSWItem& record, const std::string& path, const Caller& caller);

/// Gives a record what the maker says of its code. An agent or daemon keeps its bundle identifier, which is that of
/// the application it belongs to and not its code's.
void takeMaker(KSWItem& record, Maker maker);

/// Gives a record what another of its kind says of the maker.
void takeMaker(KSWItem& record, const KSWItem& source);

/// Whether two records say the same of their maker.
bool haveSameMaker(const KSWItem& record, const KSWItem& other);

}  // namespace ksw::daemon
