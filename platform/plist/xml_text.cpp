// The text of one element: runs of characters, references, CDATA sections, with comments inside passed over.
#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "platform/plist/xml_character.h"
#include "platform/plist/xml_scanner.h"

namespace ksw::plist {
namespace {

constexpr std::string_view kSectionStart = "<![CDATA[";
constexpr std::string_view kSectionEnd = "]]>";

/// How far the semicolon of a reference may be: valid ones are short, but for leading zeros.
constexpr std::size_t kReferenceMax = 64;

constexpr std::array<std::pair<std::string_view, char32_t>, 5> kEntities{
    {{"amp", U'&'}, {"lt", U'<'}, {"gt", U'>'}, {"quot", U'"'}, {"apos", U'\''}}};

bool isSpecial(char character) {
    return character == '<' || character == '&' || character == '\r';
}

/// The character of "#65" or "#x41"; absent when it is not a number, or not one of XML's characters.
std::optional<char32_t> numbered(std::string_view name) {
    const bool hex = name.starts_with("#x");
    const std::string_view digits = name.substr(hex ? 2 : 1);
    std::uint32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, failure] = std::from_chars(digits.data(), end, number, hex ? 16 : 10);
    if (failure != std::errc() || stop != end || !isXmlCharacter(number)) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

Result<std::string_view> XmlScanner::text(const Tag& start) {
    scratch_.clear();
    for (;;) {
        const std::size_t from = position_;
        while (!atEnd() && !isSpecial(input_[position_])) {
            ++position_;
        }
        const std::string_view piece = input_.substr(from, position_ - from);
        if (const std::size_t bracket = piece.find(kSectionEnd); bracket != std::string_view::npos) {
            return errorAt(from + bracket, {FormatError::Malformed, "end of a CDATA section without a start"});
        }
        if (atEnd()) {
            return errorAt(start.offset, {FormatError::Malformed, "element without an end"});
        }
        const bool ends = startsWith("</");
        if (ends && scratch_.empty()) {
            auto ended = finish(start);
            return ended ? Result<std::string_view>(piece) : Result<std::string_view>(ended.error());
        }
        Status passed = addPiece(piece);
        if (passed) {
            passed = ends ? finish(start) : special();
        }
        if (!passed) {
            return passed.error();
        }
        if (ends) {
            return std::string_view(scratch_);
        }
    }
}

/// What interrupts a run of characters, other than the end tag.
Status XmlScanner::special() {
    if (startsWith("&")) {
        return reference();
    }
    if (startsWith("\r")) {
        position_ += startsWith("\r\n") ? 2U : 1U;
        return addPiece("\n");
    }
    if (startsWith("<!--")) {
        return passComment();
    }
    if (startsWith("<?")) {
        return passInstruction();
    }
    if (startsWith(kSectionStart)) {
        return section();
    }
    return malformed("an element inside one that holds text");
}

Status XmlScanner::section() {
    const std::size_t end = input_.find(kSectionEnd, position_);
    if (end == std::string_view::npos) {
        return malformed("CDATA section without an end");
    }
    std::size_t from = position_ + kSectionStart.size();
    while (from < end) {
        const std::size_t stop = std::min(input_.find('\r', from), end);
        if (auto added = addPiece(input_.substr(from, stop - from)); !added) {
            return added;
        }
        from = stop;
        if (from < end) {
            from += input_.substr(from, 2) == "\r\n" ? 2U : 1U;
            if (auto added = addPiece("\n"); !added) {
                return added;
            }
        }
    }
    position_ = end + kSectionEnd.size();
    return {};
}

Status XmlScanner::reference() {
    const std::string_view ahead = input_.substr(position_ + 1, kReferenceMax);
    const std::size_t length = ahead.find(';');
    const std::string_view name = ahead.substr(0, length);
    if (length == std::string_view::npos || name.empty()) {
        return malformed("an ampersand that begins no reference");
    }
    std::optional<char32_t> character;
    if (name.starts_with('#')) {
        character = numbered(name);
        if (!character) {
            return malformed("a numbered character that XML does not allow");
        }
    }
    for (const auto& [entity, meaning] : kEntities) {
        if (name == entity) {
            character = meaning;
        }
    }
    if (!character) {
        return fail(FormatError::Unsupported, "an entity beyond the five");
    }
    std::string encoded;
    appendUtf8(encoded, *character);
    if (auto added = addPiece(encoded); !added) {
        return added;
    }
    position_ += length + 2;
    return {};
}

Status XmlScanner::addPiece(std::string_view piece) {
    const std::size_t needed = scratch_.size() + piece.size();
    if (needed > limits::kStringMax) {
        return errorAt(position_, kTooLong);
    }
    if (!budget_.makeRoom(scratch_, needed)) {
        return errorAt(position_, kTooMuchHeap);
    }
    scratch_ += piece;
    return {};
}

/// Passes the end tag, which must be that of `start`.
Status XmlScanner::finish(const Tag& start) {
    auto end = tag();
    if (!end) {
        return end.error();
    }
    if (end->name != start.name) {
        return errorAt(end->offset, {FormatError::Malformed, "the end tag of another element"});
    }
    return {};
}

}  // namespace ksw::plist
