// hidden_root.h: uid 0 as it looks from a user namespace that has no number for it, such as the one that a user's
// service manager starts a service in to close the rest of the host to it. There the kernel shows uid 0, and every
// other user but the namespace's own, by one and the same number, the overflow uid, so that the number says
// nothing; what tells uid 0 from all others is where only uid 0 can have come to. In a namespace that has uid 0,
// and outside of any, each number is whom it says.
//
// What the kernel says about the namespace is read once in a process, so a process that enters one does so before.
// Any thread.
#pragma once

#include <string>
#include <string_view>

#include <kestrelwood/values/audit_token.h>

namespace ksw::host {

/// Who listens on the socket at `path`, an absolute one without links, who is shown as `shown`. Uid 0 behind the
/// number for everybody, if nobody else can have made the folder of the socket.
Uid listenerAt(const std::string& path, Uid shown);

/// Who has come through the socket, an accepted one, who is shown as `shown`. Uid 0 behind the number for
/// everybody, while nobody else gets into the folder of the listening socket and the one above it but this
/// process's user.
Uid callerThrough(int socket, Uid shown);

/// Whose a file or folder is that is shown as `shown`'s; `path` is absolute and without links. Uid 0 behind the
/// number for everybody, if nobody else can have made it, else `kNoUser`: it may be anybody's.
Uid ownerAt(const std::string& path, Uid shown);

/// The number by which uid 0 is shown, by the texts of /proc/self/uid_map and /proc/sys/kernel/overflowuid.
/// `kNoUser` when uid 0 has a number of its own, or a user of the namespace has that number.
Uid hiddenRootIn(std::string_view uidMap, std::string_view overflowUid);

}  // namespace ksw::host
