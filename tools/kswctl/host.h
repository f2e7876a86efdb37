// host.h: the host that is examined: where its places are, and the commands that change it.
#pragma once

#include <sys/types.h>

#include <string>

namespace tools::kswctl {

/// A place of the host, below the host root when one is set.
std::string hostPlace(const std::string& path);

/// The run folder of the caller's session; empty when the caller has no session.
std::string sessionRunFolder();

/// Whose everything is that all users rely on: uid 0, or the owner of the host root.
uid_t hostOwner();

bool isThere(const std::string& path);

/// Whether the host's service manager is the one that the units are for.
bool hasServiceManager();

/// A path as a word of a shell's command.
std::string shellWord(const std::string& path);

/// The commands that start the daemon, and that have it begin anew.
std::string startCommand();
std::string restartCommand();

/// The command that puts what is installed back as it was.
inline constexpr const char* kReinstallCommand = "apt-get install --reinstall kestrelwood";

}  // namespace tools::kswctl
