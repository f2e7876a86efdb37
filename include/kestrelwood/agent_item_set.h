// agent_item_set.h: the login items or background items of a user, as a controller hands them out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace ksw {

/// An immutable set of items in the order in which they came. Of items that are equal by `Item::isEqual` the first
/// stays; null ones are left out. Members are compared one by one, since equal login items need not have anything
/// in common that could be hashed. Copying shares the members; a set may be used by any number of threads.
template <class Item>
class AgentItemSet {
public:
    /// An item as the set holds it, and what leads from one to the next; an iterator is good as long as a copy of
    /// the set is.
    using Member = std::shared_ptr<Item>;
    using Iterator = typename std::vector<Member>::const_iterator;

    /// An empty set.
    AgentItemSet() : AgentItemSet(std::vector<Member>{}) {}
    /// The set of these items.
    explicit AgentItemSet(const std::vector<Member>& items) {
        auto members = std::make_shared<std::vector<Member>>();
        members->reserve(items.size());
        for (const Member& item : items) {
            if (item != nullptr && find(*members, *item) == members->end()) {
                members->push_back(item);
            }
        }
        members_ = std::move(members);
    }

    /// The members: how many, by either name, whether there are none, and from the first to behind the last.
    std::size_t size() const { return members_->size(); }
    std::size_t count() const { return members_->size(); }
    bool empty() const { return members_->empty(); }
    Iterator begin() const { return members_->begin(); }
    Iterator end() const { return members_->end(); }

    /// The member that equals this item; null when there is none.
    Member member(const Item& item) const {
        const Iterator found = find(*members_, item);
        return found == end() ? nullptr : *found;
    }
    bool contains(const std::shared_ptr<const Item>& item) const {
        return item != nullptr && find(*members_, *item) != end();
    }

private:
    static Iterator find(const std::vector<Member>& members, const Item& item) {
        return std::find_if(members.begin(), members.end(),
                            [&item](const Member& member) { return item.isEqual(member.get()); });
    }

    std::shared_ptr<const std::vector<Member>> members_;
};

}  // namespace ksw
