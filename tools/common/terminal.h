// terminal.h: what standard output is, for those who print to people. Any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tools {

/// How many columns a line may have: the terminal's own word, else COLUMNS. Absent when standard output is no
/// terminal, or when nobody knows.
std::optional<std::size_t> terminalWidth();

enum class Colour { Green, Yellow, Red };

/// The text in that colour; as it is when standard output is no terminal, or NO_COLOR is set and not empty, or the
/// terminal is a dumb one.
std::string coloured(std::string_view text, Colour colour);

/// The first columns of a line of printable UTF-8; what is longer ends in three dots. A character counts as one
/// column.
std::string fitted(std::string_view line, std::size_t width);

}  // namespace tools
