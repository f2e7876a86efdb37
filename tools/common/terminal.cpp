#include "tools/common/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "tools/common/columns.h"

namespace tools {

namespace {

constexpr std::string_view kDots = "...";

std::string_view variable(const char* name) {
    const char* value = secure_getenv(name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

bool isTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

/// Where the first part of a text ends that goes on in the next line: at the last space that leaves something
/// between `from` and itself, else where the room ends. At least one character behind `from`.
std::size_t endOfPart(std::string_view text, std::size_t from, std::size_t room) {
    std::size_t end = endOfColumns(text, room);
    while (end <= from && end < text.size()) {
        end = endOfColumns(text, ++room);
    }
    const std::size_t space = text.substr(0, end + 1).rfind(' ');
    const bool hasWord = space != std::string_view::npos && text.find_first_not_of(' ', from) < space;
    return end < text.size() && hasWord ? space : end;
}

std::string_view withoutTrailingSpaces(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

}  // namespace

std::optional<std::size_t> terminalWidth() {
    if (!isTerminal()) {
        return std::nullopt;
    }
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    const std::string_view text = variable("COLUMNS");
    std::size_t width = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), width);
    const bool isNumber = problem == std::errc() && end == text.data() + text.size() && width > 0;
    return isNumber ? std::optional(width) : std::nullopt;
}

std::string coloured(std::string_view text, Colour colour) {
    if (!isTerminal() || !variable("NO_COLOR").empty() || variable("TERM") == "dumb") {
        return std::string(text);
    }
    constexpr const char* kBegin[] = {"\x1b[32m", "\x1b[33m", "\x1b[31m"};
    return kBegin[static_cast<std::size_t>(colour)] + std::string(text) + "\x1b[0m";
}

std::string fitted(std::string_view line, std::size_t width) {
    if (endOfColumns(line, width) == line.size()) {
        return std::string(line);
    }
    const std::string_view dots = kDots.substr(0, width);
    return std::string(line.substr(0, endOfColumns(line, width - dots.size()))) + std::string(dots);
}

std::vector<std::string> folded(std::string_view line, std::size_t width, std::size_t indent) {
    // Where the lines would become too short to be read, they begin further to the left.
    const bool isRoomy = indent * 2 <= width;
    const std::string margin(isRoomy ? indent : std::min<std::size_t>(2, width / 2), ' ');
    std::vector<std::string> lines;
    std::size_t end = endOfPart(line, isRoomy ? endOfColumns(line, indent) : 0, width);
    lines.emplace_back(withoutTrailingSpaces(line.substr(0, end)));
    while (line.find_first_not_of(' ', end) != std::string_view::npos) {
        line.remove_prefix(line.find_first_not_of(' ', end));
        end = endOfPart(line, 0, width - margin.size());
        lines.push_back(margin + std::string(withoutTrailingSpaces(line.substr(0, end))));
    }
    return lines;
}

std::vector<std::string> shownLines(const std::string& line, std::size_t indent) {
    const std::optional<std::size_t> width = terminalWidth();
    return width ? folded(line, *width, indent) : std::vector{line};
}

}  // namespace tools
