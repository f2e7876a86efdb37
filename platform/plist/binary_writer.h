// binary_writer.h: the binary form of values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <kestrelwood/values/value.h>

#include "platform/plist/value_walk.h"

namespace ksw::plist {

/// Collects objects while it is walked through a value, then lays them out. Objects are numbered as they are met,
/// a dictionary's keys before its values; equal scalars are one object. For one thread.
class BinaryWriter final : public ValueVisitor {
public:
    Check scalar(const Value& value) override;
    Check beginArray(const Array& array) override;
    Check beginDictionary(const Dictionary& dictionary) override;
    Check key(const std::string& /*key*/) override { return {}; }
    void endArray() override { open_.pop_back(); }
    void endDictionary() override { open_.pop_back(); }

    /// Lays out what was collected. Once, after the walk.
    Data finish();

private:
    using Number = std::uint32_t;
    /// An object: a scalar's bytes, or a run of references.
    struct Object {
        const std::string* scalar;
        std::size_t firstReference;
        std::size_t elements;
        bool isDictionary;
    };

    Number objectOf(std::string encoded);
    void refer(Number object);
    void beginContainer(std::size_t elements, bool isDictionary);
    void writeObject(Data& out, const Object& object, std::size_t referenceSize) const;

    std::vector<Object> objects_;
    /// Keys stay where they are, so objects point to them.
    std::unordered_map<std::string, Number> scalars_;
    std::vector<Number> references_;
    /// Where the next reference of each open container goes, in `references_`.
    std::vector<std::size_t> open_;
};

}  // namespace ksw::plist
