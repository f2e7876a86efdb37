// record.h: an item as the store keeps it: one record, without relatives, and back again.
#pragma once

#include <cstdint>
#include <memory>

#include <kestrelwood/KSWItem.h>

#include "servers/kestrelwoodd/store.h"

namespace ksw::daemon {

using ItemPointer = std::shared_ptr<KSWItem>;

/// An item without UUID, relatives and facts; `type` has exactly one base kind. Cheaper than one that draws a
/// UUID, of which a rebuilt family has no need.
ItemPointer bareItem(KSWItemType type, std::string identifier);

/// Flag of an application's record that is there for what the application contains, and goes with the last of that,
/// since nobody has registered the application itself. The daemon's own: no client sets or clears it.
inline constexpr KSWItemFlags kContainsOnly = KSWItemFlags{1} << 32U;

/// Flag of a record that device management allows: it may launch whatever its family is. The daemon's own, too.
inline constexpr KSWItemFlags kAllowedByRule = KSWItemFlags{1} << 33U;

/// Whether items of this type are described by a job file and known by its label.
constexpr bool isJob(KSWItemType type) {
    return (type & (KSWItemTypeAgent | KSWItemTypeDaemon)) != 0;
}

/// Whose records an item of this type belongs to when `uid` is named: those of the kinds that the system has once
/// for all users belong to `kEveryUser`.
Uid scopeOf(KSWItemType type, Uid uid);

/// A new item with every stored field of `record`, its flags included, no container and no children.
ItemPointer copyOfRecord(const KSWItem& record);

/// The generation after this one, as clients count on from a change of theirs: the highest is followed by the
/// lowest. A store's file may hold any number.
constexpr std::int64_t nextGeneration(std::int64_t generation) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(generation) + 1);
}

/// The row that keeps the item, its container by UUID. Error: it has no identifier or UUID, or its archive is
/// larger than a record may be.
Result<ItemRow> rowOf(Uid uid, const KSWItem& item);
/// The same for an item that has no container yet, and will have the one of this UUID.
Result<ItemRow> rowOf(Uid uid, const KSWItem& item, const std::optional<UUID>& container);

/// The item that a row keeps, without relatives. Error: the archive cannot be read, or says something else than the
/// row's columns, or the item is of no single kind.
Result<ItemPointer> itemOf(const ItemRow& row);

}  // namespace ksw::daemon
