#include "tests/platform/plist/allocation_hook.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

struct Watch {
    bool active = false;
    bool failed = false;
    std::size_t left = 0;
    std::size_t held = 0;
    std::size_t peak = 0;
};

thread_local Watch watch;

/// Stands before each block: its size, or zero when nobody watched.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* allocate(std::size_t size) {
    if (watch.active && watch.left != 0 && --watch.left == 0) {
        watch.failed = true;
        throw std::bad_alloc();
    }
    auto* const block = static_cast<std::size_t*>(std::malloc(size + kHeader));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    *block = watch.active ? size : 0;
    watch.held += *block;
    watch.peak = std::max(watch.peak, watch.held);
    return reinterpret_cast<char*>(block) + kHeader;
}

void release(void* pointer) {
    if (pointer == nullptr) {
        return;
    }
    auto* const block = reinterpret_cast<std::size_t*>(static_cast<char*>(pointer) - kHeader);
    watch.held -= std::min(*block, watch.held);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* pointer) noexcept {
    release(pointer);
}
void operator delete[](void* pointer) noexcept {
    release(pointer);
}
void operator delete(void* pointer, std::size_t /*size*/) noexcept {
    release(pointer);
}
void operator delete[](void* pointer, std::size_t /*size*/) noexcept {
    release(pointer);
}

namespace ksw::plist {

AllocationHook::AllocationHook(std::size_t nth) {
    watch = {true, false, nth, 0, 0};
}
AllocationHook::~AllocationHook() {
    watch = {};
}
bool AllocationHook::hasFailed() const {
    return watch.failed;
}
std::size_t AllocationHook::peak() const {
    return watch.peak;
}
std::size_t AllocationHook::held() const {
    return watch.held;
}

}  // namespace ksw::plist
