// process_facts.h: what the kernel tells about a process by its number. What is read under /proc belongs to
// whichever process has the number at that moment; see peer_identity.h for how to be sure. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "platform/base/result.h"

namespace ksw::host {

/// The audit session of a process that has none.
inline constexpr std::uint32_t kNoAuditSession = 4'294'967'295U;

struct ProcessIds {
    std::uint32_t realUid = 0;
    std::uint32_t effectiveUid = 0;
    std::uint32_t realGid = 0;
    std::uint32_t effectiveGid = 0;
    std::uint32_t auditSession = kNoAuditSession;  ///< That too when the kernel keeps none.
};

/// Error: POSIX, ESRCH when there is no such process.
Result<ProcessIds> processIds(pid_t pid);

/// The content of a file of /proc/PID: `processFile(pid, "status")`. What is longer than `kProcessFileMax` is cut
/// off. Error: POSIX, ESRCH when there is no such process or file.
Result<std::string> processFile(pid_t pid, std::string_view name);
/// The same of any file of /proc, by its path. Error: POSIX.
Result<std::string> kernelFile(const std::string& path);

/// A process may have a long environment, a host many mounts.
inline constexpr std::size_t kProcessFileMax = 1'024UL * 1'024UL;

/// The number that tells the process behind a pidfd from every other: the pidfd's inode, or where all pidfds
/// share one (before Linux 6.9) the start time. Never 0.
Result<std::uint64_t> processIdentity(int pidfd, pid_t pid);

/// Whether the process behind a pidfd has ended; a zombie has.
bool hasEnded(int pidfd);

/// The start time, in clock ticks since boot, in the text of /proc/PID/stat; absent when the text is not one. The
/// program's name in it may hold blanks and parentheses.
std::optional<std::uint64_t> startTimeIn(std::string_view stat);

}  // namespace ksw::host
