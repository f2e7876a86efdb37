#include "tools/common/command_line.h"

#include <iostream>
#include <string>
#include <vector>

#include <kestrelwood/ksw_version.h>

#include "tools/common/outcome.h"

namespace tools {

void addVersion(CLI::App& app) {
    app.set_version_flag("--version", std::string(KSW_TOOL " ") + ksw_version(), "Print the version and exit");
}

std::string complaintIfEmpty(const std::string& text) {
    return text.empty() ? "must not be empty" : "";
}

ExitStatus wrongUsage(std::string_view text) {
    complain(text);
    std::cerr << "Try '" KSW_TOOL " --help'.\n";
    return ExitStatus::Usage;
}

std::optional<ExitStatus> parse(CLI::App& app, int argc, const char* const* argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        app.exit(asked, std::cout, std::cerr);
        return ExitStatus::Done;
    } catch (const CLI::RequiredError& error) {
        // What is required may be missing because something else stands in its place.
        const std::vector<std::string> unknown = app.remaining(/*recurse=*/true);
        return wrongUsage(unknown.empty() ? error.what() : "'" + unknown.front() + "' is not known here");
    } catch (const CLI::ParseError& error) {
        return wrongUsage(error.what());
    }
    return std::nullopt;
}

}  // namespace tools
