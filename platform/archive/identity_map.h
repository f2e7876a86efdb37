// identity_map.h: numbers objects by their address, in the order in which they are met.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace ksw::archive {

/// A hash table with open addresses. Addresses are never null.
class IdentityMap {
public:
    IdentityMap() : slots_(kFirstSize) {}

    /// The object's number, and whether it is new: then the number is how many were known before.
    std::pair<std::uint32_t, bool> number(const void* object) {
        if (2 * (count_ + 1) > slots_.size()) {
            grow();
        }
        Slot& slot = find(object);
        const bool isNew = slot.object == nullptr;
        if (isNew) {
            slot = {object, count_++};
        }
        return {slot.number, isNew};
    }

    std::uint32_t size() const { return count_; }

private:
    static constexpr std::size_t kFirstSize = 64;  // a power of two, as every size
    struct Slot {
        const void* object = nullptr;
        std::uint32_t number = 0;
    };

    Slot& find(const void* object) {
        // Addresses differ in their middle bits; the product spreads those over the upper ones.
        constexpr std::uint64_t kSpread = 0x9E37'79B9'7F4A'7C15U;
        const std::uint64_t hash = reinterpret_cast<std::uintptr_t>(object) * kSpread;
        std::size_t index = static_cast<std::size_t>(hash >> 32U) & (slots_.size() - 1);
        while (slots_[index].object != nullptr && slots_[index].object != object) {
            index = (index + 1) & (slots_.size() - 1);
        }
        return slots_[index];
    }

    void grow() {
        std::vector<Slot> former(4 * slots_.size());
        former.swap(slots_);
        for (const Slot& slot : former) {
            if (slot.object != nullptr) {
                find(slot.object) = slot;
            }
        }
    }

    std::vector<Slot> slots_;
    std::uint32_t count_ = 0;
};

}  // namespace ksw::archive
