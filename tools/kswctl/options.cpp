#include "tools/kswctl/options.h"

#include <charconv>
#include <iostream>
#include <map>
#include <string_view>

#include <unistd.h>
#include <CLI/CLI.hpp>

#include "tools/kswctl/text.h"

namespace kswctl {
namespace {

constexpr const char* kVersion = "kswctl " KSW_VERSION;

constexpr const char* kExitStatuses =
    "Exit status: 0 done or launchable, 1 failed, 2 wrong usage, 4 no such item,\n"
    "5 not permitted or not launchable, 6 no daemon answers.";

const std::map<std::string, KSWItemType>& kinds() {
    static const std::map<std::string, KSWItemType> table{
        {"agent", KSWItemTypeAgent}, {"daemon", KSWItemTypeDaemon}, {"login-item", KSWItemTypeLoginItem}};
    return table;
}

std::optional<ksw::Uid> uidFromText(std::string_view text) {
    if (text == "system") {
        return ksw::kEveryUser;
    }
    ksw::Uid uid = ksw::kNoUser;
    const char* end = text.data() + text.size();
    const auto [rest, problem] = std::from_chars(text.data(), end, uid);
    if (problem != std::errc{} || rest != end || uid == ksw::kNoUser) {
        return std::nullopt;
    }
    return uid;
}

/// One verb's place in the command line.
struct VerbRow {
    Verb verb;
    const char* name;
    const char* help;
    bool aboutJob;
    bool choosesRoad;
};

constexpr VerbRow kVerbs[] = {
    {Verb::Users, "users", "List the users that the daemon holds items for", false, false},
    {Verb::Register, "register", "Register a job", true, true},
    {Verb::Unregister, "unregister", "Withdraw a job's registration", true, false},
    {Verb::MayLoad, "may-load", "Ask whether a job may load", true, true},
    {Verb::Status, "status", "Show whether the daemon answers, and its counters", false, false},
};

/// What CLI11 fills, as text where the text still has to be judged.
struct Raw {
    Options options;
    std::string kind = "agent";
    std::optional<std::string> uid;
    bool registrar = false;
};

void addJobOptions(CLI::App& verb, Raw& raw, bool choosesRoad) {
    verb.add_option("JOB", raw.options.job, "The job's property list, XML or binary")->required();
    verb.add_option("--app", raw.options.app,
                    "The application that carries the job; without it the job is a legacy one");
    verb.add_option("--type", raw.kind, "agent, daemon or login-item (default: agent)")
        ->check(CLI::IsMember({"agent", "daemon", "login-item"}));
    verb.add_option("--uid", raw.uid, "The user concerned, or \"system\" (default: the calling user)");
    if (choosesRoad) {
        verb.add_flag("--registrar", raw.registrar, "Ask the daemon's registrar instead of its manager");
    }
}

void addVerbs(CLI::App& app, Raw& raw) {
    for (const VerbRow& row : kVerbs) {
        CLI::App* verb = app.add_subcommand(row.name, row.help);
        verb->set_version_flag("--version", kVersion, "Print the version and exit");
        verb->add_flag("--json", raw.options.json, "Print JSON for programs");
        verb->footer(kExitStatuses);
        verb->callback([&raw, id = row.verb] { raw.options.verb = id; });
        if (row.aboutJob) {
            addJobOptions(*verb, raw, row.choosesRoad);
        }
    }
}

ExitStatus wrongUsage(std::string_view text) {
    complain(text);
    std::cerr << "Try 'kswctl --help'.\n";
    return ExitStatus::Usage;
}

std::variant<Options, ExitStatus> judged(Raw raw) {
    raw.options.kind = kinds().at(raw.kind);
    raw.options.road = raw.registrar ? Road::Registrar : Road::Manager;
    const std::optional<ksw::Uid> uid = raw.uid ? uidFromText(*raw.uid) : getuid();
    if (!uid) {
        return wrongUsage("--uid: '" + *raw.uid + "' is neither a uid from 0 to 4294967294 nor \"system\"");
    }
    raw.options.uid = *uid;
    return std::move(raw.options);
}

}  // namespace

std::variant<Options, ExitStatus> parseOptions(int argc, const char* const* argv) {
    CLI::App app("Asks the management daemon about background items.", "kswctl");
    Raw raw;
    app.set_version_flag("--version", kVersion, "Print the version and exit");
    app.footer(kExitStatuses);
    app.require_subcommand(1);
    addVerbs(app, raw);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        app.exit(asked, std::cout, std::cerr);
        return ExitStatus::Done;
    } catch (const CLI::ParseError& error) {
        return wrongUsage(error.what());
    }
    return judged(std::move(raw));
}

}  // namespace kswctl
