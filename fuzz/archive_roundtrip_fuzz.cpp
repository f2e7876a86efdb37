// archive_roundtrip_fuzz: a list of items that can be read is written, read and written again: the bytes are the
// same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <kestrelwood/KSWItem.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"

using namespace ksw;
using namespace ksw::archive;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes input(data, size);
    const ReadOptions options{.cycles = Cycles::Allowed};
    DecodeBudget budget(size);
    const auto items = unarchiveArray<KSWItem>(input, options, budget);
    if (!items) {
        return 0;
    }
    const auto bytes = archiveArray<KSWItem>(items->roots, Coder::Ordinary);
    if (!bytes) {
        return 0;  // in another order objects may nest deeper than a reader takes
    }
    DecodeBudget again(SIZE_MAX);
    const auto back = unarchiveArray<KSWItem>(*bytes, options, again);
    if (!back || back->roots.size() != items->roots.size()) {
        std::abort();
    }
    const auto second = archiveArray<KSWItem>(back->roots, Coder::Ordinary);
    if (!second || *second != *bytes) {
        std::abort();
    }
    return 0;
}
