// decode_budget.h: what one decoding may take, however many archives lie inside the archive.
// Plain counters; who decodes asks before it takes. Bounds: platform/base/limits.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/base/limits.h"

namespace ksw::archive {

/// The allowance of one decoding. It is made once, from the size of what came in, and passed by reference through
/// everything that decodes a part of it, so that a message cannot win by nesting. What was taken is never given
/// back, except depth. One thread.
class DecodeBudget {
public:
    /// The allowance for an input of this many bytes: limits::kHeapFactor times as much heap, and
    /// limits::kHeapBase on top.
    explicit DecodeBudget(std::size_t inputSize)
        : heap_(inputSize > (SIZE_MAX - limits::kHeapBase) / limits::kHeapFactor
                    ? SIZE_MAX
                    : inputSize * limits::kHeapFactor + limits::kHeapBase) {}

    /// One array or map deeper; false when that is too deep. Each success is paired with `leave`.
    [[nodiscard]] bool enter() {
        if (depth_ == limits::kDepthMax) {
            return false;
        }
        ++depth_;
        return true;
    }
    void leave() { --depth_; }

    /// One object more; false when there are too many.
    [[nodiscard]] bool takeObject() { return take(objects_, 1); }
    /// One mark of a shareable value or one reference to one more; false when there are too many.
    [[nodiscard]] bool takeSharedReference() { return take(sharedReferences_, 1); }
    /// So many bytes of heap; false when that is too much, and then nothing is taken.
    [[nodiscard]] bool takeHeap(std::size_t bytes) { return take(heap_, bytes); }

    /// How many arrays and maps are open.
    std::size_t depth() const { return depth_; }
    /// Bytes of heap that may still be taken.
    std::size_t heapLeft() const { return heap_; }

private:
    friend class DepthScope;

    static bool take(std::size_t& left, std::size_t amount) {
        if (amount > left) {
            return false;
        }
        left -= amount;
        return true;
    }

    std::size_t depth_ = 0;
    std::size_t objects_ = limits::kObjectsMax;
    std::size_t sharedReferences_ = limits::kSharedReferencesMax;
    std::size_t heap_;
};

/// Sets a budget back to the depth it had, whatever happened in between: a decoding that fails in the middle leaves
/// its arrays and maps open.
class DepthScope {
public:
    explicit DepthScope(DecodeBudget& budget) : budget_(budget), depth_(budget.depth_) {}
    /// The same, and until then the budget counts from `depth`.
    DepthScope(DecodeBudget& budget, std::size_t depth) : DepthScope(budget) { budget.depth_ = depth; }
    ~DepthScope() { budget_.depth_ = depth_; }
    DepthScope(const DepthScope&) = delete;
    DepthScope& operator=(const DepthScope&) = delete;

private:
    DecodeBudget& budget_;
    std::size_t depth_;
};

}  // namespace ksw::archive
