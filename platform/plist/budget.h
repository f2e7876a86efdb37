// budget.h: what one decoding may still take.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include <kestrelwood/values/value.h>

#include "platform/base/limits.h"

namespace ksw::plist {

/// Heap, in bytes as asked of the allocator, and objects left to one decoding. For one thread.
class Budget {
public:
    explicit Budget(std::size_t inputSize)
        : heap_(inputSize > kInputMax ? SIZE_MAX : inputSize * limits::kHeapFactor + limits::kHeapBase - kOwnHeap) {
    }

    /// Pays for one more value or key. False: none is left.
    [[nodiscard]] bool takeObject() {
        if (objects_ == 0) {
            return false;
        }
        --objects_;
        return true;
    }

    /// Pays for heap about to be allocated. False: so much is not left, and nothing was taken.
    [[nodiscard]] bool takeHeap(std::size_t bytes) {
        if (bytes > heap_) {
            return false;
        }
        heap_ -= bytes;
        return true;
    }

    /// Returns what `takeHeap` took, after it has been freed.
    void giveHeapBack(std::size_t bytes) { heap_ += bytes; }

    /// Pays for a string of exactly `length` bytes.
    [[nodiscard]] bool takeText(std::size_t length) {
        return length <= std::string().capacity() || takeHeap(length + 1);
    }

    /// Makes room for `needed` bytes in a text that grows by doubling. Old and new room exist together while the
    /// text moves, and both are paid for. False: the heap left is too small, and the text is as it was.
    [[nodiscard]] bool makeRoom(std::string& text, std::size_t needed) {
        const std::size_t before = text.capacity();
        if (needed <= before) {
            return true;
        }
        const std::size_t after = std::max(needed, before * 2);
        if (!takeHeap(after + 1)) {
            return false;
        }
        text.reserve(after);
        giveHeapBack(before > std::string().capacity() ? before + 1 : 0);
        return true;
    }

private:
    /// Kept for the stack of open containers and for an error.
    static constexpr std::size_t kOwnHeap = 64 * limits::kKiB;
    static constexpr std::size_t kInputMax = (SIZE_MAX - limits::kHeapBase) / limits::kHeapFactor;

    std::size_t heap_;
    std::size_t objects_ = limits::kObjectsMax;
};

}  // namespace ksw::plist
