#include "platform/plist/builder.h"

#include <algorithm>
#include <utility>

namespace ksw::plist {
namespace {

/// Room of an array at its first element; most arrays of real lists need no more.
constexpr std::size_t kFirstCapacity = 4;

/// A node of a `std::map`: the entry, three links and a colour.
constexpr std::size_t kEntryHeap = sizeof(Dictionary::value_type) + 4 * sizeof(void*);

/// A known size is reserved up to its bound and grown towards beyond that.
std::size_t grownCapacity(std::size_t capacity, std::size_t elements) {
    const std::size_t doubled = std::max(capacity * 2, kFirstCapacity);
    if (elements <= capacity) {
        return doubled;
    }
    return std::min(std::max(doubled, limits::kReserveMax), elements);
}

}  // namespace

Check Builder::open(Kind kind, std::size_t elements) {
    if (open_.size() == limits::kDepthMax) {
        return kTooDeep;
    }
    if (!budget_.takeObject()) {
        return kTooManyObjects;
    }
    open_.push_back({kind == Kind::Array ? Value(Array()) : Value(Dictionary()), {}, elements, false});
    return {};
}

Check Builder::close() {
    Value container = std::move(open_.back().container);
    open_.pop_back();
    return place(std::move(container));
}

Check Builder::key(std::string_view text) {
    if (text.size() > limits::kStringMax) {
        return kTooLong;
    }
    if (!budget_.takeObject()) {
        return kTooManyObjects;
    }
    if (!budget_.takeText(text.size())) {
        return kTooMuchHeap;
    }
    Open& parent = open_.back();
    if (parent.container.as<Dictionary>()->contains(text)) {
        return kDuplicateKey;
    }
    parent.key = std::string(text);
    parent.hasKey = true;
    return {};
}

Check Builder::scalar(Value value) {
    if (!budget_.takeObject()) {
        return kTooManyObjects;
    }
    return place(std::move(value));
}

Check Builder::text(std::string_view text) {
    if (text.size() > limits::kStringMax) {
        return kTooLong;
    }
    if (!budget_.takeText(text.size())) {
        return kTooMuchHeap;
    }
    return scalar(Value(text));
}

Check Builder::place(Value value) {
    if (open_.empty()) {
        root_ = std::move(value);
        finished_ = true;
        return {};
    }
    Open& parent = open_.back();
    if (Array* array = parent.container.as<Array>()) {
        return append(*array, parent.elements, std::move(value));
    }
    return insert(parent, *parent.container.as<Dictionary>(), std::move(value));
}

Check Builder::append(Array& array, std::size_t elements, Value value) {
    const std::size_t before = array.capacity();
    if (array.size() == before) {
        // Old and new room exist together while the elements move.
        const std::size_t after = grownCapacity(before, elements);
        if (!budget_.takeHeap(after * sizeof(Value))) {
            return kTooMuchHeap;
        }
        array.reserve(after);
        budget_.giveHeapBack(before * sizeof(Value));
    }
    array.push_back(std::move(value));
    return {};
}

Check Builder::insert(Open& parent, Dictionary& dictionary, Value value) {
    if (!budget_.takeHeap(kEntryHeap)) {
        return kTooMuchHeap;
    }
    // Writers sort their keys, so the end is nearly always the place.
    dictionary.emplace_hint(dictionary.end(), std::move(parent.key), std::move(value));
    parent.hasKey = false;
    return {};
}

}  // namespace ksw::plist
