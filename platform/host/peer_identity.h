// peer_identity.h: which process is at the other end of a socket, and whether a process named by an audit token is
// still the same one. Identity is the inode of the process's pidfd where the kernel numbers those (Linux 6.9), else
// the time the process was started; the pid alone is never enough, since it is used again.
#pragma once

#include <string>

#include <kestrelwood/values/audit_token.h>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"

namespace ksw::host {

/// Who is at the other end, by the kernel's word as of the connecting. Authorisation accepts nothing else. Captured
/// once per connection; a plain value afterwards.
class PeerIdentity {
public:
    /// Who has connected to an accepted Unix socket. Error: POSIX, when the kernel has no credentials for the
    /// socket.
    static Result<PeerIdentity> ofSocket(int fd);
    /// Who listens at `path`, which the socket was connected to: absolute, and without links. Error: as above.
    static Result<PeerIdentity> ofListener(int fd, const std::string& path);

    /// The peer's effective user; uid 0 also where the kernel has no number for it (hidden_root.h).
    Uid uid() const { return token_.effectiveUid(); }
    pid_t pid() const { return token_.pid(); }
    /// Names the peer's process. When it has ended already, or belongs to another pid namespace, its identity is 0
    /// and no later look finds it.
    const AuditToken& auditToken() const { return token_; }

private:
    explicit PeerIdentity(const AuditToken& token) : token_(token) {}
    AuditToken token_;
};

/// Names a running process. Error: ESRCH when there is none, or it has ended meanwhile.
Result<AuditToken> auditTokenForPid(pid_t pid);

/// Looks the process up again. Gives a descriptor that stands for this very process (pidfd). Error: ESRCH when it
/// has ended, or its pid belongs to another one by now.
Result<UniqueFd> openProcess(const AuditToken& token);

/// Whether the token still names a running process; the error as above.
Status revalidate(const AuditToken& token);

}  // namespace ksw::host
