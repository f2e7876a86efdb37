#include "tools/kswctl/options_verbs.h"

#include <algorithm>
#include <iterator>

namespace tools::kswctl {
namespace {

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
    {Verb::List, Takes::Kinds, "list", "List a user's items, and the system's"},
    {Verb::Show, Takes::Item, "show", "Show all that is recorded of an item", kItemNote},
    {Verb::Watch, Takes::User, "watch", "Print a line for each change of a user's items", kWatchNote},
    {Verb::Add, Takes::Location, "add", "Have a file opened at login", kAddNote},
    {Verb::Remove, Takes::Item, "remove", "Remove an item's record", kItemNote},
    {Verb::Enable, Takes::Item, "enable", "Turn an item on", kChangeNote},
    {Verb::Disable, Takes::Item, "disable", "Turn an item off", kChangeNote},
    {Verb::Allow, Takes::Item, "allow", "Let an item launch", kChangeNote},
    {Verb::Disallow, Takes::Item, "disallow", "Keep an item from launching", kChangeNote},
    {Verb::Hide, Takes::Item, "hide", "Have an item launch out of sight", kChangeNote},
    {Verb::Unhide, Takes::Item, "unhide", "Have an item launch in sight", kChangeNote},
    {Verb::Facts, Takes::Code, "facts", "Show who signed code, and as what", kFactsNote},
    {Verb::Inspect, Takes::JobAlone, "inspect", "Show all that would be known of a job's item", kInspectNote},
    {Verb::Identify, Takes::File, "identify", "Show the identifier and the name that a file gives its item",
     kIdentifyNote},
    {Verb::BookmarkMake, Takes::Bookmarked, "make", "Write a bookmark of a file to standard output", kMakeNote,
     kBookmark},
    {Verb::BookmarkShow, Takes::Bookmark, "show", "Show what a bookmark records", "", kBookmark},
    {Verb::BookmarkResolve, Takes::Bookmark, "resolve", "Print where a bookmark's file is now", "", kBookmark},
    {Verb::BookmarkMatch, Takes::Bookmarks, "match", "Say whether two bookmarks are of the same file", kMatchNote,
     kBookmark},
    {Verb::LoginItemsList, Takes::Nothing, "list", "List the login items", "", kLoginItems, true},
    {Verb::LoginItemsAdd, Takes::AgentLocation, "add", "Have a file opened at login", "", kLoginItems},
    {Verb::LoginItemsRemove, Takes::AgentItem, "remove", "Remove a login item", kAgentItemNote, kLoginItems},
    {Verb::BackgroundItemsList, Takes::Nothing, "list", "List the background items", "", kBackgroundItems, true},
    {Verb::BackgroundItemsAllow, Takes::AgentItem, "allow", "Let an item run", kAgentItemNote, kBackgroundItems},
    {Verb::BackgroundItemsDisallow, Takes::AgentItem, "disallow", "Keep an item from running", kAgentItemNote,
     kBackgroundItems},
    {Verb::Users, Takes::Nothing, "users", "List the users that the daemon holds items for"},
    {Verb::Register, Takes::JobAndRoad, "register", "Register a job"},
    {Verb::Unregister, Takes::Job, "unregister", "Withdraw a job's registration"},
    {Verb::Import, Takes::JobFolders, "import", "Register every job of folders", kImportNote},
    {Verb::MayLoad, Takes::JobAndRoad, "may-load", "Ask whether a job may load"},
    {Verb::Apps, Takes::User, "apps", "List the applications that a user has", kAppsNote},
    {Verb::SettingsShow, Takes::User, "show", "Show a user's settings", "", kSettings, true},
    {Verb::SettingsSet, Takes::Setting, "set", "Change one of a user's settings", kSettingNote, kSettings},
    {Verb::RosterList, Takes::KindsOfRoster, "list", "List the legacy login items", "", kRoster, true},
    {Verb::RosterAdd, Takes::RosterLocation, "add", "Add a legacy login item", "", kRoster},
    {Verb::RosterUpdate, Takes::RosterChange, "update", "Change a legacy login item", kItemNote, kRoster},
    {Verb::RosterRemove, Takes::RosterItem, "remove", "Remove a legacy login item", kItemNote, kRoster},
    {Verb::ManagedShow, Takes::Payload, "show", "Show the payload under an identifier", "", kManaged},
    {Verb::ManagedSet, Takes::PayloadFile, "set", "Store a payload under an identifier", "", kManaged},
    {Verb::ManagedRemove, Takes::Payload, "remove", "Remove the payload under an identifier", "", kManaged},
    {Verb::ManagedJobs, Takes::ManagedJob, "jobs", "List, submit and remove managed jobs", "", kManaged},
    {Verb::SubsystemHave, Takes::Subsystem, "have", "Say whether a switch has been set", kSubsystemNote,
     kSubsystem},
    {Verb::SubsystemGet, Takes::Subsystem, "get", "Show a switch", kSubsystemNote, kSubsystem},
    {Verb::SubsystemSet, Takes::SubsystemAndTurn, "set", "Turn a switch on or off", kSubsystemNote, kSubsystem},
    {Verb::SubsystemReset, Takes::Subsystem, "reset", "Forget how a switch was set", kSubsystemNote, kSubsystem},
    {Verb::CollectGarbage, Takes::Nothing, "gc", "Have records removed whose files are gone for good"},
    {Verb::Dump, Takes::Nothing, "dump", "Print the daemon's database"},
    {Verb::Erase, Takes::Nothing, "erase", "Empty the daemon's database, for good"},
    {Verb::NotificationsShow, Takes::Nothing, "show", "Show of which items users are notified", "", kNotifications,
     true},
    {Verb::NotificationsAlways, Takes::Turn, "always", "Notify users also of items that they know, or not", "",
     kNotifications},
    {Verb::Doctor, Takes::Nothing, "doctor",
     "Say what is installed, running and trusted, and how to mend what is not", kDoctorNote},
    {Verb::Status, Takes::Nothing, "status", "Show whether the daemon answers, and its counters"},
};

}  // namespace

std::span<const VerbRow> verbRows() {
    return kVerbs;
}

const GroupRow& groupNamed(std::string_view name) {
    return *std::find_if(std::begin(kGroups), std::end(kGroups),
                         [&](const GroupRow& group) { return group.name == name; });
}

}  // namespace tools::kswctl
