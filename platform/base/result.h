// result.h: a value or the reason why there is none.
// Inside the library failures travel as Result; the exported operations turn them into what they promise.
#pragma once

#include <cassert>
#include <optional>
#include <utility>
#include <variant>

#include <kestrelwood/values/error.h>

namespace ksw {

/// Holds a T or an Error. Reading the one that is not there is a bug of the caller (asserted).
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return content_.index() == 0; }
    explicit operator bool() const { return ok(); }

    T& value() & { return *std::get_if<0>(&content_); }
    const T& value() const& { return *std::get_if<0>(&content_); }
    T&& value() && { return std::move(*std::get_if<0>(&content_)); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T&& operator*() && { return std::move(*this).value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    const Error& error() const { return *std::get_if<1>(&content_); }

private:
    std::variant<T, Error> content_;
};

/// Success, or an Error. Success costs a null pointer.
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Error error) : error_(std::move(error)) {}

    bool ok() const { return !error_; }
    explicit operator bool() const { return ok(); }
    const Error& error() const { return *error_; }

private:
    std::optional<Error> error_;
};

using Status = Result<void>;

}  // namespace ksw
