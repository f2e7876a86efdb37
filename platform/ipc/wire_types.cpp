#include "platform/ipc/wire_types.h"

#include <limits>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"

namespace ksw::ipc {

namespace {

using archive::Reader;
using archive::ValueKinds;
using archive::Writer;

struct NamedKinds {
    std::string_view name;
    ValueKinds kinds;
};

// What classes of value objects are called in allow-lists.
constexpr NamedKinds kNamedKinds[] = {
    {"error", ValueKinds::Error},   {"dictionary", ValueKinds::Dictionary}, {"array", ValueKinds::Array},
    {"string", ValueKinds::String}, {"value", ValueKinds::Number},          {"byte data", ValueKinds::Data},
    {"date", ValueKinds::Date},
};

/// The kinds that an allow-list names; without one, `byType`.
ValueKinds kindsOf(const AllowedClasses* allowed, ValueKinds byType) {
    if (allowed == nullptr) {
        return byType;
    }
    ValueKinds kinds = ValueKinds::None;
    for (std::string_view name : *allowed) {
        for (const NamedKinds& named : kNamedKinds) {
            kinds = named.name == name ? kinds | named.kinds : kinds;
        }
    }
    return kinds;
}

/// The end of a decoding: nothing, or what the reader has met.
Status statusOf(Reader& reader, bool read, std::string_view type) {
    if (read) {
        return {};
    }
    return reader.error(type);
}

Status outOfRange(Reader& reader, std::string_view type) {
    reader.fail(FormatError::WrongType, "out of range");
    return reader.error(type);
}

/// Writes null for an absent value, else what `write` writes.
template <class T, class Write>
Status encodeMaybe(Writer& writer, const std::optional<T>& value, Write write) {
    if (value) {
        write(*value);
    } else {
        writer.null();
    }
    return {};
}

/// Reads null as an absent value, else what `read` reads.
template <class T, class Read>
Status decodeMaybe(Reader& reader, std::optional<T>& value, std::string_view type, Read read) {
    value.reset();
    if (reader.nextIsNull()) {
        return statusOf(reader, reader.null(), type);
    }
    return statusOf(reader, read(), type);
}

}  // namespace

TypeFacts typeFacts(const bool*) {
    return {"bool", {}};
}

Status encodeValue(Writer& writer, bool value) {
    writer.boolean(value);
    return {};
}

Status decodeValue(Reader& reader, const AllowedClasses*, bool& value) {
    return statusOf(reader, reader.boolean(value), "bool");
}

TypeFacts typeFacts(const std::int64_t*) {
    return {"int64", {}};
}

Status encodeValue(Writer& writer, std::int64_t value) {
    writer.integer(value);
    return {};
}

Status decodeValue(Reader& reader, const AllowedClasses*, std::int64_t& value) {
    return statusOf(reader, reader.integer(value), "int64");
}

TypeFacts typeFacts(const std::uint64_t*) {
    return {"uint64", {}};
}

Status encodeValue(Writer& writer, std::uint64_t value) {
    writer.unsignedInteger(value);
    return {};
}

Status decodeValue(Reader& reader, const AllowedClasses*, std::uint64_t& value) {
    return statusOf(reader, reader.unsignedInteger(value), "uint64");
}

TypeFacts typeFacts(const Uid*) {
    return {"uid", {}};
}

Status encodeValue(Writer& writer, Uid value) {
    writer.unsignedInteger(value);
    return {};
}

Status decodeValue(Reader& reader, const AllowedClasses*, Uid& value) {
    std::uint64_t wide = 0;
    if (!reader.unsignedInteger(wide)) {
        return reader.error("uid");
    }
    if (wide > std::numeric_limits<Uid>::max()) {
        return outOfRange(reader, "uid");
    }
    value = static_cast<Uid>(wide);
    return {};
}

TypeFacts typeFacts(const double*) {
    return {"double", {}};
}

Status encodeValue(Writer& writer, double value) {
    writer.real(value);
    return {};
}

Status decodeValue(Reader& reader, const AllowedClasses*, double& value) {
    return statusOf(reader, reader.real(value), "double");
}

TypeFacts typeFacts(const std::optional<std::string>*) {
    return {"string", {"string"}};
}

Status encodeValue(Writer& writer, const std::optional<std::string>& value) {
    return encodeMaybe(writer, value, [&](const std::string& text) { writer.text(text); });
}

Status decodeValue(Reader& reader, const AllowedClasses*, std::optional<std::string>& value) {
    return decodeMaybe(reader, value, "string", [&] { return reader.text(value.emplace()); });
}

TypeFacts typeFacts(const std::optional<Data>*) {
    return {"byte data", {"byte data"}};
}

Status encodeValue(Writer& writer, const std::optional<Data>& value) {
    return encodeMaybe(writer, value, [&](const Data& bytes) { writer.bytes(bytes); });
}

Status decodeValue(Reader& reader, const AllowedClasses*, std::optional<Data>& value) {
    return decodeMaybe(reader, value, "byte data", [&] { return reader.bytes(value.emplace()); });
}

TypeFacts typeFacts(const std::optional<URL>*) {
    return {"URL", {"URL"}};
}

Status encodeValue(Writer& writer, const std::optional<URL>& value) {
    return encodeMaybe(writer, value, [&](const URL& url) { writer.url(url); });
}

Status decodeValue(Reader& reader, const AllowedClasses*, std::optional<URL>& value) {
    return decodeMaybe(reader, value, "URL", [&] { return reader.url(value); });
}

TypeFacts typeFacts(const std::optional<UUID>*) {
    return {"UUID", {"UUID"}};
}

Status encodeValue(Writer& writer, const std::optional<UUID>& value) {
    return encodeMaybe(writer, value, [&](const UUID& uuid) { writer.uuid(uuid); });
}

Status decodeValue(Reader& reader, const AllowedClasses*, std::optional<UUID>& value) {
    return decodeMaybe(reader, value, "UUID", [&] { return reader.uuid(value.emplace()); });
}

TypeFacts typeFacts(const std::optional<AuditToken>*) {
    return {"audit token", {}};
}

Status encodeValue(Writer& writer, const std::optional<AuditToken>& value) {
    return encodeMaybe(writer, value, [&](const AuditToken& token) {
        writer.array(token.words.size());
        for (std::uint32_t word : token.words) {
            writer.unsignedInteger(word);
        }
    });
}

Status decodeValue(Reader& reader, const AllowedClasses*, std::optional<AuditToken>& value) {
    return decodeMaybe(reader, value, "audit token", [&] {
        AuditToken& token = value.emplace();
        std::size_t count = 0;
        if (!reader.enterArray(count)) {
            return false;
        }
        if (count != token.words.size()) {
            return reader.fail(FormatError::WrongType, "eight words expected");
        }
        for (std::uint32_t& word : token.words) {
            std::uint64_t wide = 0;
            if (!reader.unsignedInteger(wide)) {
                return false;
            }
            if (wide > std::numeric_limits<std::uint32_t>::max()) {
                return reader.fail(FormatError::WrongType, "a word of 32 bits expected");
            }
            word = static_cast<std::uint32_t>(wide);
        }
        reader.leave();
        return true;
    });
}

TypeFacts typeFacts(const std::optional<Dictionary>*) {
    return {"dictionary", {"dictionary", "array", "string", "value", "byte data", "date"}};
}

Status encodeValue(Writer& writer, const std::optional<Dictionary>& value) {
    return encodeMaybe(writer, value, [&](const Dictionary& dictionary) { writer.dictionary(dictionary); });
}

Status decodeValue(Reader& reader, const AllowedClasses* allowed, std::optional<Dictionary>& value) {
    return decodeMaybe(reader, value, "dictionary", [&] {
        return reader.dictionary(value.emplace(), kindsOf(allowed, ValueKinds::PropertyList));
    });
}

TypeFacts typeFacts(const std::optional<Error>*) {
    return {"error", {"error", "dictionary", "array", "string", "value", "byte data", "date"}};
}

Status encodeValue(Writer& writer, const std::optional<Error>& value) {
    return encodeMaybe(writer, value, [&](const Error& error) { writer.error(error); });
}

Status decodeValue(Reader& reader, const AllowedClasses* allowed, std::optional<Error>& value) {
    return decodeMaybe(reader, value, "error", [&] {
        return reader.error(value, kindsOf(allowed, ValueKinds::PropertyList | ValueKinds::Error));
    });
}

}  // namespace ksw::ipc
