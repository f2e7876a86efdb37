// audit_token.h: which process is meant.
#pragma once

#include <array>
#include <compare>
#include <cstdint>

#include <sys/types.h>

#include <kestrelwood/export.h>

namespace ksw {

/// A numeric user identifier.
using Uid = std::uint32_t;

/// Stands for every user, or for what belongs to the system as a whole.
inline constexpr Uid kEveryUser = 4294967294U;
/// Never a user; the kernel's "no such user".
inline constexpr Uid kNoUser = 4294967295U;

/// Eight words that name a process: effective uid and gid, real uid and gid, pid, audit session, and two
/// words of the process's own identity (the inode of its pidfd, else its start time), which tell it from a
/// later process with the same pid. A plain value; it proves nothing until the process is looked up again.
struct KSW_EXPORT AuditToken {
    std::array<std::uint32_t, 8> words{};

    Uid effectiveUid() const { return words[0]; }
    std::uint32_t effectiveGid() const { return words[1]; }
    Uid realUid() const { return words[2]; }
    std::uint32_t realGid() const { return words[3]; }
    pid_t pid() const { return static_cast<pid_t>(words[4]); }
    std::uint32_t auditSession() const { return words[5]; }
    std::uint64_t processIdentity() const { return (std::uint64_t{words[6]} << 32U) | words[7]; }

    friend auto operator<=>(const AuditToken&, const AuditToken&) = default;
};

}  // namespace ksw
