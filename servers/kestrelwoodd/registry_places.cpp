// Where items hang: under which container, how they come there, and how they leave it.
#include <kestrelwood/KSWErrors.h>

#include "model/item/item_disposition.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

bool isDeveloper(const KSWItem& item) {
    return item.intersectsType(KSWItemTypeDeveloper);
}

bool isApplication(const KSWItem& item) {
    return item.intersectsType(KSWItemTypeApp);
}

bool isOfOneDeveloper(const KSWItem& item, const KSWItem& other) {
    return developerIdentifierOf(item) == developerIdentifierOf(other);
}

/// Whether nobody has forbidden the record, or what it hangs under. `chosen`: what its user chose.
bool wasAllowed(const KSWItem& record, KSWDisposition chosen) {
    const ItemPointer container = record.container();
    const bool isContained = container != nullptr && !container->isUnknownDeveloperRecord();
    const bool isInFamily = record.isAllowed() ? isAllowedInFamily(record) : !isContained || container->isAllowed();
    return (chosen & KSWDispositionAllowed) != 0 && isInFamily;
}

/// What an item starts with whose code is another developer's than it was: as a new one, but that nothing comes
/// back that was disabled or not allowed, or new code would be the way around it.
KSWDisposition dispositionAnew(const KSWItem& record, KSWDisposition chosen, const KSWItem& updated,
                               const KSWItem* voucher, History history) {
    KSWDisposition disposition = initialDisposition(record.type(), voucher, history);
    if ((chosen & KSWDispositionEnabled) == 0 || !updated.isEnabled()) {
        disposition &= ~KSWDispositionEnabled;
    }
    if (!wasAllowed(record, chosen) || !updated.isAllowed()) {
        disposition &= ~KSWDispositionAllowed;
    }
    return disposition;
}

}  // namespace

const KSWItem* Registry::Place::voucherFor(const KSWItem& item) const {
    if (application == nullptr) {
        return newApplication == nullptr ? developer.get() : nullptr;
    }
    // An application that nobody signed is whatever lies there.
    const bool isKnown = !application->isUnknownDeveloper() && isOfOneDeveloper(*application, item);
    return isKnown ? application.get() : nullptr;
}

Result<Registry::Place> Registry::placeFor(Uid uid, const KSWItem& item, const ItemPointer& application) const {
    Result<ItemPointer> developer = developerFor(uid, application == nullptr ? item : *application);
    if (!developer) {
        return developer.error();
    }
    Place place{*std::move(developer), nullptr, nullptr};
    if (application == nullptr) {
        return place;
    }
    Found found = index_.find(uid, *application->identifier());
    if (found.isDamaged || (found.item != nullptr && !isApplication(*found.item))) {
        return KSWErrorWithCode(KSWErrorGeneric);
    }
    if (found.item != nullptr && isInItsPlace(*found.item, *application, nullptr)) {
        place.application = std::move(found.item);
    } else {
        place.newApplication = newApplicationOf(uid, *application, place.developer.get());
    }
    return place;
}

ItemPointer Registry::newApplicationOf(Uid uid, const KSWItem& facts, const KSWItem* developer) const {
    ItemPointer application = copyOfRecord(facts);
    application->setUuid(UUID::random());
    application->setGeneration(0);
    application->setDisposition(initialDisposition(facts.type(), developer, history_));
    forbidWith(uid, developer, *application);
    return application;
}

void Registry::forbidWith(Uid uid, const KSWItem* developer, KSWItem& item) const {
    if (isApplication(item) && developer != nullptr && !developer->isUnknownDeveloperRecord() &&
        (choiceOf(uid, *developer).disposition & KSWDispositionAllowed) == 0) {
        item.setAllowed(false);
    }
}

Result<ItemPointer> Registry::asIfEntered(Uid uid, const ItemPointer& item, const ItemPointer& application) const {
    const Result<Place> place = placeFor(uid, *item, application);
    if (!place) {
        return place.error();
    }
    item->setDisposition(initialDisposition(item->type(), place->voucherFor(*item), history_));
    const Managed::Pointer managed = this->managed();
    const ItemPointer newDeveloper = newDeveloperOf(*item, UUID{});
    govern(*managed, uid, *newDeveloper);
    govern(*managed, uid, *item);
    // An application's items are judged by that, whatever it hangs under.
    if (place->application != nullptr) {
        return ItemPointer(rebuilt(*place->application, {{}, item}), item.get());
    }
    if (place->newApplication != nullptr) {
        govern(*managed, uid, *place->newApplication);
        item->setContainer(place->newApplication);
        return ItemPointer(place->newApplication, item.get());
    }
    // Under the unknown developer each item is judged alone, so the others there are not wanted.
    if (place->developer != nullptr && !item->isUnknownDeveloper()) {
        return ItemPointer(rebuilt(*place->developer, {{}, item}), item.get());
    }
    item->setContainer(newDeveloper);
    return ItemPointer(newDeveloper, item.get());
}

bool Registry::isInItsPlace(const KSWItem& record, const KSWItem& facts, const ItemPointer& application) {
    const ItemPointer container = record.container();
    if (container == nullptr) {
        return application == nullptr;
    }
    if (isApplication(*container) || application != nullptr) {
        return application != nullptr && container->identifier() == application->identifier();
    }
    return !isDeveloper(*container) || container->identifier() == developerIdentifierOf(facts);
}

