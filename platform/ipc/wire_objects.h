// wire_objects.h: how archivable classes stand in a method's row: a byte string that holds a keyed archive written
// by the service-connection coder; null for no object. A list of objects is a byte string too, an archive of an
// array.
#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/archive/class_info.h"
#include "platform/archive/keyed_archive.h"
#include "platform/ipc/wire_types.h"

namespace ksw::ipc {

/// Whether `archiveClass` finds a table for T.
template <class T>
concept Archivable = requires {
    { archiveClass(static_cast<const T*>(nullptr)) } -> std::same_as<const archive::ClassInfo&>;
};

namespace detail {

/// Writes an archive as a byte string.
inline Status encodeArchive(archive::Writer& writer, const Result<Data>& archive) {
    if (!archive) {
        return archive.error();
    }
    writer.bytes(*archive);
    return {};
}

/// Reads a byte string and hands its bytes, with how to read them, to `read`.
template <class Read>
Status decodeArchive(archive::Reader& reader, const AllowedClasses* allowed, std::string_view name, Read read) {
    Bytes bytes;
    if (!reader.bytes(bytes)) {
        return reader.error(name);
    }
    archive::ReadOptions options{archive::Coder::ServiceConnection, archive::Cycles::Refused};
    if (allowed != nullptr) {
        options.allowedClasses = *allowed;
    }
    return read(bytes, options);
}

}  // namespace detail

/// One object, or null.
template <Archivable T>
struct WireType<std::shared_ptr<T>> {
    static TypeFacts facts() {
        const std::string_view name = archive::classInfo<T>().name;
        return {name, {name}};
    }
    static Status encode(archive::Writer& writer, const std::shared_ptr<T>& value) {
        if (value == nullptr) {
            writer.null();
            return {};
        }
        return detail::encodeArchive(writer, archive::archive(*value, archive::Coder::ServiceConnection));
    }
    static Status decode(archive::Reader& reader, const AllowedClasses* allowed, std::shared_ptr<T>& value) {
        value.reset();
        if (reader.nextIsNull()) {
            reader.null();
            return {};
        }
        return detail::decodeArchive(reader, allowed, archive::classInfo<T>().name,
                                     [&](Bytes bytes, const archive::ReadOptions& options) -> Status {
                                         auto read = archive::unarchive<T>(bytes, options, reader.budget());
                                         if (!read) {
                                             return read.error();
                                         }
                                         value = std::move(read->root);
                                         return {};
                                     });
    }
};

/// A list of objects, or none.
template <Archivable T>
struct WireType<std::optional<std::vector<std::shared_ptr<T>>>> {
    using List = std::optional<std::vector<std::shared_ptr<T>>>;

    static TypeFacts facts() { return {"array", {"array", archive::classInfo<T>().name}}; }
    static Status encode(archive::Writer& writer, const List& value) {
        if (!value) {
            writer.null();
            return {};
        }
        return detail::encodeArchive(writer, archive::archiveArray(std::span<const std::shared_ptr<T>>(*value),
                                                                   archive::Coder::ServiceConnection));
    }
    static Status decode(archive::Reader& reader, const AllowedClasses* allowed, List& value) {
        value.reset();
        if (reader.nextIsNull()) {
            reader.null();
            return {};
        }
        return detail::decodeArchive(reader, allowed, "array",
                                     [&](Bytes bytes, const archive::ReadOptions& options) -> Status {
                                         auto read = archive::unarchiveArray<T>(bytes, options, reader.budget());
                                         if (!read) {
                                             return read.error();
                                         }
                                         value = std::move(read->roots);
                                         return {};
                                     });
    }
};

}  // namespace ksw::ipc
