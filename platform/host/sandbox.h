// sandbox.h: whether a process is kept in a sandbox, by the means that Linux has for it.
#pragma once

#include <string_view>

#include <kestrelwood/values/audit_token.h>

namespace ksw::host {

/// Whether any of these is seen of the process:
/// - it runs in a Flatpak: its root has a file `.flatpak-info`;
/// - an AppArmor profile is enforced on it, as on every confined snap;
/// - a system call filter is in force in it, and its user namespace is not ours.
/// A source that may not be looked at says nothing, and so does a process that has ended by the time the answer is
/// ready, whoever has its number then: false. Any thread; does not wait for the process.
bool isSandboxed(const AuditToken& token);

/// Whether a label (/proc/PID/attr/current) is that of a profile which is enforced.
bool isEnforcedProfile(std::string_view label);

/// Whether the text of /proc/PID/status tells of a filter on system calls.
bool hasSystemCallFilter(std::string_view status);

}  // namespace ksw::host
