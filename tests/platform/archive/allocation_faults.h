// allocation_faults.h: makes the n-th allocation of this thread fail.
#pragma once

#include <cstddef>

namespace ksw::archive {

/// From its construction on, the allocation of this number (0 is the next) throws `std::bad_alloc`; those behind it
/// succeed again. This thread only.
class FailingAllocation {
public:
    explicit FailingAllocation(std::size_t number);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether it has failed.
    bool hasHappened() const;
};

}  // namespace ksw::archive
