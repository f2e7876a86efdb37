#include "tools/kswctl/options.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <map>
#include <string_view>

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <kestrelwood/KSWFunctions.h>

#include "tools/common/command_line.h"
#include "tools/kswctl/kinds.h"
#include "tools/kswctl/options_raw.h"

namespace tools::kswctl {
namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 done or launchable, 1 failed, 2 wrong usage, 3 some failed,\n"
    "4 no such item, 5 not permitted or not launchable, 6 no daemon or agent answers.";

constexpr const char* kItemNote =
    "ITEM is an identifier or a UUID, or so much of its beginning that only one item is meant.\n\n";

constexpr const char* kChangeNote =
    "ITEM is an identifier or a UUID, or so much of its beginning that only one item is meant.\n"
    "The answer's code is -93 when the change was stored, 0 when there was nothing to change.\n\n";

constexpr const char* kAddNote =
    "URL is a URL with its scheme, or the path of a file. An item that is there already is enabled.\n\n";

constexpr const char* kWatchNote =
    "Standard error says \"kswctl: watching\" once every later change will be told. Ends with SIGINT or SIGTERM,\n"
    "or when nobody reads any more; a daemon that goes away is waited for. With --json a line is an object with\n"
    "\"change\" (\"added\", \"removed\" or \"changed\"), \"item\" and, when it changed, \"before\".\n\n";

constexpr const char* kFactsNote =
    "PATH is a file or an application bundle; with --pid the code is what the process runs, of a script its\n"
    "interpreter. Code that nobody whom this host trusts has signed has \"status\" and \"statusText\", and no "
    "facts.\n\n";

constexpr const char* kAppsNote =
    "They lie in /Applications, /opt, /usr/local/Applications and the user's ~/Applications; no daemon is asked. "
    "A\n"
    "placeholder is not there wholly.\n\n";

constexpr const char* kDoctorNote =
    "\"missing\" is what not every host needs. Ends with 0 when nothing is wrong, and with 1 otherwise.\n\n";

constexpr const char* kInspectNote =
    "No daemon is asked. \"absent\" says why a fact is not known; a table says it in the fact's place.\n\n";

constexpr const char* kImportNote =
    "Each file of the folders has a line: \"registered\", \"failed\", or, when it is no job file, \"skipped\".\n"
    "Without --type a folder whose name ends in \"Daemons\" holds daemons, any other agents.\n\n";

constexpr const char* kIdentifyNote =
    "Without --type an application is taken for an app, with --app for a login item, a property list for\n"
    "an agent, and any other file for a user item. \"reason\" says why a file has no identifier.\n\n";

constexpr const char* kMakeNote = "PATH is the path of a file, or a URL with its scheme.\n\n";

constexpr const char* kSettingNote =
    "NAME is rosterMigrated, pellucidLoginItemsMigrated or almanacItemsImported.\n\n";

constexpr const char* kSubsystemNote =
    "NAME is cron, which is switched for the whole system, glimpse, which each user switches, or the name of\n"
    "another subsystem; --uid asks for another user than its own.\n\n";

constexpr const char* kAgentItemNote =
    "ITEM is an identifier, or its beginning, or a path or a name as the list shows it.\n\n";

constexpr const char* kMatchNote = "Ends with 0 only when both are of the same file, and with 1 otherwise.\n\n";

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
    Takes takes;
    const char* note = "";
    const char* group = nullptr;  ///< The word in front of the verb's, that other verbs share.
    bool isDefault = false;       ///< Whether the group's word alone means this one.
};

/// A word in front of several verbs.
struct GroupRow {
    const char* name;
    const char* help;
};

constexpr const char* kBookmark = "bookmark";
constexpr const char* kLoginItems = "login-items";
constexpr const char* kBackgroundItems = "background-items";
constexpr const char* kSettings = "settings";
constexpr const char* kRoster = "roster";
constexpr const char* kManaged = "managed";
constexpr const char* kSubsystem = "subsystem";
constexpr const char* kNotifications = "notifications";

