// failing_allocation.h: one allocation of this thread fails while the object lives.
#pragma once

#include <cstddef>

namespace ksw::test {

class FailingAllocation {
public:
    /// The allocation of this number from now on, counted from 0, throws `std::bad_alloc`.
    explicit FailingAllocation(std::size_t number);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether there were that many.
    bool hasHappened() const;
};

}  // namespace ksw::test
