#include "tests/support/failing_allocation.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kNever = SIZE_MAX;
thread_local std::size_t allocationsLeft = kNever;

}  // namespace

void* operator new(std::size_t size) {
    if (allocationsLeft != kNever && allocationsLeft-- == 0) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace ksw::test {

FailingAllocation::FailingAllocation(std::size_t number) {
    allocationsLeft = number;
}

FailingAllocation::~FailingAllocation() {
    allocationsLeft = kNever;
}

bool FailingAllocation::hasHappened() const {
    return allocationsLeft == kNever;
}

}  // namespace ksw::test
