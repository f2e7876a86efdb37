// item_set.h: the children of an item.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <span>
#include <vector>

#include <kestrelwood/export.h>

class KSWItem;

namespace ksw {

struct ItemAccess;

/// An immutable set of items in the order in which they were added. Two items are the same member when they are the
/// same object or have equal identifiers; of those the first stays. It owns its members. The set itself may be
/// shared between threads; its members follow the rule of `KSWItem`.
class KSW_EXPORT ItemSet {
public:
    /// An item as the set holds it, and a set, which is shared and never changed.
    using Member = std::shared_ptr<KSWItem>;
    using Pointer = std::shared_ptr<const ItemSet>;

    /// An empty set.
    ItemSet() = default;

    /// The set of these items; null ones are left out.
    static Pointer of(std::span<const Member> items);
    static Pointer of(std::initializer_list<Member> items) { return of(std::span(items.begin(), items.size())); }

    /// The members: how many, whether there are none, and from the first to behind the last.
    std::size_t size() const { return members_.size(); }
    bool empty() const { return members_.empty(); }
    std::vector<Member>::const_iterator begin() const { return members_.begin(); }
    std::vector<Member>::const_iterator end() const { return members_.end(); }

    /// The member that is this item or has its identifier; null when there is none.
    Member member(const KSWItem* item) const;

    /// New sets: with the item added at the end, without it, with those members only that `others` has too.
    Pointer adding(const Member& item) const;
    Pointer removing(const KSWItem* item) const;
    Pointer intersecting(const ItemSet& others) const;

private:
    friend struct ItemAccess;

    std::vector<Member> members_;
};

/// Hands out the members of a set one after the other. Keeps the set as it was when the walk began. One thread.
class KSW_EXPORT ItemEnumerator {
public:
    /// No set counts as an empty one.
    explicit ItemEnumerator(ItemSet::Pointer items)
        : items_(items == nullptr ? ItemSet::of({}) : std::move(items)) {}

    /// The next member; null when there are no more.
    ItemSet::Member nextObject();

    /// The members that are still to come.
    std::vector<ItemSet::Member>::const_iterator begin() const {
        return items_->begin() + static_cast<std::ptrdiff_t>(next_);
    }
    std::vector<ItemSet::Member>::const_iterator end() const { return items_->end(); }

private:
    ItemSet::Pointer items_;
    std::size_t next_ = 0;
};

}  // namespace ksw