bool Registry::staysWhereItIs(const KSWItem& record, const KSWItem& updated) {
    const ItemPointer application = applicationOf(record, updated);
    return isInItsPlace(record, updated, application) &&
           (application == nullptr || isOfOneDeveloper(record, updated));
}

ItemPointer Registry::applicationOf(const KSWItem& record, const KSWItem& updated) {
    ItemPointer container = record.container();
    if (container == nullptr || !isApplication(*container)) {
        return nullptr;
    }
    const bool isVouchedFor = isJob(record.type()) && record.isLegacy();
    return isVouchedFor && !isOfOneDeveloper(*container, updated) ? nullptr : container;
}

Outcome Registry::change(Edit& edit, Uid uid, const ItemPointer& current, const ItemPointer& updated,
                         const ItemPointer& application) {
    if (!isInItsPlace(*current, *updated, application)) {
        return move(edit, uid, current, updated, application);
    }
    if (application != nullptr && !isOfOneDeveloper(*current, *updated)) {
        updated->setDisposition(
            dispositionAnew(*current, choiceOf(uid, *current).disposition, *updated, nullptr, history_));
    }
    return replace(edit, {{uid, current, updated}});
}

Outcome Registry::move(Edit& edit, Uid uid, const ItemPointer& current, const ItemPointer& updated,
                       const ItemPointer& application) {
    const Result<Place> place = placeFor(uid, *updated, application);
    if (!place) {
        return {place.error().code()};
    }
    const bool wasInItsPlace = isInItsPlace(*current, *current, applicationOf(*current, *current));
    if (!wasInItsPlace || !isOfOneDeveloper(*current, *updated)) {
        updated->setDisposition(dispositionAnew(*current, choiceOf(uid, *current).disposition, *updated,
                                                place->voucherFor(*updated), history_));
    }
    forbidWith(uid, place->developer.get(), *updated);
    const std::string& identifier = *current->identifier();
    const ItemPointer& kept = place->application != nullptr ? place->application : place->developer;
    const Departure departure = departureOf(uid, identifier, current, kept.get());
    takeOut(edit, uid, departure);
    // The item comes with all that hangs below it.
    if (!hang(edit, uid, rebuilt(*current, {{{current.get(), updated}}}), *place, &departure)) {
        return {KSWErrorInvalidParameter};
    }
    return commit(edit);
}

bool Registry::hang(Edit& edit, Uid uid, const ItemPointer& item, const Place& place,
                    const Departure* former) const {
    const ItemPointer top = place.newApplication == nullptr ? item : place.newApplication;
    if (top != item) {
        item->setContainer(top);
    }
    FamilyEdit family{{}, top};
    ItemPointer base = place.developer;
    if (place.application != nullptr) {
        base = rootOf(place.application);
        family.place = place.application->identifier();
    }
    const Managed::Pointer managed = managedAfter(edit);
    std::optional<OwnChoice> ofBase;
    const bool isDeveloperNew = base == nullptr;
    if (isDeveloperNew) {
        base = newDeveloperOf(*top, UUID::random());
        ofBase = govern(*managed, uid, *base);
    }
    const std::optional<OwnChoice> ofItem = govern(*managed, uid, *item);
    const std::optional<OwnChoice> ofTop = top == item ? ofItem : govern(*managed, uid, *top);
    if (former != nullptr && former->root != nullptr && former->root.get() == base.get()) {
        family.replaced.emplace(former->item, nullptr);
    }
    const ItemPointer root = rebuilt(*base, family);
    if ((isDeveloperNew && !edit.put(uid, *root, ofBase)) || (top != item && !edit.put(uid, *top, ofTop)) ||
        !edit.put(uid, *item, ofItem)) {
        return false;
    }
    edit.publications.push_back({uid, root, {}});
    return true;
}

Registry::Departure Registry::departureOf(Uid uid, const std::string& identifier, const ItemPointer& record,
                                          const KSWItem* kept) const {
    Departure departure{record == nullptr ? nullptr : rootOf(record), identifier, record.get(), {}};
    ItemPointer container = record == nullptr ? index_.find(uid, kUnknownDeveloper).item : record->container();
    while (container != nullptr && container.get() != kept &&
           goesWith(uid, *container, departure.taken, identifier)) {
        departure.taken = *container->identifier();
        departure.item = container.get();
        departure.emptied.push_back(container);
        container = container->container();
    }
    if (departure.root != nullptr && departure.root->identifier() == departure.taken) {
        departure.root = nullptr;
    }
    return departure;
}

void Registry::takeOut(Edit& edit, Uid uid, const Departure& departure) {
    RecordIndex::Publication publication{uid, nullptr, {}};
    if (departure.root != nullptr) {
        publication.root = rebuilt(*departure.root, {{{departure.item, nullptr}}});
    }
    for (const ItemPointer& container : departure.emptied) {
        edit.remove(uid, *container->identifier(), container->type());
        publication.dropped.emplace_back(*container->identifier(), *container->uuid());
    }
    edit.publications.push_back(std::move(publication));
}

}  // namespace ksw::daemon
