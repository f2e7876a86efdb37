// options.h: the command line.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <sys/types.h>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/values.h>

#include "tools/common/exit_status.h"

namespace tools::kswctl {

enum class Verb {
    Users,
    Register,
    Unregister,
    Import,
    MayLoad,
    Status,
    List,
    Show,
    Add,
    Remove,
    Enable,
    Disable,
    Allow,
    Disallow,
    Hide,
    Unhide,
    Watch,
    Facts,
    Apps,
    Inspect,
    Identify,
    BookmarkMake,
    BookmarkShow,
    BookmarkResolve,
    BookmarkMatch,
    LoginItemsList,
    LoginItemsAdd,
    LoginItemsRemove,
    BackgroundItemsList,
    BackgroundItemsAllow,
    BackgroundItemsDisallow,
    Doctor,
    SettingsShow,
    SettingsSet,
    RosterList,
    RosterAdd,
    RosterUpdate,
    RosterRemove,
    ManagedShow,
    ManagedSet,
    ManagedRemove,
    ManagedJobs,
    SubsystemHave,
    SubsystemGet,
    SubsystemSet,
    SubsystemReset,
    CollectGarbage,
    Dump,
    Erase,
    NotificationsShow,
    NotificationsAlways,
};

/// Which service of the daemon is asked.
enum class Road { Manager, Registrar };

/// What the command line asks for. A field counts for the verbs that it is about.
struct Options {
    Verb verb = Verb::Status;
    bool json = false;
    ksw::Uid uid = 0;
    // The verbs about a job.
    std::string job;
    std::optional<std::string> app;
    KSWItemType kind = KSWItemTypeAgent;
    Road road = Road::Manager;
    std::vector<std::string> folders;  ///< Where jobs lie.
    // The verb about any item's file, which is `location`, and the one about folders; absent: the kind that the
    // file or the folder looks like.
    std::optional<KSWItemType> kindOfFile;
    // The verb about code: the path of a file or a bundle, else a process.
    std::string code;
    std::optional<pid_t> pid;
    // The verbs about bookmarks: the files that hold them.
    std::string bookmark;
    std::string otherBookmark;
    // The verbs about records.
    KSWItemType kinds = KSWItemTypeAll;  ///< The mask of what to list.
    std::string item;                    ///< The beginning of an identifier or UUID; never empty.
    std::string location;                ///< A URL, or the path of a file.
    bool opensHidden = false;            ///< The verb about login items that adds one.
    // The verbs about the legacy login-item store.
    bool global = false;
    bool managed = false;
    std::optional<bool> enabled;
    std::optional<bool> allowed;
    std::optional<bool> hidden;
    // The verbs about what device management sets: a payload in the file `location`, or a job.
    bool later = false;
    std::optional<std::string> jobToSubmit;  ///< A path.
    std::optional<std::string> jobToRemove;  ///< A path.
    std::optional<std::string> labelToRemove;
    /// The name of a setting, of a subsystem, or a payload's identifier.
    std::string name;
    bool turnedOn = false;
};

/// Reads the command line. An exit status when there is nothing to do any more: help or version was printed,
/// or the command line was wrong and the complaint stands on standard error.
std::variant<Options, ExitStatus> parseOptions(int argc, const char* const* argv);

}  // namespace tools::kswctl
