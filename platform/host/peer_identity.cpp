#include "platform/host/peer_identity.h"

#include <cerrno>
#include <string>

#include <sys/socket.h>

#include "platform/host/hidden_root.h"
#include "platform/host/process_facts.h"
#include "platform/host/sys.h"

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77  // Linux 6.5; older headers lack the name
#endif

namespace ksw::host {

namespace {

AuditToken tokenOf(const ucred& credentials) {
    const auto uid = credentials.uid;
    const auto gid = credentials.gid;
    return {{uid, gid, uid, gid, static_cast<std::uint32_t>(credentials.pid), kNoAuditSession, 0, 0}};
}

void setIdentity(AuditToken& token, std::uint64_t identity) {
    token.words[6] = static_cast<std::uint32_t>(identity >> 32U);
    token.words[7] = static_cast<std::uint32_t>(identity);
}

Error goneError(pid_t pid, std::string_view reason) {
    return {kPosixErrorDomain, ESRCH, "process " + std::to_string(pid) + std::string(reason)};
}

/// A descriptor for the process that the socket's other end belongs to; by its pid on older kernels.
Result<UniqueFd> peerProcess(int fd, pid_t pid) {
    const Result<int> held = sys::getOption<int>(fd, SOL_SOCKET, SO_PEERPIDFD);
    return held ? Result<UniqueFd>(UniqueFd(*held)) : sys::processDescriptor(pid);
}

/// Adds what /proc tells about the process. What was read counts only if the process had not ended by then.
Status addProcessFacts(AuditToken& token, int process) {
    const Result<std::uint64_t> identity = processIdentity(process, token.pid());
    if (!identity) {
        return identity.error();
    }
    const Result<ProcessIds> ids = processIds(token.pid());
    if (!ids) {
        return ids.error();
    }
    if (hasEnded(process)) {
        return goneError(token.pid(), " has ended");
    }
    token.words[2] = ids->realUid;
    token.words[3] = ids->realGid;
    token.words[5] = ids->auditSession;
    setIdentity(token, *identity);
    return {};
}

/// The peer of a connected socket as the kernel shows it.
Result<AuditToken> peerToken(int fd) {
    const Result<ucred> credentials = sys::getOption<ucred>(fd, SOL_SOCKET, SO_PEERCRED);
    if (!credentials) {
        return credentials.error();
    }
    if (credentials->uid == kNoUser) {
        return sys::callError(ENOTCONN, "getsockopt", fd);
    }
    AuditToken token = tokenOf(*credentials);
    if (token.pid() > 0) {
        const Result<UniqueFd> process = peerProcess(fd, token.pid());
        if (process) {
            // A peer that has ended keeps what the kernel vouched for, and an identity that nothing matches.
            static_cast<void>(addProcessFacts(token, process->get()).ok());
        }
    }
    return token;
}

}  // namespace

Result<PeerIdentity> PeerIdentity::ofSocket(int fd) {
    Result<AuditToken> token = peerToken(fd);
    if (!token) {
        return token.error();
    }
    token->words[0] = callerThrough(fd, token->effectiveUid());
    return PeerIdentity(*token);
}

Result<PeerIdentity> PeerIdentity::ofListener(int fd, const std::string& path) {
    Result<AuditToken> token = peerToken(fd);
    if (!token) {
        return token.error();
    }
    token->words[0] = listenerAt(path, token->effectiveUid());
    return PeerIdentity(*token);
}

Result<AuditToken> auditTokenForPid(pid_t pid) {
    const Result<UniqueFd> process = sys::processDescriptor(pid);
    if (!process) {
        return process.error();
    }
    const Result<ProcessIds> ids = processIds(pid);
    if (!ids) {
        return ids.error();
    }
    AuditToken token{{ids->effectiveUid, ids->effectiveGid, ids->realUid, ids->realGid,
                      static_cast<std::uint32_t>(pid), ids->auditSession, 0, 0}};
    if (Status status = addProcessFacts(token, process->get()); !status) {
        return status.error();
    }
    return token;
}

Result<UniqueFd> openProcess(const AuditToken& token) {
    if (token.pid() <= 0 || token.processIdentity() == 0) {
        return goneError(token.pid(), " is not known");
    }
    Result<UniqueFd> process = sys::processDescriptor(token.pid());
    if (!process) {
        return process;
    }
    const Result<std::uint64_t> identity = processIdentity(process->get(), token.pid());
    if (!identity || hasEnded(process->get())) {
        return goneError(token.pid(), " has ended");
    }
    if (*identity != token.processIdentity()) {
        return goneError(token.pid(), " has ended, and its number belongs to another process");
    }
    return process;
}

Status revalidate(const AuditToken& token) {
    const Result<UniqueFd> process = openProcess(token);
    return process ? Status() : Status(process.error());
}

}  // namespace ksw::host
