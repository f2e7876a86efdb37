// wire_types.h: how each type that may stand in a method's row is written into a body and read from one.
// Archivable classes stand in wire_objects.h. An absent value is CBOR's null.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values.h>

#include "platform/base/result.h"

namespace ksw::archive {
class Reader;
class Writer;
}  // namespace ksw::archive

namespace ksw::ipc {

/// The classes that a method allows in one argument of its reply.
using AllowedClasses = std::span<const std::string_view>;

/// What an interface says of a type: its name, and the classes of objects that may occur in it.
struct TypeFacts {
    std::string_view name;
    std::vector<std::string_view> classes;

    friend bool operator==(const TypeFacts&, const TypeFacts&) = default;
};

// The value types, one overload each of
//   typeFacts    what the type is called
//   encodeValue  appends one CBOR item
//   decodeValue  reads one CBOR item; `allowed` is null unless the method narrows the classes. On failure `value`
//                is unspecified and the error says what is wrong.

// CBOR true or false.
TypeFacts typeFacts(const bool*);
Status encodeValue(archive::Writer& writer, bool value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, bool& value);
// Integer.
TypeFacts typeFacts(const std::int64_t*);
Status encodeValue(archive::Writer& writer, std::int64_t value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::int64_t& value);
// Integer, not negative.
TypeFacts typeFacts(const std::uint64_t*);
Status encodeValue(archive::Writer& writer, std::uint64_t value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::uint64_t& value);
// Integer, 0 to 4,294,967,295.
TypeFacts typeFacts(const Uid*);
Status encodeValue(archive::Writer& writer, Uid value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, Uid& value);
// 64-bit floating point; an integer is not one.
TypeFacts typeFacts(const double*);
Status encodeValue(archive::Writer& writer, double value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, double& value);
// Text.
TypeFacts typeFacts(const std::optional<std::string>*);
Status encodeValue(archive::Writer& writer, const std::optional<std::string>& value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::optional<std::string>& value);
// Byte string.
TypeFacts typeFacts(const std::optional<Data>*);
Status encodeValue(archive::Writer& writer, const std::optional<Data>& value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::optional<Data>& value);
// Tag 32, text; one that is relative to a base: tag 27, ["URL", {"relative": text, "base": URL}].
TypeFacts typeFacts(const std::optional<URL>*);
Status encodeValue(archive::Writer& writer, const std::optional<URL>& value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::optional<URL>& value);
// Tag 37, byte string of 16.
TypeFacts typeFacts(const std::optional<UUID>*);
Status encodeValue(archive::Writer& writer, const std::optional<UUID>& value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::optional<UUID>& value);
// Array of 8 integers of 32 bits.
TypeFacts typeFacts(const std::optional<AuditToken>*);
Status encodeValue(archive::Writer& writer, const std::optional<AuditToken>& value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::optional<AuditToken>& value);
// Map from texts to property-list values.
TypeFacts typeFacts(const std::optional<Dictionary>*);
Status encodeValue(archive::Writer& writer, const std::optional<Dictionary>& value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::optional<Dictionary>& value);
// The property-list value that an error is: domain, code, user information.
TypeFacts typeFacts(const std::optional<Error>*);
Status encodeValue(archive::Writer& writer, const std::optional<Error>& value);
Status decodeValue(archive::Reader& reader, const AllowedClasses* allowed, std::optional<Error>& value);

/// How T travels. Value types use the overloads above; archivable classes have specialisations.
template <class T>
struct WireType {
    static TypeFacts facts() { return typeFacts(static_cast<const T*>(nullptr)); }
    static Status encode(archive::Writer& writer, const T& value) { return encodeValue(writer, value); }
    static Status decode(archive::Reader& reader, const AllowedClasses* allowed, T& value) {
        return decodeValue(reader, allowed, value);
    }
};

/// An argument to be written, its type forgotten. Borrows the value.
struct ArgumentSource {
    const void* value;
    Status (*encode)(archive::Writer& writer, const void* value);
};

/// A place for an argument to be read into, its type forgotten. Borrows the place.
struct ArgumentPlace {
    void* value;
    Status (*decode)(archive::Reader& reader, const AllowedClasses* allowed, void* value);
};

template <class T>
ArgumentSource sourceOf(const T& value) {
    return {&value, [](archive::Writer& writer, const void* erased) {
                return WireType<T>::encode(writer, *static_cast<const T*>(erased));
            }};
}

template <class T>
ArgumentPlace placeOf(T& value) {
    return {&value, [](archive::Reader& reader, const AllowedClasses* allowed, void* erased) {
                return WireType<T>::decode(reader, allowed, *static_cast<T*>(erased));
            }};
}

}  // namespace ksw::ipc
