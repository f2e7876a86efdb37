// options.h: the command line.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "tools/common/exit_status.h"

namespace tools::kswsign {

enum class Verb { Sign, Verify, Display, Strip };

/// What the command line asks for. A field counts for the verbs that it is about.
struct Options {
    Verb verb = Verb::Verify;
    std::string path;  ///< Of the code; never empty.
    bool json = false;
    // Signing. Key and chain are files in PEM, both given or neither: then the signature is ad hoc.
    std::optional<std::string> key;
    std::optional<std::string> chain;
    std::string identifier;
    std::optional<std::string> team;
    std::optional<std::string> entitlements;  ///< A property list file.
    std::optional<std::string> requirement;
};

/// Reads the command line. An exit status when there is nothing to do any more: help or version was printed,
/// or the command line was wrong and the complaint stands on standard error.
std::variant<Options, ExitStatus> parseOptions(int argc, const char* const* argv);

}  // namespace tools::kswsign
