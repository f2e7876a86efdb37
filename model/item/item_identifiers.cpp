#include <kestrelwood/KSWFunctions.h>

#include "model/vocabulary/item_type.h"
#include "platform/base/text.h"

namespace {

/// Whether identifiers of the kind are taken as they are, without the number of the kind in front.
bool hasPlainIdentifier(KSWItemType kind) {
    return kind == KSWItemTypeDeveloper || kind == KSWItemTypeUserItem;
}

}  // namespace

std::optional<std::string> ComposedItemIdentifier(KSWItemType type, const std::optional<std::string>& component) {
    const KSWItemType kind = ksw::baseKind(type);
    if (!component.has_value() || hasPlainIdentifier(kind)) {
        return component;
    }
    return ksw::format("%ld.%@", kind, *component);
}

std::string ItemIdentifierCopyBaseFromIdentifierAndType(std::string_view identifier, KSWItemType type) {
    const std::size_t stop = identifier.find('.');
    if (hasPlainIdentifier(ksw::baseKind(type)) || stop == std::string_view::npos ||
        stop + 1 == identifier.size()) {
        return std::string(identifier);
    }
    return std::string(identifier.substr(stop + 1));
}
