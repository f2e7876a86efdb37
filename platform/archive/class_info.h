// class_info.h: what an archivable class is made of: its name in archives and its table of keys.
// A class becomes archivable by a free function `const ClassInfo& archiveClass(const T*)` beside it, which
// argument-dependent lookup finds; class_table.h builds the tables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/archive/decode_budget.h"
#include "platform/archive/value_kinds.h"
#include "platform/base/limits.h"
#include "platform/base/result.h"

namespace ksw::archive {

/// Which fields an archive has: all of them, or those that travel as an argument or reply of a service.
enum class Coder : std::uint8_t { Ordinary, ServiceConnection };

/// Which coders know a field; to the others its key is unknown.
enum class FieldUse : std::uint8_t { EveryCoder, OrdinaryOnly };

/// Whether an object keeps what a field refers to alive.
enum class Ownership : std::uint8_t { Strong, Weak };

/// A key as it stands in an archive: a CBOR text with its head, made at compile time.
class EncodedKey {
public:
    static constexpr std::size_t kSizeMax = 62;

    /// At most kSizeMax bytes of ASCII; longer does not compile.
    consteval explicit EncodedKey(std::string_view key) {
        if (key.size() >= 24) {
            bytes_[size_++] = 0x78;
            bytes_[size_++] = static_cast<std::uint8_t>(key.size());
        } else {
            bytes_[size_++] = static_cast<std::uint8_t>(0x60 + key.size());
        }
        headSize_ = size_;
        for (char c : key) {
            text_[size_ - headSize_] = c;
            bytes_[size_++] = static_cast<std::uint8_t>(c);
        }
    }

    constexpr const std::uint8_t* data() const { return bytes_.data(); }
    constexpr std::size_t size() const { return size_; }
    constexpr std::string_view text() const { return {text_.data(), static_cast<std::size_t>(size_ - headSize_)}; }

private:
    std::array<std::uint8_t, kSizeMax + 2> bytes_{};
    std::array<char, kSizeMax> text_{};
    std::uint8_t size_ = 0;
    std::uint8_t headSize_ = 0;
};

struct ClassInfo;

/// How a field that refers to objects is followed and set; one object, or an ordered list. Objects are passed as
/// pointers to their own class, its type forgotten.
struct ObjectLinks {
    const ClassInfo& (*target)();
    Ownership ownership;
    bool isList;
    /// How many there are.
    std::size_t (*count)(const void* fields);
    /// One of them. A weak link that is dead answers null, one that lives fills `owner`.
    const void* (*at)(const void* fields, std::size_t index, std::shared_ptr<const void>& owner);
    /// Sets the field to these objects; a field of one object gets one.
    void (*link)(void* fields, std::span<const std::shared_ptr<void>> objects);
    /// Lets go of what the field refers to.
    void (*clear)(void* fields);
};

/// One row of a class's table.
struct FieldInfo {
    EncodedKey key;
    FieldUse use = FieldUse::EveryCoder;
    /// Kinds allowed in a dictionary, list or value.
    ValueKinds kinds = ValueKinds::PropertyList;
    /// Bytes of a text or byte string; of all elements of an array together; of a dictionary as it is encoded.
    std::size_t sizeMax = limits::kFieldMax;
    /// Whether the key is written at all.
    bool (*isPresent)(const void* fields) = nullptr;
    /// Reads and writes the value; null for a field that refers to objects.
    void (*write)(Writer& writer, const FieldInfo& field, const void* fields) = nullptr;
    bool (*read)(Reader& reader, const FieldInfo& field, void* fields) = nullptr;
    /// Null for a field that is a value.
    const ObjectLinks* links = nullptr;
};

/// What a finish hook may know.
struct FinishContext {
    Coder coder;
    /// For archives inside the archive.
    DecodeBudget& budget;
};

/// An archivable class. Tables are constant and never go away.
struct ClassInfo {
    /// Most rows that a table may have.
    static constexpr std::size_t kFieldsMax = 64;

    /// Name in archives.
    std::string_view name;
    /// In the order in which they are written.
    std::span<const FieldInfo> fields;
    /// Heap of one object without what its fields allocate, in bytes.
    std::size_t heapSize;
    /// A bare object, to be filled.
    std::shared_ptr<void> (*make)();
    /// Where the table's members live; may be the object itself.
    void* (*fieldsOf)(void* object);
    /// Runs once for each object when the whole archive has been read and all objects are linked, outer objects
    /// first; null when the class needs none. An error fails the decoding. It may look at related objects, which
    /// may not have been finished yet.
    Status (*finish)(void* object, const FinishContext& context);
};

/// The class's table.
template <class T>
const ClassInfo& classInfo() {
    return archiveClass(static_cast<const T*>(nullptr));
}

}  // namespace ksw::archive
