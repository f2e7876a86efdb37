// attributions_lookup.h: what an attribution table says, once it has been read. Tables come from files, so any
// value may be of any kind. No I/O, no log. Any thread.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values/value.h>

namespace ksw::facts {

/// What stands under a key of an entry.
template <class T>
struct Curated {
    std::optional<T> value;
    /// The value is not what its key asks for, or is missing where it may not be.
    bool isUnexpected = false;
    std::optional<std::string_view> className;  ///< Then, what it is; absent for nothing.
};

/// The public table with every internal entry in it; an internal entry replaces a public one of its label.
Dictionary mergedTable(Dictionary publicTable, const Dictionary& internalTable);

/// The entry of a label; null without one, and for one that is no dictionary.
const Dictionary* entryOf(const Dictionary& table, std::string_view label);

/// The same, and null unless the entry's team is this one.
const Dictionary* entryOf(const Dictionary& table, std::string_view label, std::string_view team);

/// The name to show. Nothing there is not unexpected.
Curated<std::string> attributionIn(const Dictionary* entry);

/// The bundle identifiers of the applications, as they stand there. Anything but an array of strings is unexpected,
/// nothing too.
Curated<std::vector<std::string>> associatedBundleIdentifiersIn(const Dictionary* entry);

/// The labels and names of a table, which must outlive this and stay as it is.
class AttributionNames {
public:
    explicit AttributionNames(const Dictionary& table);

    bool contains(std::string_view labelOrName) const;

private:
    const Dictionary& table_;
    std::set<std::string_view> names_;
};

}  // namespace ksw::facts
