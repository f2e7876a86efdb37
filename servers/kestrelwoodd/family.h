// family.h: whole families of items, rebuilt rather than changed, so that whoever reads one never sees it change.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "servers/kestrelwoodd/record.h"

namespace ksw::daemon {

/// What a rebuilt family has that the former had not.
struct FamilyEdit {
    /// What stands in the place of these items of the former family; null: the item is left out, with all below it.
    std::unordered_map<const KSWItem*, ItemPointer> replaced;
    ItemPointer added{};  ///< New, with all below it; null: nothing is.
    /// Identifier of the item below which `added` is new; absent: the root.
    std::optional<std::string> place{};
};

/// The outermost container of an item: the item itself when it has none.
ItemPointer rootOf(const ItemPointer& item);

/// Makes the items the parent's only children, in their order. Any number of them takes one pass.
void adopt(const ItemPointer& parent, const std::vector<ItemPointer>& children);

/// A copy of the whole family below `root`, with the edit carried out; the root itself cannot be left out. The
/// items of the edit become part of it.
ItemPointer rebuilt(const KSWItem& root, const FamilyEdit& edit);

/// A copy of the item with all below it, and of its containers. Of a container's other children there is one for
/// each thing that a family says as a whole: that one is not allowed, was notified, is managed, is a daemon. So the
/// copy tells of the item what the family would, however many belong to that. The pointer owns all of it.
ItemPointer withDecidingFamily(const ItemPointer& item);

/// Calls `visit` for the root and everything below it, with a pointer that owns the whole family.
void forEachOf(const ItemPointer& root, const std::function<void(const ItemPointer&)>& visit);

}  // namespace ksw::daemon
