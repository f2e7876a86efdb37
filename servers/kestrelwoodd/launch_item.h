// launch_item.h: the item that a request is about, after its words have been checked: where it is, under which
// identifier and whose uid it is recorded, and the facts that a record of it has.
#pragma once

#include <optional>
#include <string>

#include "servers/kestrelwoodd/caller.h"
#include "servers/kestrelwoodd/maker.h"
#include "servers/kestrelwoodd/record.h"
#include "servers/kestrelwoodd/subject.h"

namespace ksw::daemon {

/// What a launch configuration says. Absent: it says nothing of it.
struct Configuration {
    std::optional<std::string> label;
    std::optional<std::string> executablePath;
    std::optional<std::vector<std::string>> arguments;
    std::optional<Data> sha256;
};

/// A checked item. It is borrowed from nothing.
struct LaunchItem {
    KSWItemType type = 0;          ///< One base kind, and the provenance bits that the caller may claim.
    std::optional<URL> bundleURL;  ///< A directory's URL.
    std::optional<URL> url;        ///< The item's own, relative to the bundle where the request had it so.
    Configuration configuration;
    bool hasConfiguration = false;
    Uid scope = kNoUser;           ///< Whose records it belongs to.
    std::optional<Maker> maker{};  ///< Of the item's own code, once it has been looked for.
};

/// Reads a configuration. Error: a value of another type than its key has, or a text beyond limits::kFieldMax.
Result<Configuration> readConfiguration(const Dictionary& configuration);

/// Checks what the subject says without touching a file; `bundleURL` is the bundle that was found for it.
/// Error: -98 in KSWErrorDomain.
Result<LaunchItem> checked(const Subject& subject, const std::optional<URL>& bundleURL, const Caller& caller);

// Files are read with the caller's rights.

/// The identifier: of a job from the configuration's label, else from its file; of a user item from where it is; of
/// any other item from the signature of its code, whose maker is then kept in `item`. Absent when there is none.
std::optional<std::string> identify(LaunchItem& item, const Caller& caller);

/// Whether the dates of the item's files are wanted, and the bookmark of one that is found by it.
enum class FileDates : std::uint8_t { Read, LeftOut };

/// A new item with the facts of a record, who made its code among them; no UUID, no relatives, no disposition,
/// generation 0.
ItemPointer recordOf(const LaunchItem& item, const std::string& identifier, FileDates dates, const Caller& caller);

/// Gives a record, a copy of a stored one, the dates that its files have now, its bookmark, and who has made its
/// code as it is now.
void readFiles(KSWItem& record, const Caller& caller);

/// Gives a record the maker of its code: of a job's executable, of any other item's file or application.
void readMaker(KSWItem& record, const Caller& caller);

/// Where a record's code lies: a job's executable, any other item's file or application. Absent when nobody can
/// say.
std::optional<std::string> codeOf(const KSWItem& record);

}  // namespace ksw::daemon
