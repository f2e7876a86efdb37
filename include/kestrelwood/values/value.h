// value.h: property-list values.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include <kestrelwood/export.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/date.h>
#include <kestrelwood/values/error.h>

namespace ksw {

/// An ordered list of values.
using Array = std::vector<Value>;

/// One value of a property list, or nothing. Integers are signed 64-bit; only those beyond that range are
/// held unsigned, so equal numbers are equal values. An `Error` occurs only inside an error's user
/// information, where it names the cause.
class KSW_EXPORT Value {
public:
    /// One alternative for each kind of value; nothing is the first.
    using Storage = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Data, Date,
                                 Array, Dictionary, Error>;

    Value() = default;
    /// The value of a number, a text, bytes, a date, a list, a dictionary or an error. Text is copied, what is
    /// moved in is kept.
    Value(bool value) : storage_(value) {}
    template <std::signed_integral Integer>
    Value(Integer value) : storage_(static_cast<std::int64_t>(value)) {}
    template <std::unsigned_integral Integer>
    requires(!std::same_as<Integer, bool>) Value(Integer value) : storage_(fromUnsigned(value)) {}
    Value(double value) : storage_(value) {}
    Value(const char* value) : storage_(std::string(value)) {}
    Value(std::string_view value) : storage_(std::string(value)) {}
    Value(std::string value) : storage_(std::move(value)) {}
    Value(Data value) : storage_(std::move(value)) {}
    Value(Date value) : storage_(value) {}
    Value(Array value) : storage_(std::move(value)) {}
    Value(Dictionary value) : storage_(std::move(value)) {}
    Value(Error value) : storage_(std::move(value)) {}

    /// Whether it is nothing.
    bool isNull() const { return storage_.index() == 0; }

    /// The value when it is of type T, else null. T is one of `Storage`'s types.
    template <class T>
    const T* as() const {
        return std::get_if<T>(&storage_);
    }
    template <class T>
    T* as() {
        return std::get_if<T>(&storage_);
    }

    /// The value as it is kept, for `std::visit`.
    const Storage& storage() const { return storage_; }

    /// Whether both are of the same kind and equal all the way down.
    friend bool operator==(const Value&, const Value&) = default;

private:
    static Storage fromUnsigned(std::uint64_t value) {
        if (value > static_cast<std::uint64_t>(INT64_MAX)) {
            return value;
        }
        return static_cast<std::int64_t>(value);
    }

    Storage storage_;
};

/// The value under `key` when there is one of type T, else null.
template <class T>
const T* find(const Dictionary& dictionary, std::string_view key) {
    auto found = dictionary.find(key);
    return found == dictionary.end() ? nullptr : found->second.template as<T>();
}

/// The value as text for people: "(null)" for nothing, 1 and 0 for bools, "(a, b)" for arrays and
/// "{k = v; …}" for dictionaries; strings as they are.
KSW_EXPORT std::string describe(const Value& value);
KSW_EXPORT std::string describe(const Dictionary& dictionary);

}  // namespace ksw
