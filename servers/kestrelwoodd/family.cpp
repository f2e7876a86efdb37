#include "servers/kestrelwoodd/family.h"

#include <algorithm>
#include <array>

#include "platform/base/limits.h"

namespace ksw::daemon {

namespace {

/// What takes the item's place: absent when it stays as it is, null when it is left out.
std::optional<ItemPointer> replacementOf(const KSWItem& item, const FamilyEdit& edit) {
    const auto found = edit.replaced.find(&item);
    return found == edit.replaced.end() ? std::nullopt : std::optional(found->second);
}

/// Whether the edit's new item comes below this one.
bool isPlaceOfAdded(const KSWItem& item, const FamilyEdit& edit) {
    return edit.added != nullptr && edit.place && *edit.place == *item.identifier();
}

/// Families are checked for depth when they are loaded, and no edit makes one deeper than its limit.
ItemPointer copyTree(const KSWItem& source, const FamilyEdit& edit, const std::optional<ItemPointer>& replacement) {
    ItemPointer copy = replacement ? *replacement : copyOfRecord(source);
    std::vector<ItemPointer> children;
    if (source.embeddedItems() != nullptr) {
        children.reserve(source.embeddedItems()->size() + 1);
        for (const ItemPointer& child : *source.embeddedItems()) {
            const std::optional<ItemPointer> itsReplacement = replacementOf(*child, edit);
            const bool isLeftOut = itsReplacement && *itsReplacement == nullptr;
            if (!isLeftOut) {
                children.push_back(copyTree(*child, edit, itsReplacement));
            }
        }
    }
    if (isPlaceOfAdded(*copy, edit)) {
        children.push_back(edit.added);
    }
    adopt(copy, children);
    return copy;
}

using Says = bool (*)(const KSWItem& item);

constexpr std::array<Says, 4> kSaidOfFamilies{
    [](const KSWItem& item) { return !item.isAllowed(); },
    [](const KSWItem& item) { return item.notified(); },
    [](const KSWItem& item) { return item.isManaged(); },
    [](const KSWItem& item) { return item.isDaemon(); },
};

/// A copy of the container with `child` in the place of the child it is a copy of, and those of its other children
/// that decide what it says of them all.
ItemPointer deciding(const KSWItem& container, const ItemPointer& child) {
    std::vector<ItemPointer> children{child};
    for (const Says says : kSaidOfFamilies) {
        const auto saidBy = [says](const ItemPointer& one) { return says(*one); };
        const auto& all = *container.embeddedItems();
        const auto found = std::find_if(all.begin(), all.end(), saidBy);
        if (found != all.end() && std::none_of(children.begin(), children.end(), saidBy)) {
            children.push_back(copyOfRecord(**found));
        }
    }
    ItemPointer copy = copyOfRecord(container);
    adopt(copy, children);
    return copy;
}

void visitBelow(const ItemPointer& root, const ItemPointer& item,
                const std::function<void(const ItemPointer&)>& visit) {
    visit(ItemPointer(root, item.get()));
    if (item->embeddedItems() != nullptr) {
        for (const ItemPointer& child : *item->embeddedItems()) {
            visitBelow(root, child, visit);
        }
    }
}

}  // namespace

ItemPointer rootOf(const ItemPointer& item) {
    ItemPointer root = item;
    for (std::size_t step = 0; step < limits::kContainerChainMax; ++step) {
        ItemPointer container = root->container();
        if (container == nullptr) {
            break;
        }
        root = std::move(container);
    }
    return root;
}

void adopt(const ItemPointer& parent, const std::vector<ItemPointer>& children) {
    // Linking a child also adds it to the parent's set, which looks through the set each time; so each is linked
    // to a parent whose set is empty, and the whole set is given at the end.
    const ItemSet::Pointer none = std::make_shared<const ItemSet>();
    for (const ItemPointer& child : children) {
        parent->setEmbeddedItems(none);
        child->setContainer(parent);
    }
    parent->setEmbeddedItems(ItemSet::of(children));
}

ItemPointer rebuilt(const KSWItem& root, const FamilyEdit& edit) {
    ItemPointer copy = copyTree(root, edit, replacementOf(root, edit));
    if (edit.added != nullptr && !edit.place) {
        edit.added->setContainer(copy);
    }
    return copy;
}

ItemPointer withDecidingFamily(const ItemPointer& item) {
    const ItemPointer copy = copyTree(*item, {}, std::nullopt);
    ItemPointer root = copy;
    for (ItemPointer container = item->container(); container != nullptr; container = container->container()) {
        root = deciding(*container, root);
    }
    return ItemPointer(root, copy.get());
}

void forEachOf(const ItemPointer& root, const std::function<void(const ItemPointer&)>& visit) {
    visitBelow(root, root, visit);
}

}  // namespace ksw::daemon
