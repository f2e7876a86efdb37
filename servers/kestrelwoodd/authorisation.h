// authorisation.h: who may do what.
#pragma once

#include <cstdint>

#include <kestrelwood/KSWTypes.h>

#include "servers/kestrelwoodd/caller.h"

namespace ksw::daemon {

/// What a method does with records.
enum class Rule : std::uint8_t {
    Ask,       ///< Reads the record of one user, or one of the system's in its stead.
    Change,    ///< Makes, changes or removes a record.
    List,      ///< Reads what may be shown to anybody; the answer has only what the caller may see.
    Tell,      ///< Tells one user something, or of what the user has.
    Manage,    ///< Reads or changes what is the host's as a whole, or what is managed.
    Maintain,  ///< Reads or removes all that is kept. The operation asks for an administrator's consent.
};

/// Whether the caller may do this for user `uid` with an item of this type. Uid 0 may do everything, and so may the
/// owner of the host root when the daemon has one of its own. Another user may do it for itself only, and may
/// change nothing that belongs to the system as a whole: no daemon or smart card, nothing under the uid that stands
/// for every user. An unknown rule allows nothing.
bool isAllowed(Rule rule, const Caller& caller, KSWItemType type, Uid uid);

/// Whether a caller may know that the user has records.
bool maySee(const Caller& caller, Uid uid);

}  // namespace ksw::daemon
