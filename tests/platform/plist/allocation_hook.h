// allocation_hook.h: counts what this test program allocates, and makes the n-th allocation fail.
#pragma once

#include <cstddef>

namespace ksw::plist {

/// Watches operator new of this thread while it lives. One at a time.
class AllocationHook {
public:
    /// Fails no allocation.
    AllocationHook() : AllocationHook(0) {}
    /// The `nth` allocation from now on throws `std::bad_alloc`; 0 means none does.
    explicit AllocationHook(std::size_t nth);
    ~AllocationHook();
    AllocationHook(const AllocationHook&) = delete;
    AllocationHook& operator=(const AllocationHook&) = delete;

    /// Whether the allocation that was to fail has come.
    bool hasFailed() const;
    /// The most that was held at once of what was allocated since, in bytes as asked for.
    std::size_t peak() const;
    /// What is still held of it.
    std::size_t held() const;
};

}  // namespace ksw::plist
