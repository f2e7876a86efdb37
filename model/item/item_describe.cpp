#include <kestrelwood/KSWItem.h>

#include "model/item/item_fields.h"
#include "platform/base/text.h"

namespace {

using OptionalString = KSWItem::OptionalString;

enum class WhenAbsent { Skip, Show };

/// One line of the dump: the title right-aligned in its column, and the value.
template <class Value>
void appendLine(std::string& text, std::string_view title, const std::optional<Value>& value,
                WhenAbsent whenAbsent) {
    if (value.has_value() || whenAbsent == WhenAbsent::Show) {
        text += ksw::format("  %19s: %@\n", ksw::Literal{title}, value);
    }
}

/// A line for a set of bits: in words, and as a number.
void appendBits(std::string& text, std::string_view title, const std::string& words, std::uint64_t bits) {
    text += ksw::format("  %19s: %@ (%#lx)\n", ksw::Literal{title}, words, bits);
}

void appendIdentity(std::string& text, const ksw::ItemFields& fields) {
    appendLine(text, "UUID", fields.uuid, WhenAbsent::Show);
    appendLine(text, "Name", fields.name, WhenAbsent::Show);
    appendLine(text, "Developer Name", fields.developerName, WhenAbsent::Show);
    appendLine(text, "Team Identifier", fields.teamIdentifier, WhenAbsent::Skip);
    appendBits(text, "Type", KSWItemTypeDescription(fields.type), fields.type);
    appendBits(text, "Flags", KSWItemFlagsDescription(fields.flags), fields.flags);
    appendBits(text, "Disposition", KSWDispositionDescription(fields.disposition), fields.disposition);
    if ((fields.disposition & KSWDispositionPendingAuthorization) != 0) {
        appendLine(text, "Pending Authorization", OptionalString("Yes"), WhenAbsent::Skip);
    }
    appendLine(text, "Identifier", fields.identifier, WhenAbsent::Show);
    const OptionalString url = fields.url.has_value() ? OptionalString(fields.url->relativeString()) : std::nullopt;
    appendLine(text, "URL", url, WhenAbsent::Show);
    appendLine(text, "Bundle Identifier", fields.bundleIdentifier, WhenAbsent::Skip);
    appendLine(text, "Generation", OptionalString(std::to_string(fields.generation)), WhenAbsent::Show);
}

void appendExecutable(std::string& text, const KSWItem& item, const ksw::ItemFields& fields) {
    appendLine(text, "Executable Path", fields.executablePath, WhenAbsent::Skip);
    // The date of the item's own file, whatever the title says: readers of the dump know it so.
    if (fields.modificationDate != 0) {
        appendLine(text, "Executable Mod Date", OptionalString(ksw::Date{fields.modificationDate}.string()),
                   WhenAbsent::Skip);
    }
    if (fields.sha256.has_value()) {
        appendLine(text, "SHA256", OptionalString(item.sha256String()), WhenAbsent::Skip);
    }
    appendLine(text, "LWCR", fields.lightweightRequirement, WhenAbsent::Skip);
}

void appendAssociatedBundles(std::string& text, const ksw::ItemFields& fields) {
    if (!fields.associatedBundleIdentifiers.has_value() || fields.associatedBundleIdentifiers->empty()) {
        return;
    }
    text += "    Assoc. Bundle IDs: [";
    std::string_view separator = "";
    for (const std::string& identifier : *fields.associatedBundleIdentifiers) {
        text += separator;
        text += identifier;
        separator = ", ";
    }
    text += " ]\n";
}

void appendRelatives(std::string& text, const KSWItem& item) {
    const KSWItem::Pointer parent = item.container();
    appendLine(text, "Parent Identifier", parent == nullptr ? std::nullopt : parent->identifier(),
               WhenAbsent::Skip);
    if (item.countOfEmbeddedItems() == 0) {
        return;
    }
    text += "  Embedded Item Identifiers:\n";
    int number = 0;
    for (const KSWItem::Pointer& child : *item.embeddedItems()) {
        text += ksw::format("    #%d: %@\n", ++number, child->identifier());
    }
}

}  // namespace

std::string KSWItem::description() const {
    return ksw::format("uuid=%@, name=%@, type=%@, disposition=%@, identifier=%@, url=%@", fields_->uuid,
                       fields_->name, KSWItemTypeDescription(fields_->type),
                       KSWDispositionDescription(fields_->disposition), fields_->identifier, fields_->url);
}

std::string KSWItem::dumpVerboseDescription() const {
    std::string text;
    appendIdentity(text, *fields_);
    text += "\n";
    appendExecutable(text, *this, *fields_);
    text += "\n";
    appendAssociatedBundles(text, *fields_);
    appendRelatives(text, *this);
    return text;
}
