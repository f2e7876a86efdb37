// fetch_result_fields.h: what a fetch result holds. For the files of this folder alone.
#pragma once

#include <kestrelwood/KSWFetchResult.h>

namespace ksw {

struct FetchResultFields {
    std::int64_t code = 0;
    KSWFetchResult::Items items;
    KSWFetchResult::Items containers;
    std::vector<Data> encodedItems;
};

/// The way from a result to its fields.
struct FetchResultAccess {
    static FetchResultFields& fields(KSWFetchResult& result) { return *result.fields_; }
};

}  // namespace ksw
