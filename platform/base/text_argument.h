// text_argument.h: one argument of a text, borrowed. Making one costs a few stores: nothing is formatted and
// nothing is allocated until the text is written.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <kestrelwood/values/data.h>
#include <kestrelwood/values/date.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/uuid.h>
#include <kestrelwood/values/value.h>

namespace ksw {

/// Text that is part of the program: an operation's name, say. It is shown where other texts are private.
struct Literal {
    std::string_view text;
};

/// A URL in messages: its text, or its absolute form when it has a base.
inline std::string describe(const URL& url) {
    return url.baseURL() == nullptr ? url.relativeString() : url.absoluteString();
}
inline std::string describe(const UUID& uuid) {
    return uuid.string();
}
inline std::string describe(const Error& error) {
    return error.description();
}
inline std::string describe(const Date& date) {
    return date.string();
}

/// One argument. What it refers to must outlive it.
class TextArgument {
public:
    enum class Kind : std::uint8_t { None, Bool, Signed, Unsigned, Double, Literal, Text, Pointer, Object };
    using Describe = std::string (*)(const void* object);

    /// Nothing: "(null)".
    constexpr TextArgument() : kind_(Kind::None), signed_(0) {}

    static constexpr TextArgument ofBool(bool value) {
        TextArgument argument(Kind::Bool, sizeof value);
        argument.unsigned_ = value ? 1 : 0;
        return argument;
    }
    template <std::integral Integer>
    static constexpr TextArgument ofInteger(Integer value) {
        TextArgument argument(std::signed_integral<Integer> ? Kind::Signed : Kind::Unsigned, sizeof value);
        if constexpr (std::signed_integral<Integer>) {
            argument.signed_ = value;
        } else {
            argument.unsigned_ = value;
        }
        return argument;
    }
    static constexpr TextArgument ofDouble(double value) {
        TextArgument argument(Kind::Double, sizeof value);
        argument.double_ = value;
        return argument;
    }
    static constexpr TextArgument ofLiteral(std::string_view text) { return {Kind::Literal, text}; }
    static constexpr TextArgument ofText(std::string_view text) { return {Kind::Text, text}; }
    static constexpr TextArgument ofPointer(const void* pointer) {
        TextArgument argument(Kind::Pointer, sizeof pointer);
        argument.pointer_ = pointer;
        return argument;
    }
    static constexpr TextArgument ofObject(const void* object, Describe describe) {
        TextArgument argument(Kind::Object, sizeof object);
        argument.pointer_ = object;
        argument.describe_ = describe;
        return argument;
    }

    constexpr Kind kind() const { return kind_; }
    /// Whether it is a number of any kind, a bool or an address.
    constexpr bool isScalar() const {
        return kind_ == Kind::Bool || kind_ == Kind::Signed || kind_ == Kind::Unsigned || kind_ == Kind::Double ||
               kind_ == Kind::Pointer;
    }
    /// Bytes of the argument's own type.
    constexpr std::size_t size() const { return size_; }

    // Each for its own kinds only.
    constexpr std::int64_t signedValue() const { return signed_; }
    constexpr std::uint64_t unsignedValue() const { return unsigned_; }
    constexpr double doubleValue() const { return double_; }
    constexpr std::string_view text() const { return {text_.begin, text_.size}; }
    constexpr const void* pointer() const { return pointer_; }
    std::string describe() const { return describe_(pointer_); }

private:
    struct Text {
        const char* begin;
        std::size_t size;
    };

    constexpr TextArgument(Kind kind, std::size_t size)
        : kind_(kind), size_(static_cast<std::uint8_t>(size)), signed_(0) {}
    constexpr TextArgument(Kind kind, std::string_view text) : kind_(kind), text_{text.data(), text.size()} {}

