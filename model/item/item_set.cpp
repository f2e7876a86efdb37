#include <kestrelwood/item_set.h>

#include <algorithm>
#include <functional>
#include <unordered_set>

#include <kestrelwood/KSWItem.h>

namespace ksw {

namespace {

bool isSameMember(const KSWItem* left, const KSWItem* right) {
    return left == right || left->isEqual(right);
}

struct MemberHash {
    std::size_t operator()(const KSWItem* item) const {
        return item->identifier().has_value() ? item->hash() : std::hash<const void*>{}(item);
    }
};

struct MemberEqual {
    bool operator()(const KSWItem* left, const KSWItem* right) const { return isSameMember(left, right); }
};

using Index = std::unordered_set<const KSWItem*, MemberHash, MemberEqual>;

}  // namespace

ItemSet::Pointer ItemSet::of(std::span<const Member> items) {
    auto set = std::make_shared<ItemSet>();
    Index known;
    for (const Member& item : items) {
        if (item != nullptr && known.insert(item.get()).second) {
            set->members_.push_back(item);
        }
    }
    return set;
}

ItemSet::Member ItemSet::member(const KSWItem* item) const {
    if (item == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(members_.begin(), members_.end(),
                                    [item](const Member& member) { return isSameMember(member.get(), item); });
    return found == members_.end() ? nullptr : *found;
}

ItemSet::Pointer ItemSet::adding(const Member& item) const {
    auto set = std::make_shared<ItemSet>(*this);
    if (item != nullptr && member(item.get()) == nullptr) {
        set->members_.push_back(item);
    }
    return set;
}

ItemSet::Pointer ItemSet::removing(const KSWItem* item) const {
    auto set = std::make_shared<ItemSet>(*this);
    if (item != nullptr) {
        std::erase_if(set->members_, [item](const Member& member) { return isSameMember(member.get(), item); });
    }
    return set;
}

ItemSet::Pointer ItemSet::intersecting(const ItemSet& others) const {
    Index kept;
    for (const Member& other : others) {
        kept.insert(other.get());
    }
    auto set = std::make_shared<ItemSet>(*this);
    std::erase_if(set->members_, [&kept](const Member& member) { return !kept.contains(member.get()); });
    return set;
}

ItemSet::Member ItemEnumerator::nextObject() {
    if (next_ == items_->size()) {
        return nullptr;
    }
    return items_->begin()[static_cast<std::ptrdiff_t>(next_++)];
}

}  // namespace ksw
