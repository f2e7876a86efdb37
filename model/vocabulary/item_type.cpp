#include "model/vocabulary/item_type.h"

#include <bit>

namespace {

struct BitText {
    KSWItemType value;
    std::string_view text;
};

constexpr BitText kBaseTexts[] = {
    {KSWItemTypeUserItem, "user item"},
    {KSWItemTypeApp, "app"},
    {KSWItemTypeLoginItem, "login item"},
    {KSWItemTypeAgent, "agent"},
    {KSWItemTypeLoginItem | KSWItemTypeAgent, "login item or agent"},
    {KSWItemTypeDaemon, "daemon"},
    {KSWItemTypeAgent | KSWItemTypeDaemon, "agent or daemon"},
    {KSWItemTypeLoginItem | KSWItemTypeAgent | KSWItemTypeDaemon, "login item, agent, or daemon"},
    {KSWItemTypeDeveloper, "developer"},
    {KSWItemTypeLodestar, "lodestar"},
    {KSWItemTypeShelfTile, "shelf tile"},
    {KSWItemTypeInputMethod, "input method"},
    {KSWItemTypeSmartCard, "smart card"},
    {KSWItemTypeColorPicker, "color picker"},
    {KSWItemTypeGlimpse, "glimpse"},
    {KSWItemTypeAll, "all"},
};

// In the order in which the words stand in a text, which is not the order of the bits.
constexpr BitText kProvenanceWords[] = {
    {KSWItemTypeProfileAddedBit, "profile added "},
    {KSWItemTypeManagedBit, "managed "},
    {KSWItemTypeGlobalBit, "global "},
    {KSWItemTypeCuratedBit, "curated "},
    {KSWItemTypeLegacyBit, "legacy "},
};

}  // namespace

std::string KSWItemTypeBaseDescription(KSWItemType type) {
    for (const BitText& base : kBaseTexts) {
        if (base.value == ksw::baseKind(type)) {
            return std::string(base.text);
        }
    }
    return "unknown";
}

std::string KSWItemTypeDescription(KSWItemType type) {
    std::string text;
    for (const BitText& word : kProvenanceWords) {
        if ((type & word.value) != 0) {
            text += word.text;
        }
    }
    return text + KSWItemTypeBaseDescription(type);
}

bool ValidateItemType(KSWItemType type) {
    return std::has_single_bit(ksw::baseKind(type));
}
