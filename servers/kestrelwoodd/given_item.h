// given_item.h: an item that a client hands over as a record: what it must be, and what of it is taken.
#pragma once

#include <optional>
#include <vector>

#include "servers/kestrelwoodd/maker.h"
#include "servers/kestrelwoodd/record.h"

namespace ksw::daemon {

/// Whether an item of this kind can have the identifier: a user item's is a URL that says what kind of URL it is,
/// any other's begins with the number of its kind and goes on; so no item can pass for one of another kind.
bool identifierFits(KSWItemType kind, const std::string& identifier);

/// Whether an item of some kind other than the developer's could have this identifier. A developer of such a name
/// has no record of its own, or it could stand where another item belongs.
bool canIdentifyAnItem(const std::string& identifier);

/// Whether the item can become a new record: it has a UUID, one kind other than the developer's, and an identifier
/// that fits the kind. Its fields' sizes are looked at when its row is made.
bool canBeRecorded(const KSWItem& item);

/// A new record of the item, without relatives and generation. That an item is managed is nobody's to say who adds
/// it by itself.
ItemPointer newRecordOf(const KSWItem& item);

/// What a client says that a record should become.
struct GivenUpdate {
    ItemPointer item;
    /// Of the code that it names, read anew; absent when that lies where the record's lay.
    std::optional<Maker> maker{};
};

/// What the record becomes when the client's copy takes its place: identity, generation (one higher), whether it is
/// managed and, while the code stays where it was, who made that and its date stay with the record; relatives are
/// left out. Errors: KSWErrorInvalidParameter when kind or identifier differ, or the copy would make a known
/// developer of an unknown one or the reverse, since what hangs under it was judged by that; then
/// KSWErrorInvalidGeneration when the copy is of another generation, or the record names other code than it did
/// when the maker was not read anew.
Result<ItemPointer> updatedRecord(const KSWItem& record, const GivenUpdate& update);

/// Whether each of the items can name a record to be updated: none is null or without UUID, no two have the same.
bool nameRecords(const std::vector<ItemPointer>& items);

/// The items of an archived set, each owning all that came with it; absent when it cannot be read, or there are
/// more than limits::kListItemsMax.
std::optional<std::vector<ItemPointer>> itemsOf(Bytes archive);

}  // namespace ksw::daemon
