// launch_item.h: the item that a request is about, after its words have been checked: where it is, under which
// identifier and whose uid it is recorded, and what a record of it says by the rules that items are made by
// everywhere.
#pragma once

#include <optional>
#include <string>

#include "servers/kestrelwoodd/caller.h"
#include "servers/kestrelwoodd/maker.h"
#include "servers/kestrelwoodd/record.h"
#include "servers/kestrelwoodd/subject.h"

namespace ksw::daemon {

/// A checked item. It is borrowed from nothing.
struct LaunchItem {
    KSWItemType type = 0;          ///< One base kind, and the provenance bits that the caller may claim.
    std::optional<URL> bundleURL;  ///< A directory's URL.
    std::optional<URL> url;        ///< The item's own, relative to the bundle where the request had it so.
    std::optional<Dictionary> configuration;  ///< Each value that counts is of its kind and fits a record.
    Uid uid = kNoUser;                        ///< For whom it is to run.
    Uid scope = kNoUser;                      ///< Whose records it belongs to.
};

/// What a record of the item says, and one of the application that it belongs to; null when it belongs to none. No
/// UUID that lasts, no relatives, no disposition, generation 0.
struct ItemFacts {
    ItemPointer item;
    ItemPointer application;
};

/// Checks what the subject says without touching a file; `bundleURL` is the bundle that was found for it.
/// Error: -98 in KSWErrorDomain.
Result<LaunchItem> checked(const Subject& subject, const std::optional<URL>& bundleURL, const Caller& caller);

// Files are read with the caller's rights.

/// The identifier that everybody's rule gives (`ItemIdentifierWithRegistrationInfo`), if a record can be known by
/// it.
std::optional<std::string> identify(const LaunchItem& item, const Caller& caller);

/// Why somebody wants to know what a record would say.
enum class Purpose : std::uint8_t {
    Record,  ///< The item is registered: who is to know of the application of its executable is told.
    Answer,  ///< Somebody waits, and nobody is told.
};

/// What the files say of the item, and its launch configuration, given or in its own file. Error: -98, when it does
/// not lie in its bundle. Blocks for the reading, and while signatures are verified.
Result<ItemFacts> factsOf(const LaunchItem& item, const std::string& identifier, Purpose purpose,
                          const Caller& caller);

/// What the files say of the application that a given item lies in by its URL; null when it lies in none.
ItemPointer applicationAround(const KSWItem& item, const Caller& caller);

/// Gives a record the maker of its code: of a job's executable, of any other item's file or application.
void readMaker(KSWItem& record, const Caller& caller);

/// Where a record's code lies: a job's executable, any other item's file or application. Absent when nobody can
/// say.
std::optional<std::string> codeOf(const KSWItem& record);

}  // namespace ksw::daemon
