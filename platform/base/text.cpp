#include "platform/base/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "platform/base/numbers.h"

namespace ksw {

namespace {

/// Widest field and most digits behind the point that a text may ask for; a slip in a text shall not cost memory.
constexpr std::size_t kWidthMax = 1'024;
constexpr std::size_t kFractionDigitsMax = 32;

constexpr std::string_view kNullText = "(null)";
constexpr std::string_view kMissingText = "<missing>";
constexpr std::string_view kPrivateText = "<private>";

/// One placeholder: what stands between a percent sign and its conversion character.
struct Placeholder {
    bool isPublic = false;
    bool isPrivate = false;
    bool isBool = false;
    bool leftAligned = false;
    bool zeroPadded = false;
    bool alternate = false;
    bool plus = false;
    std::size_t width = 0;
    std::optional<std::size_t> precision;
    char conversion = 0;  // 0: the text ends inside the placeholder
};

/// Reads the placeholder behind a percent sign.
class PlaceholderReader {
public:
    explicit PlaceholderReader(std::string_view& rest) : rest_(rest) {}

    Placeholder read() {
        Placeholder placeholder;
        readAnnotations(placeholder);
        readFlags(placeholder);
        placeholder.width = std::min(readNumber(), kWidthMax);
        if (take('.')) {
            placeholder.precision = readNumber();
        }
        // The argument knows its own size.
        rest_.remove_prefix(std::min(rest_.find_first_not_of("hljztqL"), rest_.size()));
        if (!rest_.empty()) {
            placeholder.conversion = rest_.front();
            rest_.remove_prefix(1);
        }
        return placeholder;
    }

private:
    bool take(char expected) {
        if (!rest_.starts_with(expected)) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

    void readAnnotations(Placeholder& placeholder) {
        const std::size_t end = rest_.starts_with('{') ? rest_.find('}') : std::string_view::npos;
        if (end == std::string_view::npos) {
            return;
        }
        std::string_view words = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        while (!words.empty()) {
            const std::string_view word = words.substr(0, words.find(','));
            words.remove_prefix(std::min(word.size() + 1, words.size()));
            words.remove_prefix(std::min(words.find_first_not_of(' '), words.size()));
            placeholder.isPublic |= word == "public";
            placeholder.isPrivate |= word == "private";
            placeholder.isBool |= word == "bool";
        }
    }

    void readFlags(Placeholder& placeholder) {
        for (; !rest_.empty(); rest_.remove_prefix(1)) {
            switch (rest_.front()) {
                case '-':
                    placeholder.leftAligned = true;
                    break;
                case '0':
                    placeholder.zeroPadded = true;
                    break;
                case '#':
                    placeholder.alternate = true;
                    break;
                case '+':
                    placeholder.plus = true;
                    break;
                default:
                    return;
            }
        }
    }

    std::size_t readNumber() {
        std::size_t number = 0;
        for (; !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9'; rest_.remove_prefix(1)) {
            number = std::min(number * 10 + static_cast<std::size_t>(rest_.front() - '0'), kWidthMax);
        }
        return number;
    }

    std::string_view& rest_;
};

bool isNumberConversion(char conversion) {
    return std::string_view("diuxXocpfFeEgGD").find(conversion) != std::string_view::npos;
}

bool mayBeShown(const Placeholder& placeholder, const TextArgument& argument) {
    if (placeholder.isPublic) {
        return true;
    }
    if (placeholder.isPrivate) {
        return false;
    }
    if (placeholder.conversion == 'p') {
        return argument.isScalar() || argument.kind() == TextArgument::Kind::Object;
    }
    if (isNumberConversion(placeholder.conversion)) {
        return argument.isScalar();
    }
    return placeholder.conversion == 's' && argument.kind() == TextArgument::Kind::Literal;
}

std::string digits(std::uint64_t value, int base) {
    std::array<char, 64> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, base).ptr;
    return {buffer.data(), end};
}

/// The bits of a number as its own type holds them.
std::uint64_t bitsOf(const TextArgument& argument) {
    switch (argument.kind()) {
        case TextArgument::Kind::Double:
            return 0;
        case TextArgument::Kind::Pointer:
        case TextArgument::Kind::Object:
            return reinterpret_cast<std::uintptr_t>(argument.pointer());
        case TextArgument::Kind::Signed: {
            const auto bits = static_cast<std::uint64_t>(argument.signedValue());
            return argument.size() < sizeof bits ? bits & ((std::uint64_t{1} << (argument.size() * 8)) - 1) : bits;
        }
        default:
            return argument.unsignedValue();
    }
}

std::string fractionText(double value, const Placeholder& placeholder) {
    const std::size_t precision = std::min(placeholder.precision.value_or(6), kFractionDigitsMax);
    const char conversion = static_cast<char>(placeholder.conversion | 0x20);
    const auto form = conversion == 'e'   ? std::chars_format::scientific
                      : conversion == 'g' ? std::chars_format::general
                                          : std::chars_format::fixed;
    std::array<char, 400> buffer{};
    const auto written =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, form, static_cast<int>(precision));
    return {buffer.data(), written.ptr};
}

/// The digits behind a prefix. Appended, since g++ 12 takes `literal + string` for an overlapping copy.
std::string prefixed(std::string_view prefix, std::string_view number) {
    std::string text(prefix);
    text += number;
    return text;
}

/// A number as the conversion asks for it.
std::string numberText(const TextArgument& argument, const Placeholder& placeholder) {
    if (placeholder.isBool) {
        return bitsOf(argument) != 0 ? "true" : "false";
    }
    const bool alternate = placeholder.alternate && bitsOf(argument) != 0;
    switch (placeholder.conversion) {
        case 'x':
            return prefixed(alternate ? "0x" : "", digits(bitsOf(argument), 16));
        case 'X': {
            std::string text = digits(bitsOf(argument), 16);
            std::transform(text.begin(), text.end(), text.begin(),
                           [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
            return prefixed(alternate ? "0X" : "", text);
        }
        case 'o':
            return prefixed(alternate ? "0" : "", digits(bitsOf(argument), 8));
        case 'p':
            return prefixed("0x", digits(bitsOf(argument), 16));
        case 'c':
            return std::string(1, static_cast<char>(bitsOf(argument)));
        default:
            break;
    }
    if (argument.kind() == TextArgument::Kind::Double &&
        std::string_view("fFeEgG").find(placeholder.conversion) != std::string_view::npos) {
        return fractionText(argument.doubleValue(), placeholder);
    }
    const std::string text = argumentText(argument);
    return placeholder.plus && !text.starts_with('-') ? prefixed("+", text) : text;
}

std::string placeholderText(const TextArgument& argument, const Placeholder& placeholder) {
    if (argument.kind() == TextArgument::Kind::None) {
        return placeholder.conversion == 'p' ? "0x0" : std::string(kNullText);
    }
    const bool isAddress = placeholder.conversion == 'p' && argument.kind() == TextArgument::Kind::Object;
    if (isAddress || (argument.isScalar() && isNumberConversion(placeholder.conversion))) {
        return numberText(argument, placeholder);
    }
    std::string text = argumentText(argument);
    if (placeholder.conversion == 's' && placeholder.precision) {
        text.resize(std::min(text.size(), *placeholder.precision));
    }
    return text;
}

void appendPadded(std::string& output, const std::string& text, const Placeholder& placeholder) {
    const std::size_t padding = placeholder.width - std::min(placeholder.width, text.size());
    const bool zeroes =
        placeholder.zeroPadded && !placeholder.leftAligned && isNumberConversion(placeholder.conversion);
    if (placeholder.leftAligned) {
        output.append(text).append(padding, ' ');
    } else if (zeroes) {
        const std::size_t sign = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
        output.append(text, 0, sign).append(padding, '0').append(text, sign);
    } else {
        output.append(padding, ' ').append(text);
    }
}

}  // namespace

std::string argumentText(const TextArgument& argument) {
    switch (argument.kind()) {
        case TextArgument::Kind::None:
            return std::string(kNullText);
        case TextArgument::Kind::Bool:
        case TextArgument::Kind::Unsigned:
            return std::to_string(argument.unsignedValue());
        case TextArgument::Kind::Signed:
            return std::to_string(argument.signedValue());
        case TextArgument::Kind::Double:
            return shortestText(argument.doubleValue());
        case TextArgument::Kind::Literal:
        case TextArgument::Kind::Text:
            return std::string(argument.text());
        case TextArgument::Kind::Pointer:
            return prefixed("0x", digits(bitsOf(argument), 16));
        case TextArgument::Kind::Object:
            return argument.describe();
    }
    return {};
}

std::string formatText(std::string_view text, std::span<const TextArgument> arguments, Disclosure disclosure) {
    std::string output;
    output.reserve(text.size() + 32 * arguments.size());
    while (!text.empty()) {
        const std::string_view plain = text.substr(0, text.find('%'));
        output += plain;
        text.remove_prefix(std::min(plain.size() + 1, text.size()));
        if (plain.data() + plain.size() == text.data()) {
            break;  // no percent sign was left
        }
        const Placeholder placeholder = PlaceholderReader(text).read();
        if (placeholder.conversion == '%' || placeholder.conversion == 0) {
            output += '%';
        } else if (arguments.empty()) {
            output += kMissingText;
        } else {
            const bool isShown = disclosure == Disclosure::Full || mayBeShown(placeholder, arguments.front());
            appendPadded(output,
                         isShown ? placeholderText(arguments.front(), placeholder) : std::string(kPrivateText),
                         placeholder);
            arguments = arguments.subspan(1);
        }
    }
    return output;
}

}  // namespace ksw
