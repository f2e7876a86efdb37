// within_memory.h: where exceptions of a decoding, or of an operation on code, end.
#pragma once

#include <new>

#include "platform/archive/cbor_reader.h"
#include "platform/facts/status.h"

namespace ksw::facts {

/// Runs a reader or writer that gives a Result; here its only exception ends, that of the allocator. Error then:
/// `FormatError::LimitPassed`.
template <class Work>
auto withinMemory(Work work) -> decltype(work()) {
    // It is made on first use, which must not be when there is no memory left.
    const Error& outOfMemory = archive::outOfMemoryError();
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return outOfMemory;
    }
}

/// The same for an operation on code. Error then: `CodeStatus::NoMemory`.
template <class Work>
auto orNoMemory(Work work) -> decltype(work()) {
    const Error& noMemory = noMemoryStatus();
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return noMemory;
    }
}

}  // namespace ksw::facts
