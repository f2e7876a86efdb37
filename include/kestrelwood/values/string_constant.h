// string_constant.h: texts that the framework exports by name.
#pragma once

#include <string>
#include <string_view>

namespace ksw {

/// A text that is known when the program is built: an error domain, a key, the name of a notification. Compares and
/// reads as the view that it is, and serves as a `std::string` where one is asked for:
/// `dictionary[KSWConfigLabel]`.
class StringConstant : public std::string_view {
public:
    /// The text of a literal.
    consteval StringConstant(const char* text) : std::string_view(text) {}

    /// A copy of the text.
    operator std::string() const { return std::string(data(), size()); }
};

}  // namespace ksw
