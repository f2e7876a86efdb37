// authorization.h: how a server tells whose authorization it was given.
#pragma once

#include <optional>
#include <string_view>

#include <kestrelwood/authorization.h>
#include <kestrelwood/values.h>

#include "platform/base/result.h"
#include "platform/host/peer_identity.h"

namespace ksw::ipc {

/// What an authorization asks for, under the name that the host's authorisation service knows it by.
inline constexpr std::string_view kManageDatabaseRight = "com.velmont.kestrelwood.manage-database";

/// The bytes of the authorization of a process.
Data serializedAuthorization(const AuditToken& process);

/// Whether the bytes, absent without an authorization, were made by the process at the other end of a connection,
/// as the user by whom it connected. Whether that user may is another question. Error: the bytes are no
/// authorization, or one of another process: a FormatError.
Status checkAuthorization(const std::optional<Data>& serialized, const host::PeerIdentity& peer);
/// The same with the peer's token.
Status checkAuthorization(const std::optional<Data>& serialized, const AuditToken& peer);

}  // namespace ksw::ipc
