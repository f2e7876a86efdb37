// Any bytes as the file of an attribution table: whatever the values in it are, the lookups agree with each other.
#include <cstdlib>

#include "platform/facts/attributions_lookup.h"
#include "platform/plist/property_list.h"

namespace {

using namespace ksw::facts;
using ksw::Dictionary;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// A value or a complaint, never both; a complaint names the class of what is there.
template <class T>
void checkCurated(const Curated<T>& curated, const Dictionary* entry, const char* key) {
    require(!curated.value || !curated.isUnexpected);
    const bool isThere = entry != nullptr && entry->contains(key);
    require(curated.className.has_value() == (curated.isUnexpected && isThere));
    require(!curated.className || !curated.className->empty());
}

void checkEntry(const Dictionary& table, const AttributionNames& names, const std::string& label) {
    require(names.contains(label));
    const Dictionary* entry = entryOf(table, label);
    const auto name = attributionIn(entry);
    checkCurated(name, entry, "Attribution");
    require(!name.value || names.contains(*name.value));
    const auto applications = associatedBundleIdentifiersIn(entry);
    checkCurated(applications, entry, "AssociatedBundleIdentifiers");
    require(applications.value || applications.isUnexpected);
    const auto* team = entry == nullptr ? nullptr : ksw::find<std::string>(*entry, "TeamIdentifier");
    require(team == nullptr || (entryOf(table, label, *team) == entry && !entryOf(table, label, *team + "x")));
    require(team != nullptr || !entryOf(table, label, ""));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto list = ksw::plist::read({data, size});
    const auto* table = list ? list->as<Dictionary>() : nullptr;
    if (table == nullptr) {
        return 0;
    }
    const AttributionNames names(*table);
    for (const auto& [label, entry] : *table) {
        checkEntry(*table, names, label);
    }
    require(mergedTable(*table, *table).size() == table->size());
    require(mergedTable({}, *table).size() == table->size());
    return 0;
}
