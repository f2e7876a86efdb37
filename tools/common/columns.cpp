#include "tools/common/columns.h"

#include <clocale>
#include <cwchar>

namespace tools {
namespace {

/// The C library knows how wide characters are, in the locale that a thread uses; what is printed is UTF-8 in every
/// locale, so these functions use one of their own. A host that lacks it counts every character as one column.
class InUtf8 {
public:
    InUtf8() : isThere_(shared() != nullptr), former_(uselocale(shared())) {}
    ~InUtf8() { uselocale(former_); }
    InUtf8(const InUtf8&) = delete;
    InUtf8& operator=(const InUtf8&) = delete;

    bool isThere() const { return isThere_; }

private:
    static locale_t shared() {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;
    }

    bool isThere_;
    locale_t former_;
};

struct Character {
    std::size_t bytes;
    std::size_t columns;
};

bool continues(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

Character firstCharacter(std::string_view text, const InUtf8& locale) {
    if (static_cast<unsigned char>(text.front()) < 0x80 || !locale.isThere()) {
        return {1, continues(text.front()) ? 0U : 1U};
    }
    std::mbstate_t state{};
    wchar_t character = 0;
    const std::size_t bytes = std::mbrtowc(&character, text.data(), text.size(), &state);
    if (bytes == 0 || bytes > text.size()) {
        return {1, 1};
    }
    const int columns = wcwidth(character);
    return {bytes, columns < 0 ? 1U : static_cast<std::size_t>(columns)};
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
    const InUtf8 locale;
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character first = firstCharacter(text, locale);
        columns += first.columns;
        text.remove_prefix(first.bytes);
    }
    return columns;
}

std::size_t endOfColumns(std::string_view text, std::size_t width) {
    const InUtf8 locale;
    std::size_t columns = 0;
    std::size_t end = 0;
    while (end < text.size()) {
        const Character next = firstCharacter(text.substr(end), locale);
        if (columns + next.columns > width) {
            break;
        }
        columns += next.columns;
        end += next.bytes;
    }
    return end;
}

}  // namespace tools
