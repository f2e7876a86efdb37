// archive_item_fuzz: any bytes as a keyed archive of one item or a list of them, with both coders. Whatever comes
// out is described, dumped and walked, as a program would.
#include <cstddef>
#include <cstdint>

#include <kestrelwood/KSWItem.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"

using namespace ksw;
using namespace ksw::archive;

namespace {

std::size_t use(const KSWItem& item) {
    return item.description().size() + item.dumpVerboseDescription().size() + item.hash() +
           item.countOfEmbeddedItems();
}

void read(Bytes input, const ReadOptions& options) {
    DecodeBudget one(input.size());
    if (const auto item = unarchive<KSWItem>(input, options, one)) {
        use(*item->root);
    }
    DecodeBudget list(input.size());
    if (const auto items = unarchiveArray<KSWItem>(input, options, list)) {
        for (const auto& item : items->roots) {
            use(*item);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes input(data, size);
    read(input, {.coder = Coder::ServiceConnection});
    read(input, {.coder = Coder::Ordinary, .cycles = Cycles::Allowed});
    return 0;
}
