#include "tools/kswctl/options.h"

#include <charconv>
#include <limits>
#include <map>
#include <string_view>

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <kestrelwood/KSWFunctions.h>

#include "tools/common/command_line.h"
#include "tools/kswctl/kinds.h"
#include "tools/kswctl/options_raw.h"
#include "tools/kswctl/options_verbs.h"

namespace tools::kswctl {
namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 done or launchable, 1 failed, 2 wrong usage, 3 some failed,\n"
    "4 no such item, 5 not permitted or not launchable, 6 no daemon or agent answers.";

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

void addJobOptions(CLI::App& verb, Raw& raw, bool choosesRoad) {
    verb.add_option("JOB", raw.options.job, "The job's property list, XML or binary")->required();
    verb.add_option("--app", raw.options.app,
                    "The application that carries the job; without it the job is a legacy one");
    verb.add_option("--type", raw.kind, "agent, daemon or login-item (default: agent)")
        ->check(CLI::IsMember({"agent", "daemon", "login-item"}));
    if (choosesRoad) {
        verb.add_flag("--registrar", raw.registrar, "Ask the daemon's registrar instead of its manager");
    }
}

void addFolderOptions(CLI::App& verb, Raw& raw) {
    verb.add_option("DIRECTORY", raw.options.folders, "A folder of job files")->required()->check(complaintIfEmpty);
    verb.add_option("--type", raw.kindOfFile, "agent or daemon")->check(CLI::IsMember({"agent", "daemon"}));
}

void addCodeOptions(CLI::App& verb, Raw& raw) {
    CLI::Option* path = verb.add_option("PATH", raw.options.code, "The code")->check(complaintIfEmpty);
    verb.add_option("--pid", raw.options.pid, "The process that runs the code")
        ->check(CLI::Range(pid_t{1}, std::numeric_limits<pid_t>::max()))
        ->excludes(path);
}

std::string complaintIfNoKindOfFile(const std::string& text) {
    const std::optional<KSWItemType> kind = kindNamed(text);
    return kind && *kind != KSWItemTypeDeveloper ? "" : "'" + text + "' is no kind of item that a file can be";
}

/// The options of verbs that look at files and ask no daemon.
void addFileOptions(CLI::App& verb, Raw& raw, Takes takes) {
    const auto add = [&verb](const char* name, std::string& place, const char* help) {
        verb.add_option(name, place, help)->required()->check(complaintIfEmpty);
    };
    Options& options = raw.options;
    if (takes == Takes::File) {
        add("PATH", options.location, "The file");
        verb.add_option("--type", raw.kindOfFile, "What kind of item it is: " + kindNames())
            ->check(complaintIfNoKindOfFile);
        verb.add_option("--app", options.app, "The application that carries it");
    } else if (takes == Takes::Bookmarked) {
        add("PATH", options.location, "The file that the bookmark is to find");
    } else {
        add("FILE", options.bookmark, "The file that holds the bookmark, 1 MiB at most");
    }
    if (takes == Takes::Bookmarks) {
        add("OTHER", options.otherBookmark, "The file that holds the other bookmark");
    }
}

/// The options of verbs that ask the agent.
void addAgentOptions(CLI::App& verb, Raw& raw, Takes takes) {
    if (takes == Takes::AgentItem) {
        verb.add_option("ITEM", raw.options.item, "The item")->required()->check(complaintIfEmpty);
    } else {
        verb.add_option("PATH", raw.options.location, "The file, or a URL")->required()->check(complaintIfEmpty);
        verb.add_flag("--hidden", raw.options.opensHidden, "Have it opened out of sight");
    }
}

/// Whether the verb is about what one user has, or the system.
bool concernsUser(Takes takes) {
    switch (takes) {
        case Takes::Job:
        case Takes::JobAndRoad:
        case Takes::JobFolders:
        case Takes::User:
        case Takes::Kinds:
        case Takes::Item:
        case Takes::Location:
        case Takes::Setting:
        case Takes::ManagedJob:
        case Takes::Subsystem:
        case Takes::SubsystemAndTurn:
            return true;
        default:
            return false;
    }
}

void addOptions(CLI::App& verb, Raw& raw, Takes takes) {
    switch (takes) {
        case Takes::Nothing:
        case Takes::User:
            break;
        case Takes::Job:
        case Takes::JobAlone:
        case Takes::JobAndRoad:
            addJobOptions(verb, raw, takes == Takes::JobAndRoad);
            break;
        case Takes::JobFolders:
            addFolderOptions(verb, raw);
            break;
        case Takes::Kinds:
            verb.add_option("--type", raw.kinds, "Kinds, with commas between (default: all): " + kindNames());
            break;
        case Takes::Item:
            verb.add_option("ITEM", raw.options.item, "The item")->required()->check(complaintIfEmpty);
            break;
        case Takes::Location:
            verb.add_option("URL", raw.options.location, "The file")->required()->check(complaintIfEmpty);
            break;
        case Takes::Code:
            addCodeOptions(verb, raw);
            break;
        case Takes::File:
        case Takes::Bookmarked:
        case Takes::Bookmark:
        case Takes::Bookmarks:
            addFileOptions(verb, raw, takes);
            break;
        case Takes::AgentItem:
        case Takes::AgentLocation:
            addAgentOptions(verb, raw, takes);
            break;
        default:
            addSystemOptions(verb, raw, takes);
    }
    if (concernsUser(takes)) {
        verb.add_option("--uid", raw.uid, "The user concerned, or \"system\" (default: the calling user)");
    }
}

CLI::App* addGroup(CLI::App& app, const GroupRow& row) {
    CLI::App* group = app.add_subcommand(row.name, row.help);
    addVersion(*group);
    group->footer(kExitStatuses);
    group->require_subcommand(1);
    return group;
}

void addVerb(CLI::App& verb, Raw& raw, const VerbRow& row) {
    verb.add_flag("--json", raw.options.json, "Print JSON for programs");
    verb.callback([&raw, &verb, id = row.verb] {
        // A group's own verb gives way to the one that was named.
        if (verb.get_subcommands().empty()) {
            raw.options.verb = id;
        }
    });
    addOptions(verb, raw, row.takes);
}

void addVerbs(CLI::App& app, Raw& raw) {
    std::map<std::string_view, CLI::App*> groups;
    for (const VerbRow& row : verbRows()) {
        CLI::App* parent = &app;
        if (row.group != nullptr) {
            CLI::App*& group = groups[row.group];
            if (group == nullptr) {
                group = addGroup(app, groupNamed(row.group));
            }
            parent = group;
        }
        CLI::App* verb = parent->add_subcommand(row.name, row.help);
        addVersion(*verb);
        verb->footer(std::string(row.note) + kExitStatuses);
        addVerb(*verb, raw, row);
        if (row.isDefault) {
            parent->require_subcommand(0, 1);
            addVerb(*parent, raw, row);
        }
    }
}

/// A switch has its own user.
ksw::Uid uidWhenNoneIsNamed(const Options& options) {
    switch (options.verb) {
        case Verb::SubsystemHave:
        case Verb::SubsystemGet:
        case Verb::SubsystemSet:
        case Verb::SubsystemReset:
            return UIDForSubsystem(options.name);
        default:
            return getuid();
    }
}

std::variant<Options, ExitStatus> judged(Raw raw) {
    if (const std::string wrong = complaintAboutSystemOptions(raw); !wrong.empty()) {
        return wrongUsage(wrong);
    }
    raw.options.kind = kindNamed(raw.kind).value();
    raw.options.kindOfFile = raw.kindOfFile ? kindNamed(*raw.kindOfFile) : std::nullopt;
    raw.options.road = raw.registrar ? Road::Registrar : Road::Manager;
    const std::optional<KSWItemType> kinds = raw.kinds ? kindsNamed(*raw.kinds) : KSWItemTypeAll;
    if (!kinds) {
        return wrongUsage("--type: '" + *raw.kinds + "' names something else than " + kindNames());
    }
    raw.options.kinds = *kinds;
    const std::optional<ksw::Uid> uid = raw.uid ? uidFromText(*raw.uid) : uidWhenNoneIsNamed(raw.options);
    if (!uid) {
        return wrongUsage("--uid: '" + *raw.uid + "' is neither a uid from 0 to 4294967294 nor \"system\"");
    }
    raw.options.uid = *uid;
    if (raw.options.verb == Verb::Facts && raw.options.code.empty() && !raw.options.pid) {
        return wrongUsage("facts: either PATH or --pid");
    }
    return std::move(raw.options);
}

}  // namespace

std::variant<Options, ExitStatus> parseOptions(int argc, const char* const* argv) {
    CLI::App app("Asks the management daemon about background items, and the host about code and files.", "kswctl");
    Raw raw;
    addVersion(app);
    app.footer(kExitStatuses);
    app.require_subcommand(1);
    addVerbs(app, raw);
    if (const auto status = parse(app, argc, argv)) {
        return *status;
    }
    return judged(std::move(raw));
}

}  // namespace tools::kswctl
