// item_request_copies.h: items as a request carries them to be stored. An item's archive has everything in it that
// can be reached from the item, so the item itself would take along its whole family, by way of its container.
#pragma once

#include <vector>

#include <kestrelwood/KSWItem.h>

namespace ksw {

/// Copies of items, and of what they are connected with. They have every field that an archive has, flags included.
/// Owns them all: a copy that is held on to loses its children when this goes.
struct ItemCopies {
    ItemCopies() = default;
    ItemCopies(ItemCopies&&) = default;
    ItemCopies& operator=(ItemCopies&&) = delete;
    ~ItemCopies();

    /// The copies, in the order of the set.
    std::vector<KSWItem::Pointer> items;
    /// The same, and their descendants and containers.
    std::vector<KSWItem::Pointer> all;
};

/// Each item with its own descendants and its chain of containers. A container comes without children, unless it
/// is an item of the set itself or a descendant of one. What is connected in the family is connected among the
/// copies; each item is copied once. Of a chain that no reader would take only as much comes along as makes it so.
ItemCopies copiesForRequest(const ItemSet& items);

}  // namespace ksw
