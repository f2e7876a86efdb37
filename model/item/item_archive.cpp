#include "model/item/item_archive.h"

#include <algorithm>

#include "model/item/item_fields.h"
#include "model/vocabulary/item_type.h"
#include "platform/archive/class_table.h"
#include "platform/base/limits.h"

using ksw::ItemAccess;
using ksw::ItemFields;
using ksw::ItemSet;
using ksw::Status;

namespace ksw::archive {

/// The children as a list. They may be half decoded when the set is made, so which are equal is settled later.
template <>
struct MembersOf<ItemSet::Pointer> {
    using Object = KSWItem;
    static bool isPresent(const ItemSet::Pointer& set) { return set != nullptr; }
    static std::span<const ItemSet::Member> span(const ItemSet::Pointer& set) {
        return set == nullptr ? std::span<const ItemSet::Member>() : ItemAccess::members(*set);
    }
    static ItemSet::Pointer from(std::vector<ItemSet::Member> members) {
        return ItemAccess::uncheckedSet(std::move(members));
    }
};

}  // namespace ksw::archive

namespace {

using ksw::archive::field;
using ksw::archive::FieldUse;

constexpr auto kFields = ksw::archive::fieldTable(
    field<&ItemFields::uuid>("uuid"), field<&ItemFields::identifier>("identifier"),
    field<&ItemFields::generation>("generation"), field<&ItemFields::flags>("flags"),
    field<&ItemFields::url>("url"), field<&ItemFields::modificationDate>("modificationDate"),
    field<&ItemFields::sha256>("sha256"), field<&ItemFields::executablePath>("executablePath"),
    field<&ItemFields::executableModificationDate>("executableModificationDate"),
    field<&ItemFields::programArguments>("programArguments"), field<&ItemFields::name>("name"),
    field<&ItemFields::developerName>("developerName"), field<&ItemFields::teamIdentifier>("teamIdentifier"),
    field<&ItemFields::designatedRequirement>("designatedRequirement"),
    field<&ItemFields::lightweightRequirement>("lightweightRequirement"),
    field<&ItemFields::disposition>("disposition"), field<&ItemFields::type>("type"),
    field<&ItemFields::editable>("editable"), field<&ItemFields::canHide>("canHide"),
    field<&ItemFields::bookmark>("bookmark"), field<&ItemFields::bundleIdentifier>("bundleIdentifier"),
    field<&ItemFields::associatedBundleIdentifiers>("associatedBundleIdentifiers"),
    ksw::archive::object<&ItemFields::container>("container"),
    ksw::archive::objects<&ItemFields::embeddedItems>("items", {.use = FieldUse::OrdinaryOnly}));

/// Walks up from the item. Whoever decoded it keeps all of its containers alive meanwhile.
Status checkContainers(const KSWItem& item) {
    std::array<const KSWItem*, ksw::limits::kContainerChainMax + 1> chain{&item};
    std::size_t length = 1;
    for (KSWItem::Pointer next = item.container(); next != nullptr; next = next->container()) {
        const auto end = chain.begin() + length;
        if (std::find(chain.begin(), end, next.get()) != end) {
            return ksw::Error(ksw::FormatError::LimitPassed, "container: the containers lead round in a circle");
        }
        if (length == chain.size()) {
            return ksw::Error(ksw::FormatError::LimitPassed, "container: more than 16 containers");
        }
        chain[length++] = next.get();
    }
    return {};
}

Status finishDecoding(KSWItem& item, const ksw::archive::FinishContext& context) {
    ItemFields& fields = ItemAccess::fields(item);
    if (!ValidateItemType(fields.type)) {
        fields.type = 0;
    }
    if (fields.embeddedItems != nullptr) {
        fields.embeddedItems = ItemSet::of(ItemAccess::members(*fields.embeddedItems));
    } else if (context.coder == ksw::archive::Coder::Ordinary) {
        fields.embeddedItems = ItemSet::of({});
    }
    return checkContainers(item);
}

ItemFields& fieldsOf(KSWItem& item) {
    return ItemAccess::fields(item);
}

constexpr ksw::archive::ClassInfo kClass =
    ksw::archive::describeClass<KSWItem, &fieldsOf, &finishDecoding>("KSWItem", kFields);

}  // namespace

const ksw::archive::ClassInfo& archiveClass(const KSWItem* /*item*/) {
    return kClass;
}
