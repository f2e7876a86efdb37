// The links between parents and children, and walks over them.
#include <kestrelwood/KSWItem.h>

#include <algorithm>
#include <unordered_set>

#include "model/item/item_fields.h"
#include "platform/base/limits.h"

using ksw::ItemSet;

namespace {

/// The item itself, or the outermost of its parents below the record of the unknown developer. Parents that lead
/// round in a circle end the search.
KSWItem::Pointer rootOf(KSWItem::Pointer item) {
    for (std::size_t steps = 0; steps < ksw::limits::kContainerChainMax; ++steps) {
        KSWItem::Pointer parent = item->container();
        if (parent == nullptr || parent->isUnknownDeveloperRecord()) {
            break;
        }
        item = std::move(parent);
    }
    return item;
}

/// One walk over a tree. It goes by a stack of its own and visits no item twice, so no tree is too deep for it and
/// one that leads back into itself ends.
class FamilyWalk {
public:
    FamilyWalk(bool childrenFirst, const KSWItem::Visitor& visit) : childrenFirst_(childrenFirst), visit_(visit) {}

    void run(const KSWItem::Pointer& root) {
        enter(root);
        while (!path_.empty()) {
            if (const KSWItem::Pointer child = path_.back().children.nextObject()) {
                enter(child);
            } else {
                leave();
            }
        }
    }

private:
    struct Place {
        KSWItem::Pointer item;
        ksw::ItemEnumerator children;
    };

    void enter(const KSWItem::Pointer& item) {
        if (!met_.insert(item.get()).second) {
            return;
        }
        if (!childrenFirst_) {
            visit_(item);
        }
        path_.push_back({item, item->enumeratorOfEmbeddedItems()});
    }

    void leave() {
        const Place place = std::move(path_.back());
        path_.pop_back();
        if (childrenFirst_) {
            visit_(place.item);
        }
    }

    bool childrenFirst_;
    const KSWItem::Visitor& visit_;
    std::vector<Place> path_;
    std::unordered_set<const KSWItem*> met_;
};

template <class Predicate>
bool anyChild(const ItemSet::Pointer& children, Predicate predicate) {
    return children != nullptr && std::any_of(children->begin(), children->end(), predicate);
}

template <class Action>
void forEachChild(const ItemSet::Pointer& children, Action action) {
    if (children != nullptr) {
        std::for_each(children->begin(), children->end(), action);
    }
}

}  // namespace

KSWItem::Pointer KSWItem::container() const {
    return fields_->container.lock();
}

void KSWItem::setContainer(const Pointer& container) {
    if (container != nullptr) {
        container->addEmbeddedItemsObject(shared_from_this());
    } else if (const Pointer current = this->container()) {
        current->removeEmbeddedItemsObject(shared_from_this());
    }
    fields_->container = container;
}

void KSWItem::_setContainer(const Pointer& container) {
    setContainer(container);
}

std::size_t KSWItem::countOfEmbeddedItems() const {
    return fields_->embeddedItems == nullptr ? 0 : fields_->embeddedItems->size();
}

ksw::ItemEnumerator KSWItem::enumeratorOfEmbeddedItems() const {
    return ksw::ItemEnumerator(fields_->embeddedItems);
}

KSWItem::Pointer KSWItem::memberOfEmbeddedItems(const std::shared_ptr<const KSWItem>& item) const {
    return fields_->embeddedItems == nullptr ? nullptr : fields_->embeddedItems->member(item.get());
}

void KSWItem::addEmbeddedItemsObject(const Pointer& item) {
    const ItemSet::Pointer& children = fields_->embeddedItems;
    fields_->embeddedItems = children == nullptr ? ItemSet::of({item}) : children->adding(item);
}

void KSWItem::removeEmbeddedItemsObject(const std::shared_ptr<const KSWItem>& item) {
    if (fields_->embeddedItems != nullptr) {
        fields_->embeddedItems = fields_->embeddedItems->removing(item.get());
    }
}

void KSWItem::intersectEmbeddedItems(const ItemSet::Pointer& items) {
    if (fields_->embeddedItems != nullptr) {
        fields_->embeddedItems = items == nullptr ? ItemSet::of({}) : fields_->embeddedItems->intersecting(*items);
    }
}

void KSWItem::enumerateFamilyTreeWithOptions(KSWFamilyTreeOptions options, const Visitor& visit) {
    const bool fromRoot = (options & KSWFamilyTreeFromRoot) != 0;
    FamilyWalk walk((options & KSWFamilyTreeChildrenFirst) != 0, visit);
    walk.run(fromRoot ? rootOf(shared_from_this()) : shared_from_this());
}

void KSWItem::enumerateFamilyTreeUsingBlock(const Visitor& visit) {
    enumerateFamilyTreeWithOptions(KSWFamilyTreeFromRoot, visit);
}

bool KSWItem::isAggregateAllowed() const {
    return !anyChild(fields_->embeddedItems, [](const Pointer& child) { return !child->isAllowed(); });
}

void KSWItem::setAggregateAllowed(bool allowed) {
    forEachChild(fields_->embeddedItems, [allowed](const Pointer& child) { child->setAllowed(allowed); });
}

bool KSWItem::isAggregateNotified() const {
    return anyChild(fields_->embeddedItems, [](const Pointer& child) { return child->notified(); });
}

void KSWItem::setAggregateNotified(bool notified) {
    forEachChild(fields_->embeddedItems, [notified](const Pointer& child) { child->setNotified(notified); });
}

bool KSWItem::isAggregateManaged() const {
    return anyChild(fields_->embeddedItems, [](const Pointer& child) { return child->isManaged(); });
}

void KSWItem::setAggregateManaged(bool managed) {
    forEachChild(fields_->embeddedItems, [managed](const Pointer& child) { child->setManaged(managed); });
}

bool KSWItem::containsDaemon() const {
    return anyChild(fields_->embeddedItems, [](const Pointer& child) { return child->isDaemon(); });
}
