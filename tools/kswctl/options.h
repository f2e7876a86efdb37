// options.h: the command line.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/values.h>

#include "tools/kswctl/exit_status.h"

namespace kswctl {

enum class Verb { Users, Register, Unregister, MayLoad, Status };

/// Which service of the daemon is asked.
enum class Road { Manager, Registrar };

/// What the command line asks for. `job` to `road` count for the verbs that are about one job only.
struct Options {
    Verb verb = Verb::Status;
    bool json = false;
    std::string job;
    std::optional<std::string> app;
    KSWItemType kind = KSWItemTypeAgent;
    ksw::Uid uid = 0;
    Road road = Road::Manager;
};

/// Reads the command line. An exit status when there is nothing to do any more: help or version was printed,
/// or the command line was wrong and the complaint stands on standard error.
std::variant<Options, ExitStatus> parseOptions(int argc, const char* const* argv);

}  // namespace kswctl
