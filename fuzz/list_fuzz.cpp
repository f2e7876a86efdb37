// list_fuzz.cpp: any bytes as the archive of a list of items. What was read must bear every question to the list
// and every walk over its families, as long as one item of it is held, and be readable again when it is sent on.
#include <cstdint>
#include <cstdlib>

#include <kestrelwood/KSWList.h>

#include "client/values/list_record.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"

namespace {

using ksw::ListRecord;
using ksw::archive::Cycles;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

ksw::Result<ksw::archive::Unarchived<ListRecord>> read(ksw::Bytes bytes) {
    ksw::archive::DecodeBudget budget(bytes.size());
    return ksw::archive::unarchive<ListRecord>(bytes, {.cycles = Cycles::Allowed}, budget);
}

void walk(const KSWItem::Pointer& item) {
    std::size_t containers = 0;
    for (auto next = item->container(); next != nullptr; next = next->container()) {
        require(++containers <= ksw::limits::kContainerChainMax);
    }
    item->enumerateFamilyTreeUsingBlock([](const KSWItem::Pointer& member) { require(member != nullptr); });
    require(!item->description().empty());
}

void check(const KSWList& list) {
    require(list.count() <= ksw::limits::kListItemsMax);
    require(list.containers().size() <= list.count());
    require(!list.description().empty());
    for (const auto& container : list.containers()) {
        walk(container);
    }
    if (list.count() > 0) {
        const auto first = list.itemAtIndex(0);
        require(list.indexOfItem(first) == (first->identifier() ? std::optional<std::size_t>(0) : std::nullopt));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto decoded = read({data, size});
    if (!decoded) {
        require(decoded.error().domain() == ksw::kFormatErrorDomain);
        require(!decoded.error().localizedDescription().empty());
        return 0;
    }
    KSWList::Items items;
    for (const auto& item : decoded->root->items.items) {
        items.push_back(decoded->owned(item));
    }
    auto list = KSWList::initWithItems(items, decoded->root->uid, decoded->root->type, nullptr);
    check(*list);
    if (const auto archive = list->encodeWithCoder()) {
        const auto again = read(*archive);
        require(again.ok());
        require(again->root->items.items.size() == list->count());
    }
    // One item outlives the list and all else that came with it.
    const auto last = items.empty() ? nullptr : items.back();
    items.clear();
    list = nullptr;
    decoded = ksw::Error(ksw::FormatError::Malformed, "gone");
    if (last != nullptr) {
        walk(last);
    }
    return 0;
}
