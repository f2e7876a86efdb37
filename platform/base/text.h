// text.h: fills in texts of the format language: "%@", "%{public}@", "%s", "%d", "%ld", "%lX", "%#lx", "%p",
// "%{bool}d", "%19s", "%%". Arguments are typed, so a text and its arguments that do not agree give odd text
// and never undefined behaviour: a number given for "%@" or "%s" is written in decimal, a text given for a
// number stands as it is, a missing argument is written "<missing>", a surplus one is left out.
// Any thread; the result is the same in every locale.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/base/text_argument.h"

namespace ksw {

/// How much of a text may be shown.
enum class Disclosure {
    Full,    ///< Everything.
    Public,  ///< `<private>` for each argument that is neither marked {public}, nor a number formatted as
             ///< one, nor a `Literal` or string literal given for %s.
};

/// The text with its arguments filled in. `arguments` and what they refer to are borrowed for the call.
std::string formatText(std::string_view text, std::span<const TextArgument> arguments,
                       Disclosure disclosure = Disclosure::Full);

/// The same with the arguments as they are: numbers, bools, texts, pointers, optionals, and whatever has a
/// `describe(value)` that argument-dependent lookup finds, or a member `description()`.
template <class... Arguments>
std::string format(std::string_view text, Arguments&&... arguments) {
    if constexpr (sizeof...(Arguments) == 0) {
        return formatText(text, {});
    } else {
        const TextArgument list[] = {textArgument(std::forward<Arguments>(arguments))...};
        return formatText(text, list);
    }
}

}  // namespace ksw
