// settings_program.h: the program in which the user decides about login items, as the agent's configuration names
// it.
#pragma once

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace ksw::agentserver {

/// The configuration files, the one that counts first: `kestrelwood/agent.plist` in the user's folder of
/// configuration, then in /etc and in /usr/share. The first that is there counts.
std::vector<std::string> configurationFiles();

/// The command under "SettingsProgram": an array of strings, the program first. Error: status -4 when none is
/// configured; what is wrong with the file.
Result<std::vector<std::string>> settingsCommand();

/// Starts the configured program in a session of its own, with the agent's environment and without input, and does
/// not wait for it. The process must ignore SIGCHLD, or wait for its children. Error: as above; POSIX when it
/// cannot be started.
Status openSettings();

}  // namespace ksw::agentserver
