#include "model/item/item_request_copies.h"

#include <unordered_map>

#include "model/item/item_fields.h"
#include "platform/base/limits.h"

namespace ksw {

namespace {

using Pointer = KSWItem::Pointer;

class Copier {
public:
    explicit Copier(const ItemSet& items) : items_(items) {}

    ItemCopies run() {
        for (const Pointer& item : items_) {
            item->enumerateFamilyTreeWithOptions(0, [this](const Pointer& member) { enter(member); });
        }
        for (const Pointer& member : family_) {
            linkChildren(*member);
            linkContainers(member);
        }
        for (const Pointer& item : items_) {
            result_.items.push_back(copies_.at(item.get()));
        }
        return std::move(result_);
    }

private:
    static ItemFields& fieldsOfCopy(const Pointer& copy) { return ItemAccess::fields(*copy); }

    /// The item's copy, without relatives when it is a new one.
    Pointer copyOf(const Pointer& item) {
        Pointer& copy = copies_[item.get()];
        if (copy == nullptr) {
            copy = item->copyWithZone();
            fieldsOfCopy(copy).flags = item->flags();
            fieldsOfCopy(copy).container.reset();
            fieldsOfCopy(copy).embeddedItems.reset();
            result_.all.push_back(copy);
        }
        return copy;
    }

    void enter(const Pointer& member) {
        if (!copies_.contains(member.get())) {
            copyOf(member);
            family_.push_back(member);
        }
    }

    void linkChildren(const KSWItem& member) {
        const ItemSet::Pointer& children = member.embeddedItems();
        if (children == nullptr) {
            return;
        }
        std::vector<Pointer> copies;
        for (const Pointer& child : *children) {
            copies.push_back(copies_.at(child.get()));
        }
        fieldsOfCopy(copies_.at(&member)).embeddedItems = ItemAccess::uncheckedSet(std::move(copies));
    }

    void linkContainers(Pointer item) {
        for (std::size_t steps = 0; steps <= limits::kContainerChainMax; ++steps) {
            Pointer container = item->container();
            if (container == nullptr) {
                return;
            }
            const bool isLinked = copies_.contains(container.get());
            const Pointer copy = copyOf(container);
            fieldsOfCopy(copies_.at(item.get())).container = copy;
            if (isLinked) {
                return;
            }
            item = std::move(container);
        }
    }

    const ItemSet& items_;
    std::vector<Pointer> family_;
    std::unordered_map<const KSWItem*, Pointer> copies_;
    ItemCopies result_;
};

}  // namespace

ItemCopies::~ItemCopies() {
    for (const Pointer& copy : all) {
        // Children that own each other in a circle would stay for ever.
        ItemAccess::fields(*copy).embeddedItems.reset();
    }
}

ItemCopies copiesForRequest(const ItemSet& items) {
    return Copier(items).run();
}

}  // namespace ksw
