// field_forms.h: how a member of each type stands in an archive. Used by class_table.h alone.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <kestrelwood/values.h>

#include "platform/archive/class_info.h"

namespace ksw::archive {

/// isPresent: whether the member's key is written; write and read its value. A type without a form does not
/// compile.
template <class T>
struct FieldForm;

/// A form whose value is always there.
struct AlwaysPresent {
    template <class T>
    static bool isPresent(const T&) {
        return true;
    }
};

template <>
struct FieldForm<bool> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo&, bool value) { writer.boolean(value); }
    static bool read(Reader& reader, const FieldInfo&, bool& value) { return reader.boolean(value); }
};

struct NumericFlagForm : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo&, bool value) { writer.unsignedInteger(value ? 1 : 0); }
    static bool read(Reader& reader, const FieldInfo&, bool& value) {
        std::int64_t number = 0;
        if (!reader.integer(number)) {
            return false;
        }
        value = number != 0;
        return true;
    }
};

template <std::signed_integral Integer>
struct FieldForm<Integer> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo&, Integer value) { writer.integer(value); }
    static bool read(Reader& reader, const FieldInfo&, Integer& value) {
        std::int64_t wide = 0;
        if (!reader.integer(wide)) {
            return false;
        }
        if (!std::in_range<Integer>(wide)) {
            return reader.fail(FormatError::WrongType, "integer out of range");
        }
        value = static_cast<Integer>(wide);
        return true;
    }
};

template <std::unsigned_integral Integer>
requires(!std::same_as<Integer, bool>) struct FieldForm<Integer> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo&, Integer value) { writer.unsignedInteger(value); }
    static bool read(Reader& reader, const FieldInfo&, Integer& value) {
        std::uint64_t wide = 0;
        if (!reader.unsignedInteger(wide)) {
            return false;
        }
        if (!std::in_range<Integer>(wide)) {
            return reader.fail(FormatError::WrongType, "integer out of range");
        }
        value = static_cast<Integer>(wide);
        return true;
    }
};

template <>
struct FieldForm<double> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo&, double value) { writer.real(value); }
    static bool read(Reader& reader, const FieldInfo&, double& value) { return reader.real(value); }
};

template <>
struct FieldForm<std::string> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo& row, const std::string& value);
    static bool read(Reader& reader, const FieldInfo& row, std::string& value) {
        return reader.text(value, row.sizeMax);
    }
};

template <>
struct FieldForm<Data> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo& row, const Data& value);
    static bool read(Reader& reader, const FieldInfo& row, Data& value) { return reader.bytes(value, row.sizeMax); }
};

template <>
struct FieldForm<UUID> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo&, const UUID& value) { writer.uuid(value); }
    static bool read(Reader& reader, const FieldInfo&, UUID& value) { return reader.uuid(value); }
};

template <>
struct FieldForm<std::optional<URL>> {
    static bool isPresent(const std::optional<URL>& value) { return value.has_value(); }
    static void write(Writer& writer, const FieldInfo& row, const std::optional<URL>& value);
    static bool read(Reader& reader, const FieldInfo& row, std::optional<URL>& value) {
        return reader.url(value, row.sizeMax);
    }
};

template <>
struct FieldForm<std::vector<std::string>> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo& row, const std::vector<std::string>& value);
    static bool read(Reader& reader, const FieldInfo& row, std::vector<std::string>& value);
};

template <>
struct FieldForm<std::vector<Data>> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo& row, const std::vector<Data>& value);
    static bool read(Reader& reader, const FieldInfo& row, std::vector<Data>& value);
};

template <>
struct FieldForm<Dictionary> : AlwaysPresent {
    static void write(Writer& writer, const FieldInfo& row, const Dictionary& value);
    static bool read(Reader& reader, const FieldInfo& row, Dictionary& value);
};

template <>
struct FieldForm<Value> {
    static bool isPresent(const Value& value) { return !value.isNull(); }
    static void write(Writer& writer, const FieldInfo& row, const Value& value);
    static bool read(Reader& reader, const FieldInfo& row, Value& value);
};

template <class T>
struct FieldForm<std::optional<T>> {
    static bool isPresent(const std::optional<T>& value) { return value.has_value(); }
    static void write(Writer& writer, const FieldInfo& row, const std::optional<T>& value) {
        FieldForm<T>::write(writer, row, *value);
    }
    static bool read(Reader& reader, const FieldInfo& row, std::optional<T>& value) {
        return FieldForm<T>::read(reader, row, value.emplace());
    }
};

}  // namespace ksw::archive
