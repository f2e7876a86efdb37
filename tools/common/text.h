// text.h: text that is safe to put on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace tools {

/// Whether a backslash of the text is written as two. One that is kept may be that of an escape.
enum class Backslash { Doubled, Kept };

/// The text with everything that a terminal could obey or that could mislead a reader written as an escape:
/// control characters, line and paragraph separators, marks of writing direction, bytes that are not UTF-8, and
/// the backslash itself, so that an escape cannot be forged. The rest stays as it is.
std::string printable(std::string_view text, Backslash backslash = Backslash::Doubled);

}  // namespace tools
