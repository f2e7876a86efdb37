#include "tools/common/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

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

bool beginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

/// Where the first `width` characters of the line end.
std::size_t endOf(std::string_view line, std::size_t width) {
    std::size_t count = 0;
    for (std::size_t place = 0; place < line.size(); ++place) {
        if (beginsCharacter(line[place]) && count++ == width) {
            return place;
        }
    }
    return line.size();
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
    if (endOf(line, width) == line.size()) {
        return std::string(line);
    }
    const std::string_view dots = kDots.substr(0, width);
    return std::string(line.substr(0, endOf(line, width - dots.size()))) + std::string(dots);
}

}  // namespace tools
