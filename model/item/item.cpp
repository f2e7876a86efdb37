#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include <stdexcept>

#include "model/item/item_fields.h"
#include "model/vocabulary/item_type.h"
#include "platform/base/hex.h"
#include "platform/base/never_destroyed.h"

using ksw::ItemFields;

namespace {

/// The flag that a legacy type brings along.
KSWItemFlags flagsOfType(KSWItemType type) {
    return (type & KSWItemTypeLegacyBit) != 0 ? KSWItemFlagLegacy : 0;
}

using Discarded = std::vector<ksw::ItemSet::Pointer>;
thread_local constinit Discarded* discardedSets = nullptr;

/// Lets go of children one generation after the other, because a family may be deeper than the stack allows its
/// destructors to nest.
void discard(ksw::ItemSet::Pointer children) noexcept {
    if (children == nullptr || children->empty()) {
        return;
    }
    try {
        if (discardedSets != nullptr) {
            discardedSets->push_back(std::move(children));
            return;
        }
        Discarded sets{std::move(children)};
        discardedSets = &sets;
        while (!sets.empty()) {
            const ksw::ItemSet::Pointer next = std::move(sets.back());
            sets.pop_back();
        }
    } catch (const std::bad_alloc&) {
        // Without memory for the list the children go at once, which is safe for all but the deepest families.
    }
    discardedSets = nullptr;
}

}  // namespace

KSWItem::KSWItem() : fields_(std::make_unique<ItemFields>()) {}

KSWItem::~KSWItem() {
    discard(std::move(fields_->embeddedItems));
}

void KSWItem::startWithType(KSWItemType type, OptionalString identifier) {
    fields_->uuid = ksw::UUID::random();
    fields_->type = type;
    fields_->flags |= flagsOfType(type);
    fields_->identifier = std::move(identifier);
    fields_->embeddedItems = ksw::ItemSet::of({});
}

KSWItem::Pointer KSWItem::copyWithZone() const {
    auto copy = std::make_shared<KSWItem>();
    *copy->fields_ = *fields_;
    copy->fields_->flags = 0;
    copy->fields_->isResolvedURLStale = false;
    return copy;
}

bool KSWItem::isEqual(const KSWItem* other) const {
    return other != nullptr && fields_->identifier.has_value() && fields_->identifier == other->fields_->identifier;
}

std::size_t KSWItem::hash() const {
    return fields_->identifier.has_value() ? std::hash<std::string>{}(*fields_->identifier) : 0;
}

void KSWItem::setType(KSWItemType type) {
    if (!ValidateItemType(type)) {
        throw std::invalid_argument("KSWItemType must be one of .app, .document, .loginItem, .agent, .daemon");
    }
    fields_->type = type;
    fields_->flags |= flagsOfType(type);
}

void KSWItem::setName(OptionalString name) {
    const bool isPlaceholder = name == ksw::kUnknownDeveloper;
    fields_->name = isPlaceholder ? std::nullopt : std::move(name);
}

const std::string& KSWItem::developerName() const {
    static ksw::NeverDestroyed<const std::string> none;
    return fields_->developerName.has_value() ? *fields_->developerName : *none;
}

void KSWItem::setDeveloperName(OptionalString developerName) {
    const bool isNone = developerName == "" || developerName == ksw::kUnknownDeveloper;
    fields_->developerName = isNone ? std::nullopt : std::move(developerName);
}

KSWItem::OptionalString KSWItem::baseIdentifier() const {
    if (!fields_->identifier.has_value()) {
        return std::nullopt;
    }
    return ItemIdentifierCopyBaseFromIdentifierAndType(*fields_->identifier, fields_->type);
}

std::string KSWItem::sha256String() const {
    std::string text;
    if (fields_->sha256.has_value()) {
        text.reserve(2 * fields_->sha256->size());
        for (std::uint8_t byte : *fields_->sha256) {
            text += ksw::kUpperHexDigits[byte >> 4U];
            text += ksw::kUpperHexDigits[byte & 0xFU];
        }
    }
    return text;
}
