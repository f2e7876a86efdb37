// item_set_fuzz.cpp: any bytes as the set of an update: an array of items with their relatives. What was read is
// made ready to be sent, as a client does, and must be readable for the daemon then.
#include <cstdint>
#include <cstdlib>

#include <kestrelwood/KSWItem.h>

#include "model/item/item_archive.h"
#include "model/item/item_request_copies.h"
#include "platform/archive/keyed_archive.h"

namespace {

using ksw::ItemSet;
using ksw::archive::Coder;
using ksw::archive::Cycles;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

ksw::Result<ksw::archive::UnarchivedArray<KSWItem>> read(ksw::Bytes bytes) {
    ksw::archive::DecodeBudget budget(bytes.size());
    return ksw::archive::unarchiveArray<KSWItem>(bytes, {.cycles = Cycles::Allowed}, budget);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto items = read({data, size});
    if (!items) {
        require(items.error().domain() == ksw::kFormatErrorDomain);
        return 0;
    }
    const ItemSet::Pointer set = ItemSet::of(items->roots);
    const ksw::ItemCopies copies = ksw::copiesForRequest(*set);
    require(copies.items.size() == set->size());
    // Families that were written flat may be too deep to be written from the item down.
    const auto archive = ksw::archive::archiveArray<KSWItem>(copies.items, Coder::Ordinary);
    if (!archive) {
        require(archive.error().domain() == ksw::kFormatErrorDomain);
        return 0;
    }
    const auto arrived = read(*archive);
    require(arrived.ok());
    require(arrived->roots.size() == set->size());
    for (std::size_t index = 0; index < set->size(); ++index) {
        const auto& sent = set->begin()[static_cast<std::ptrdiff_t>(index)];
        const auto& received = arrived->roots[index];
        require(received->uuid() == sent->uuid() && received->identifier() == sent->identifier());
        require(received->flags() == sent->flags() && received->generation() == sent->generation());
        require(received->countOfEmbeddedItems() == sent->countOfEmbeddedItems());
        require((received->container() == nullptr) == (sent->container() == nullptr));
    }
    return 0;
}
