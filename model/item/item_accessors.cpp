// The accessors that store and hand out a field and do nothing else.
#include <kestrelwood/KSWItem.h>

#include "model/item/item_fields.h"

KSWItemType KSWItem::type() const {
    return fields_->type;
}
const KSWItem::OptionalString& KSWItem::name() const {
    return fields_->name;
}

KSWItemFlags KSWItem::flags() const {
    return fields_->flags;
}
void KSWItem::setFlags(KSWItemFlags flags) {
    fields_->flags = flags;
}

const ksw::ItemSet::Pointer& KSWItem::embeddedItems() const {
    return fields_->embeddedItems;
}
void KSWItem::setEmbeddedItems(ksw::ItemSet::Pointer embeddedItems) {
    fields_->embeddedItems = std::move(embeddedItems);
}

bool KSWItem::isEditable() const {
    return fields_->editable;
}
void KSWItem::setEditable(bool editable) {
    fields_->editable = editable;
}

bool KSWItem::canHide() const {
    return fields_->canHide;
}
void KSWItem::setCanHide(bool canHide) {
    fields_->canHide = canHide;
}

bool KSWItem::isResolvedURLStale() const {
    return fields_->isResolvedURLStale;
}
void KSWItem::setIsResolvedURLStale(bool stale) {
    fields_->isResolvedURLStale = stale;
}

const std::optional<ksw::UUID>& KSWItem::uuid() const {
    return fields_->uuid;
}
void KSWItem::setUuid(std::optional<ksw::UUID> uuid) {
    fields_->uuid = std::move(uuid);
}

const KSWItem::OptionalString& KSWItem::identifier() const {
    return fields_->identifier;
}
void KSWItem::setIdentifier(OptionalString identifier) {
    fields_->identifier = std::move(identifier);
}

const std::optional<ksw::URL>& KSWItem::url() const {
    return fields_->url;
}
void KSWItem::setUrl(std::optional<ksw::URL> url) {
    fields_->url = std::move(url);
}

double KSWItem::modificationDate() const {
    return fields_->modificationDate;
}
void KSWItem::setModificationDate(double modificationDate) {
    fields_->modificationDate = modificationDate;
}

const std::optional<ksw::Data>& KSWItem::sha256() const {
    return fields_->sha256;
}
void KSWItem::setSha256(std::optional<ksw::Data> sha256) {
    fields_->sha256 = std::move(sha256);
}

const KSWItem::OptionalString& KSWItem::executablePath() const {
    return fields_->executablePath;
}
void KSWItem::setExecutablePath(OptionalString executablePath) {
    fields_->executablePath = std::move(executablePath);
}

double KSWItem::executableModificationDate() const {
    return fields_->executableModificationDate;
}
void KSWItem::setExecutableModificationDate(double executableModificationDate) {
    fields_->executableModificationDate = executableModificationDate;
}

const std::optional<KSWItem::Strings>& KSWItem::programArguments() const {
    return fields_->programArguments;
}
void KSWItem::setProgramArguments(std::optional<Strings> programArguments) {
    fields_->programArguments = std::move(programArguments);
}

KSWDisposition KSWItem::disposition() const {
    return fields_->disposition;
}
void KSWItem::setDisposition(KSWDisposition disposition) {
    fields_->disposition = disposition;
}

const KSWItem::OptionalString& KSWItem::bundleIdentifier() const {
    return fields_->bundleIdentifier;
}
void KSWItem::setBundleIdentifier(OptionalString bundleIdentifier) {
    fields_->bundleIdentifier = std::move(bundleIdentifier);
}

const std::optional<KSWItem::Strings>& KSWItem::associatedBundleIdentifiers() const {
    return fields_->associatedBundleIdentifiers;
}
void KSWItem::setAssociatedBundleIdentifiers(std::optional<Strings> associatedBundleIdentifiers) {
    fields_->associatedBundleIdentifiers = std::move(associatedBundleIdentifiers);
}

const std::optional<ksw::Data>& KSWItem::bookmark() const {
    return fields_->bookmark;
}
void KSWItem::setBookmark(std::optional<ksw::Data> bookmark) {
    fields_->bookmark = std::move(bookmark);
}

const KSWItem::OptionalString& KSWItem::teamIdentifier() const {
    return fields_->teamIdentifier;
}
void KSWItem::setTeamIdentifier(OptionalString teamIdentifier) {
    fields_->teamIdentifier = std::move(teamIdentifier);
}

const KSWItem::OptionalString& KSWItem::designatedRequirement() const {
    return fields_->designatedRequirement;
}
void KSWItem::setDesignatedRequirement(OptionalString designatedRequirement) {
    fields_->designatedRequirement = std::move(designatedRequirement);
}

const std::optional<ksw::Data>& KSWItem::lightweightRequirement() const {
    return fields_->lightweightRequirement;
}
void KSWItem::setLightweightRequirement(std::optional<ksw::Data> lightweightRequirement) {
    fields_->lightweightRequirement = std::move(lightweightRequirement);
}

std::int64_t KSWItem::generation() const {
    return fields_->generation;
}
void KSWItem::setGeneration(std::int64_t generation) {
    fields_->generation = generation;
}