    Kind kind_;
    std::uint8_t size_ = 0;
    union {
        std::int64_t signed_;
        std::uint64_t unsigned_;
        double double_;
        const void* pointer_;
        Text text_;
    };
    Describe describe_ = nullptr;
};

namespace text_argument {

template <class T>
concept CharacterPointer = std::same_as < std::remove_cv_t<std::remove_pointer_t<T>>,
char > &&std::is_pointer_v<T>;
template <class T>
concept Described = requires(const T& value) {
    { describe(value) } -> std::convertible_to<std::string>;
};
template <class T>
concept SelfDescribed = requires(const T& value) {
    { value.description() } -> std::convertible_to<std::string>;
};
template <class T>
concept Smart = requires(const T& pointer) {
    typename T::element_type;
    { pointer.get() } -> std::convertible_to<const void*>;
};

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

}  // namespace text_argument

/// What "%@" writes for the argument.
std::string argumentText(const TextArgument& argument);

template <class T>
std::string describeObject(const void* object);

/// The argument that stands for `value`.
template <class T>
constexpr TextArgument textArgument(T&& value) {
    using Plain = std::remove_cvref_t<T>;
    if constexpr (std::is_array_v<Plain>) {
        using Character = std::remove_extent_t<std::remove_reference_t<T>>;
        static_assert(std::same_as<std::remove_const_t<Character>, char>, "no text for arrays of other things");
        // The program's own literals are constant; a buffer that it fills in is not, and may lack the final NUL.
        const std::string_view whole(value, std::extent_v<Plain>);
        const std::string_view text = whole.substr(0, whole.find('\0'));
        return std::is_const_v<Character> ? TextArgument::ofLiteral(text) : TextArgument::ofText(text);
    } else if constexpr (std::same_as<Plain, Literal>) {
        return TextArgument::ofLiteral(value.text);
    } else if constexpr (std::same_as<Plain, std::nullptr_t> || std::same_as<Plain, std::nullopt_t>) {
        return TextArgument();
    } else if constexpr (std::same_as<Plain, bool>) {
        return TextArgument::ofBool(value);
    } else if constexpr (std::integral<Plain>) {
        return TextArgument::ofInteger(value);
    } else if constexpr (std::floating_point<Plain>) {
        return TextArgument::ofDouble(static_cast<double>(value));
    } else if constexpr (text_argument::CharacterPointer<Plain>) {
        return value == nullptr ? TextArgument() : TextArgument::ofText(std::string_view(value));
    } else if constexpr (std::convertible_to<const Plain&, std::string_view>) {
        return TextArgument::ofText(std::string_view(value));
    } else if constexpr (text_argument::IsOptional<Plain>::value) {
        return value.has_value() ? textArgument(*value) : TextArgument();
    } else if constexpr (text_argument::Smart<Plain>) {
        return value.get() == nullptr ? TextArgument() : textArgument(value.get());
    } else if constexpr (std::is_pointer_v<Plain> && std::is_class_v<std::remove_pointer_t<Plain>>) {
        return value == nullptr ? TextArgument() : textArgument(*value);
    } else if constexpr (std::is_pointer_v<Plain>) {
        return TextArgument::ofPointer(value);
    } else if constexpr (std::is_enum_v<Plain> && !text_argument::Described<Plain>) {
        return TextArgument::ofInteger(static_cast<std::underlying_type_t<Plain>>(value));
    } else {
        return TextArgument::ofObject(std::addressof(value), &describeObject<Plain>);
    }
}

/// The text of an object: its own description, or for a sequence "(a, b)".
template <class T>
std::string describeObject(const void* object) {
    const T& value = *static_cast<const T*>(object);
    if constexpr (std::convertible_to<const T&, Bytes>) {
        return describe(Bytes(value));
    } else if constexpr (text_argument::Described<T>) {
        return describe(value);
    } else if constexpr (text_argument::SelfDescribed<T>) {
        return std::string(value.description());
    } else {
        static_assert(std::ranges::input_range<const T>, "the argument needs a describe() or description()");
        std::string text = "(";
        const char* separator = "";
        for (const auto& element : value) {
            text += separator;
            separator = ", ";
            text += argumentText(textArgument(element));
        }
        return text + ")";
    }
}

}  // namespace ksw