constexpr GroupRow kGroups[] = {
    {kBookmark, "Make, read and resolve bookmarks of files"},
    {kLoginItems, "List and change what opens when the user logs in"},
    {kBackgroundItems, "List and decide what runs in the background"},
    {kSettings, "Show and change what is recorded of a user"},
    {kRoster, "List and change the legacy login items"},
    {kManaged, "Show and change what device management decides"},
    {kSubsystem, "Switch other parts of the system on and off"},
    {kNotifications, "Say of which items users are notified"},
};

constexpr VerbRow kVerbs[] = {
    {Verb::List, "list", "List a user's items, and the system's", Takes::Kinds},
    {Verb::Show, "show", "Show all that is recorded of an item", Takes::Item, kItemNote},
    {Verb::Watch, "watch", "Print a line for each change of a user's items", Takes::User, kWatchNote},
    {Verb::Add, "add", "Have a file opened at login", Takes::Location, kAddNote},
    {Verb::Remove, "remove", "Remove an item's record", Takes::Item, kItemNote},
    {Verb::Enable, "enable", "Turn an item on", Takes::Item, kChangeNote},
    {Verb::Disable, "disable", "Turn an item off", Takes::Item, kChangeNote},
    {Verb::Allow, "allow", "Let an item launch", Takes::Item, kChangeNote},
    {Verb::Disallow, "disallow", "Keep an item from launching", Takes::Item, kChangeNote},
    {Verb::Hide, "hide", "Have an item launch out of sight", Takes::Item, kChangeNote},
    {Verb::Unhide, "unhide", "Have an item launch in sight", Takes::Item, kChangeNote},
    {Verb::Facts, "facts", "Show who signed code, and as what", Takes::Code, kFactsNote},
    {Verb::Inspect, "inspect", "Show all that would be known of a job's item", Takes::JobAlone, kInspectNote},
    {Verb::Identify, "identify", "Show the identifier and the name that a file gives its item", Takes::File,
     kIdentifyNote},
    {Verb::BookmarkMake, "make", "Write a bookmark of a file to standard output", Takes::Bookmarked, kMakeNote,
     kBookmark},
    {Verb::BookmarkShow, "show", "Show what a bookmark records", Takes::Bookmark, "", kBookmark},
    {Verb::BookmarkResolve, "resolve", "Print where a bookmark's file is now", Takes::Bookmark, "", kBookmark},
    {Verb::BookmarkMatch, "match", "Say whether two bookmarks are of the same file", Takes::Bookmarks, kMatchNote,
     kBookmark},
    {Verb::LoginItemsList, "list", "List the login items", Takes::Nothing, "", kLoginItems, true},
    {Verb::LoginItemsAdd, "add", "Have a file opened at login", Takes::AgentLocation, "", kLoginItems},
    {Verb::LoginItemsRemove, "remove", "Remove a login item", Takes::AgentItem, kAgentItemNote, kLoginItems},
    {Verb::BackgroundItemsList, "list", "List the background items", Takes::Nothing, "", kBackgroundItems, true},
    {Verb::BackgroundItemsAllow, "allow", "Let an item run", Takes::AgentItem, kAgentItemNote, kBackgroundItems},
    {Verb::BackgroundItemsDisallow, "disallow", "Keep an item from running", Takes::AgentItem, kAgentItemNote,
     kBackgroundItems},
    {Verb::Users, "users", "List the users that the daemon holds items for", Takes::Nothing},
    {Verb::Register, "register", "Register a job", Takes::JobAndRoad},
    {Verb::Unregister, "unregister", "Withdraw a job's registration", Takes::Job},
    {Verb::Import, "import", "Register every job of folders", Takes::JobFolders, kImportNote},
    {Verb::MayLoad, "may-load", "Ask whether a job may load", Takes::JobAndRoad},
    {Verb::Apps, "apps", "List the applications that a user has", Takes::User, kAppsNote},
    {Verb::SettingsShow, "show", "Show a user's settings", Takes::User, "", kSettings, true},
    {Verb::SettingsSet, "set", "Change one of a user's settings", Takes::Setting, kSettingNote, kSettings},
    {Verb::RosterList, "list", "List the legacy login items", Takes::KindsOfRoster, "", kRoster, true},
    {Verb::RosterAdd, "add", "Add a legacy login item", Takes::RosterLocation, "", kRoster},
    {Verb::RosterUpdate, "update", "Change a legacy login item", Takes::RosterChange, kItemNote, kRoster},
    {Verb::RosterRemove, "remove", "Remove a legacy login item", Takes::RosterItem, kItemNote, kRoster},
    {Verb::ManagedShow, "show", "Show the payload under an identifier", Takes::Payload, "", kManaged},
    {Verb::ManagedSet, "set", "Store a payload under an identifier", Takes::PayloadFile, "", kManaged},
    {Verb::ManagedRemove, "remove", "Remove the payload under an identifier", Takes::Payload, "", kManaged},
    {Verb::ManagedJobs, "jobs", "List, submit and remove managed jobs", Takes::ManagedJob, "", kManaged},
    {Verb::SubsystemHave, "have", "Say whether a switch has been set", Takes::Subsystem, kSubsystemNote,
     kSubsystem},
    {Verb::SubsystemGet, "get", "Show a switch", Takes::Subsystem, kSubsystemNote, kSubsystem},
    {Verb::SubsystemSet, "set", "Turn a switch on or off", Takes::SubsystemAndTurn, kSubsystemNote, kSubsystem},
    {Verb::SubsystemReset, "reset", "Forget how a switch was set", Takes::Subsystem, kSubsystemNote, kSubsystem},
    {Verb::CollectGarbage, "gc", "Have records removed whose files are gone for good", Takes::Nothing},
    {Verb::Dump, "dump", "Print the daemon's database", Takes::Nothing},
    {Verb::Erase, "erase", "Empty the daemon's database, for good", Takes::Nothing},
    {Verb::NotificationsShow, "show", "Show of which items users are notified", Takes::Nothing, "", kNotifications,
     true},
    {Verb::NotificationsAlways, "always", "Notify users also of items that they know, or not", Takes::Turn, "",
     kNotifications},
    {Verb::Doctor, "doctor", "Say what is installed, running and trusted, and how to mend what is not",
     Takes::Nothing, kDoctorNote},
    {Verb::Status, "status", "Show whether the daemon answers, and its counters", Takes::Nothing},
};

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

