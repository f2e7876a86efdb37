#include "platform/host/sandbox.h"

#include <string>

#include "platform/host/peer_identity.h"
#include "platform/host/process_facts.h"
#include "platform/host/sys_files.h"

namespace ksw::host {

namespace {

bool isInFlatpak(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/root/.flatpak-info";
    const Result<struct ::statx> facts = sys::statx(path, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE);
    return facts && S_ISREG(facts->stx_mode);
}

bool isUnderProfile(pid_t pid) {
    // The second is whichever security module's comes first; where the first is missing it may still be this one's.
    for (const char* const name : {"attr/apparmor/current", "attr/current"}) {
        if (const Result<std::string> label = processFile(pid, name)) {
            return isEnforcedProfile(*label);
        }
    }
    return false;
}

bool isFilteredInNamespace(pid_t pid) {
    const Result<std::string> status = processFile(pid, "status");
    if (!status || !hasSystemCallFilter(*status)) {
        return false;
    }
    const Result<std::string> its = sys::readLink("/proc/" + std::to_string(pid) + "/ns/user");
    const Result<std::string> ours = sys::readLink("/proc/self/ns/user");
    return its && ours && *its != *ours;
}

}  // namespace

bool isSandboxed(const AuditToken& token) {
    const Result<UniqueFd> process = openProcess(token);
    if (!process) {
        return false;
    }
    const pid_t pid = token.pid();
    const bool isSeen = isInFlatpak(pid) || isUnderProfile(pid) || isFilteredInNamespace(pid);
    // While it lives its number is its own, and what was read is of no other.
    return isSeen && !hasEnded(process->get());
}

bool isEnforcedProfile(std::string_view label) {
    while (label.ends_with('\n') || label.ends_with('\0')) {
        label.remove_suffix(1);
    }
    constexpr std::string_view kMode = " (enforce)";
    return label.size() > kMode.size() && label.ends_with(kMode);
}

bool hasSystemCallFilter(std::string_view status) {
    // The name in the first line cannot imitate this: the kernel escapes line breaks in it.
    return status.find("\nSeccomp:\t2\n") != std::string_view::npos;
}

}  // namespace ksw::host
