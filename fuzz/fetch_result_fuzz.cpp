// fetch_result_fuzz.cpp: any bytes as the archive of a fetch result, with the archives of chains inside. What was
// read must bear every walk over its families, and come out the same when it is sent on.
#include <cstdint>
#include <cstdlib>

#include "client/values/fetch_result_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"

namespace {

using ksw::archive::Coder;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// Only what reads no file: a fuzzer has no business in the file system.
void walk(const KSWItem::Pointer& item) {
    std::size_t containers = 0;
    for (auto next = item->container(); next != nullptr; next = next->container()) {
        require(++containers <= ksw::limits::kContainerChainMax);
    }
    std::size_t visited = 0;
    item->enumerateFamilyTreeUsingBlock([&visited](const KSWItem::Pointer&) { ++visited; });
    require(visited > 0);
    require(!item->dumpVerboseDescription().empty());
    static_cast<void>(item->fullPath());
    static_cast<void>(item->isAggregateAllowed());
    require(item->copy()->identifier() == item->identifier());
}

void check(const KSWFetchResult& result) {
    require(result.items().size() <= result.encodedItems().size());
    require((result.firstItem() == nullptr) == result.items().empty());
    for (const auto& item : result.items()) {
        walk(item);
    }
    for (const auto& container : result.containers()) {
        require(container != nullptr);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ksw::archive::DecodeBudget budget(size);
    auto decoded =
        ksw::archive::unarchive<KSWFetchResult>({data, size}, {.coder = Coder::ServiceConnection}, budget);
    if (!decoded) {
        require(decoded.error().domain() == ksw::kFormatErrorDomain);
        require(!decoded.error().localizedDescription().empty());
        return 0;
    }
    // The items outlive the result that they came in.
    const auto first = decoded->root->firstItem();
    check(*decoded->root);
    require(ksw::archive::archive(*decoded->root, Coder::ServiceConnection).ok());
    decoded = ksw::Error(ksw::FormatError::Malformed, "gone");
    if (first != nullptr) {
        walk(first);
    }
    return 0;
}