void addOptions(CLI::App& verb, Raw& raw, Takes takes) {
    switch (takes) {
        case Takes::Nothing:
            return;
        case Takes::AgentItem:
        case Takes::AgentLocation:
            addAgentOptions(verb, raw, takes);
            return;
        case Takes::Code:
            addCodeOptions(verb, raw);
            return;
        case Takes::File:
        case Takes::Bookmarked:
        case Takes::Bookmark:
        case Takes::Bookmarks:
            addFileOptions(verb, raw, takes);
            return;
        case Takes::JobAlone:
            addJobOptions(verb, raw, /*choosesRoad=*/false);
            return;
        case Takes::JobFolders:
            addFolderOptions(verb, raw);
            break;
        case Takes::Job:
        case Takes::JobAndRoad:
            addJobOptions(verb, raw, takes == Takes::JobAndRoad);
            break;
        case Takes::User:
            break;
        case Takes::Setting:
        case Takes::Subsystem:
        case Takes::SubsystemAndTurn:
        case Takes::ManagedJob:
            addSystemOptions(verb, raw, takes);
            break;
        case Takes::KindsOfRoster:
        case Takes::RosterLocation:
        case Takes::RosterItem:
        case Takes::RosterChange:
        case Takes::Payload:
        case Takes::PayloadFile:
        case Takes::Turn:
            addSystemOptions(verb, raw, takes);
            return;
        case Takes::Kinds:
            verb.add_option("--type", raw.kinds, "Kinds, with commas between (default: all): " + kindNames());
            break;
        case Takes::Item:
            verb.add_option("ITEM", raw.options.item, "The item")->required()->check(complaintIfEmpty);
            break;
        case Takes::Location:
            verb.add_option("URL", raw.options.location, "The file")->required()->check(complaintIfEmpty);
            break;
    }
    verb.add_option("--uid", raw.uid, "The user concerned, or \"system\" (default: the calling user)");
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
    for (const VerbRow& row : kVerbs) {
        CLI::App* parent = &app;
        if (row.group != nullptr) {
            CLI::App*& group = groups[row.group];
            if (group == nullptr) {
                group = addGroup(app, *std::find_if(std::begin(kGroups), std::end(kGroups),
                                                    [&](const GroupRow& each) { return each.name == row.group; }));
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
