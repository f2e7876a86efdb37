// The accessors of single bits, and the questions to an item's type.
#include <kestrelwood/KSWItem.h>

#include "model/item/item_fields.h"

namespace {

void setBit(std::uint64_t& bits, std::uint64_t bit, bool value) {
    bits = value ? bits | bit : bits & ~bit;
}

bool isMissingOrEmpty(const KSWItem::OptionalString& text) {
    return !text.has_value() || text->empty();
}

}  // namespace

bool KSWItem::isEnabled() const {
    return (fields_->disposition & KSWDispositionEnabled) != 0;
}
void KSWItem::setEnabled(bool enabled) {
    setBit(fields_->disposition, KSWDispositionEnabled, enabled);
}
bool KSWItem::isAllowed() const {
    return (fields_->disposition & KSWDispositionAllowed) != 0;
}
void KSWItem::setAllowed(bool allowed) {
    setBit(fields_->disposition, KSWDispositionAllowed, allowed);
}
bool KSWItem::isHidden() const {
    return (fields_->disposition & KSWDispositionHidden) != 0;
}
void KSWItem::setHidden(bool hidden) {
    setBit(fields_->disposition, KSWDispositionHidden, hidden);
}
bool KSWItem::notified() const {
    return (fields_->disposition & KSWDispositionNotified) != 0;
}
void KSWItem::setNotified(bool notified) {
    setBit(fields_->disposition, KSWDispositionNotified, notified);
}
bool KSWItem::hasPendingAuthorization() const {
    return (fields_->disposition & KSWDispositionPendingAuthorization) != 0;
}
void KSWItem::setPendingAuthorization(bool pendingAuthorization) {
    setBit(fields_->disposition, KSWDispositionPendingAuthorization, pendingAuthorization);
}

// The flag of a legacy item only ever rises; what the item is now, its type says.
bool KSWItem::isLegacy() const {
    return intersectsType(KSWItemTypeLegacyBit);
}
bool KSWItem::isGlobal() const {
    return (fields_->flags & KSWItemFlagGlobal) != 0;
}
void KSWItem::setGlobal(bool global) {
    setBit(fields_->flags, KSWItemFlagGlobal, global);
}
bool KSWItem::isCurated() const {
    return (fields_->flags & KSWItemFlagCurated) != 0;
}
void KSWItem::setCurated(bool curated) {
    setBit(fields_->flags, KSWItemFlagCurated, curated);
}
bool KSWItem::isManaged() const {
    return (fields_->flags & KSWItemFlagManaged) != 0;
}
void KSWItem::setManaged(bool managed) {
    setBit(fields_->flags, KSWItemFlagManaged, managed);
}
bool KSWItem::addedByProfile() const {
    return (fields_->flags & KSWItemFlagProfileAdded) != 0;
}
void KSWItem::setAddedByProfile(bool addedByProfile) {
    setBit(fields_->flags, KSWItemFlagProfileAdded, addedByProfile);
}
bool KSWItem::addedByQDM() const {
    return (fields_->flags & KSWItemFlagQDMAdded) != 0;
}
void KSWItem::setAddedByQDM(bool addedByQDM) {
    setBit(fields_->flags, KSWItemFlagQDMAdded, addedByQDM);
}
bool KSWItem::isSandboxed() const {
    return (fields_->flags & KSWItemFlagSandboxed) != 0;
}
void KSWItem::setSandboxed(bool sandboxed) {
    setBit(fields_->flags, KSWItemFlagSandboxed, sandboxed);
}

bool KSWItem::isType(KSWItemType type) const {
    return fields_->type == type;
}
bool KSWItem::intersectsType(KSWItemType mask) const {
    return (fields_->type & mask) != 0;
}
bool KSWItem::matchesType(KSWItemType mask) const {
    return intersectsType(mask);
}
bool KSWItem::includesType(KSWItemType mask) const {
    return (mask & ~fields_->type) == 0;
}
bool KSWItem::intersectsType(KSWItemType mask, KSWItemType included) const {
    return includesType(included) && intersectsType(mask);
}
bool KSWItem::isDaemon() const {
    return intersectsType(KSWItemTypeDaemon);
}
bool KSWItem::hasGlobalDataType() const {
    return intersectsType(KSWItemTypeDaemon | KSWItemTypeSmartCard);
}
bool KSWItem::isUnknownDeveloper() const {
    return isMissingOrEmpty(intersectsType(KSWItemTypeDeveloper) ? fields_->name : fields_->developerName);
}
bool KSWItem::isUnknownDeveloperRecord() const {
    return intersectsType(KSWItemTypeDeveloper) && !fields_->developerName.has_value();
}
