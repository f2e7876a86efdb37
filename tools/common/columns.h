// columns.h: how much room texts take on a terminal. Any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace tools {

/// How many columns a terminal gives to a text that is printable UTF-8: most characters take one, those of East
/// Asian scripts and pictures two, accents that go on the character before them none.
std::size_t columnsOf(std::string_view text);

/// Where the characters end that go into the first `width` columns, with the accents on the last of them.
std::size_t endOfColumns(std::string_view text, std::size_t width);

}  // namespace tools
