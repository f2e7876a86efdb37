// terminal.h: what standard output is, for those who print to people. Any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// How many columns a line may have: the terminal's own word, else COLUMNS. Absent when standard output is no
/// terminal, or when nobody knows.
std::optional<std::size_t> terminalWidth();

enum class Colour { Green, Yellow, Red };

/// The text in that colour; as it is when standard output is no terminal, or NO_COLOR is set and not empty, or the
/// terminal is a dumb one.
std::string coloured(std::string_view text, Colour colour);

/// The first columns of a line of printable UTF-8; what is longer ends in three dots.
std::string fitted(std::string_view line, std::size_t width);

/// A line of printable UTF-8 as lines of at most `width` columns, but for a single character that is wider: broken
/// at spaces behind the first `indent` columns, which the further lines leave free, and inside of words that are
/// longer than a line.
std::vector<std::string> folded(std::string_view line, std::size_t width, std::size_t indent);

/// The line folded so for the terminal that standard output is; whole when it is none.
std::vector<std::string> shownLines(const std::string& line, std::size_t indent);

}  // namespace tools
