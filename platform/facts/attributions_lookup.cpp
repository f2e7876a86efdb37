#include "platform/facts/attributions_lookup.h"

#include <array>
#include <utility>
#include <variant>

namespace ksw::facts {

namespace {

constexpr std::string_view kTeamIdentifier = "TeamIdentifier";
constexpr std::string_view kAttribution = "Attribution";
constexpr std::string_view kAssociatedBundleIdentifiers = "AssociatedBundleIdentifiers";

/// What the kinds of values are called in messages, in the order of `Value::Storage`.
constexpr std::array<std::string_view, std::variant_size_v<Value::Storage>> kClassNames{
    "", "Boolean", "Number", "Number", "Number", "String", "Data", "Date", "Array", "Dictionary", "Error"};

std::optional<std::string_view> className(const Value* value) {
    if (value == nullptr || value->isNull()) {
        return std::nullopt;
    }
    return kClassNames[value->storage().index()];
}

const Value* valueIn(const Dictionary* entry, std::string_view key) {
    if (entry == nullptr) {
        return nullptr;
    }
    const auto found = entry->find(key);
    return found == entry->end() ? nullptr : &found->second;
}

}  // namespace

Dictionary mergedTable(Dictionary publicTable, const Dictionary& internalTable) {
    for (const auto& [label, entry] : internalTable) {
        publicTable.insert_or_assign(label, entry);
    }
    return publicTable;
}

const Dictionary* entryOf(const Dictionary& table, std::string_view label) {
    return find<Dictionary>(table, label);
}

const Dictionary* entryOf(const Dictionary& table, std::string_view label, std::string_view team) {
    const Dictionary* entry = entryOf(table, label);
    const auto* required = entry == nullptr ? nullptr : find<std::string>(*entry, kTeamIdentifier);
    return required != nullptr && *required == team ? entry : nullptr;
}

Curated<std::string> attributionIn(const Dictionary* entry) {
    const Value* value = valueIn(entry, kAttribution);
    if (value == nullptr) {
        return {};
    }
    const auto* text = value->as<std::string>();
    return text == nullptr ? Curated<std::string>{{}, true, className(value)}
                           : Curated<std::string>{*text, false, {}};
}

Curated<std::vector<std::string>> associatedBundleIdentifiersIn(const Dictionary* entry) {
    const Value* value = valueIn(entry, kAssociatedBundleIdentifiers);
    const auto* array = value == nullptr ? nullptr : value->as<Array>();
    if (array == nullptr) {
        return {{}, true, className(value)};
    }
    std::vector<std::string> identifiers;
    identifiers.reserve(array->size());
    for (const Value& element : *array) {
        const auto* identifier = element.as<std::string>();
        if (identifier == nullptr) {
            return {{}, true, className(value)};
        }
        identifiers.push_back(*identifier);
    }
    return {std::move(identifiers), false, {}};
}

AttributionNames::AttributionNames(const Dictionary& table) : table_(table) {
    for (const auto& [label, value] : table) {
        const auto* entry = value.as<Dictionary>();
        const auto* name = entry == nullptr ? nullptr : find<std::string>(*entry, kAttribution);
        if (name != nullptr) {
            names_.insert(*name);
        }
    }
}

bool AttributionNames::contains(std::string_view labelOrName) const {
    return table_.contains(labelOrName) || names_.contains(labelOrName);
}

}  // namespace ksw::facts
