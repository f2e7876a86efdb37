#include "platform/plist/xml_scanner.h"

namespace ksw::plist {
namespace {

bool isNameStart(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') || character == '_' ||
           character == ':' || static_cast<unsigned char>(character) >= 0x80;
}

bool isNameCharacter(char character) {
    return isNameStart(character) || (character >= '0' && character <= '9') || character == '-' || character == '.';
}

bool isContinuation(char character) {
    return (static_cast<unsigned char>(character) & 0xC0U) == 0x80U;
}

/// Whether the name is "xml" in any case; such names belong to XML itself.
bool isReserved(std::string_view name) {
    return name.size() == 3 && (name[0] | 0x20) == 'x' && (name[1] | 0x20) == 'm' && (name[2] | 0x20) == 'l';
}

}  // namespace

XmlScanner::XmlScanner(Bytes input, Budget& budget)
    : input_(reinterpret_cast<const char*>(input.data()), input.size()), budget_(budget) {}

Error XmlScanner::errorAt(std::size_t offset, Complaint complaint) const {
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t index = input_.starts_with("\xEF\xBB\xBF") ? 3 : 0; index < offset; ++index) {
        const char character = input_[index];
        const bool inPair = character == '\r' && index + 1 < input_.size() && input_[index + 1] == '\n';
        if (character == '\n' || (character == '\r' && !inPair)) {
            ++line;
            column = 1;
        } else if (!isContinuation(character)) {
            ++column;
        }
    }
    std::string text =
        "XML property list, line " + std::to_string(line) + ", column " + std::to_string(column) + ": ";
    text += complaint.text;
    return Error(complaint.code, text);
}

Result<std::optional<Tag>> XmlScanner::nextTag() {
    auto more = passMiscellany();
    if (!more) {
        return more.error();
    }
    if (!*more) {
        return std::optional<Tag>();
    }
    auto found = tag();
    if (!found) {
        return found.error();
    }
    return std::optional<Tag>(*found);
}

bool XmlScanner::passWhiteSpace() {
    const std::size_t before = position_;
    while (!atEnd() && isWhiteSpace(input_[position_])) {
        ++position_;
    }
    return position_ != before;
}

/// Whether the input goes on with a tag.
Result<bool> XmlScanner::passMiscellany() {
    for (;;) {
        passWhiteSpace();
        if (atEnd()) {
            return false;
        }
        if (input_[position_] != '<') {
            return malformed("text where an element was expected");
        }
        Status passed;
        if (startsWith("<!--")) {
            passed = passComment();
        } else if (startsWith("<?")) {
            passed = passInstruction();
        } else {
            return true;
        }
        if (!passed) {
            return passed.error();
        }
    }
}

Status XmlScanner::passComment() {
    const std::size_t end = input_.find("--", position_ + 4);
    if (end == std::string_view::npos) {
        return malformed("comment without an end");
    }
    if (input_.substr(end, 3) != "-->") {
        position_ = end;
        return malformed("two hyphens inside a comment");
    }
    position_ = end + 3;
    return {};
}

Status XmlScanner::passInstruction() {
    const std::size_t start = position_;
    position_ += 2;
    const std::string_view target = name();
    if (target.empty() || isReserved(target)) {
        position_ = start;
        return malformed(target.empty() ? "processing instruction without a target"
                                        : "XML declaration that is not at the beginning");
    }
    const std::size_t end = input_.find("?>", position_);
    if (end == std::string_view::npos || (end != position_ && !isWhiteSpace(input_[position_]))) {
        position_ = start;
        return malformed("processing instruction without an end");
    }
    position_ = end + 2;
    return {};
}

std::string_view XmlScanner::name() {
    const std::size_t start = position_;
    if (!atEnd() && isNameStart(input_[position_])) {
        do {
            ++position_;
        } while (!atEnd() && isNameCharacter(input_[position_]));
    }
    return input_.substr(start, position_ - start);
}

Result<Tag> XmlScanner::tag() {
    Tag found{Tag::Kind::Start, {}, position_};
    ++position_;
    if (startsWith("/")) {
        found.kind = Tag::Kind::End;
        ++position_;
    }
    found.name = name();
    if (found.name.empty()) {
        return errorAt(found.offset, {FormatError::Malformed, "a tag was expected"});
    }
    if (found.kind == Tag::Kind::Start) {
        if (auto passed = tagAttributes(found.name); !passed) {
            return passed.error();
        }
    }
    passWhiteSpace();
    if (found.kind == Tag::Kind::Start && startsWith("/")) {
        found.kind = Tag::Kind::SelfClosed;
        ++position_;
    }
    if (!startsWith(">")) {
        return malformed(atEnd() ? "the text ends inside a tag" : "the end of the tag was expected");
    }
    ++position_;
    return found;
}

Status XmlScanner::tagAttributes(std::string_view element) {
    for (std::size_t count = 0; passWhiteSpace() && !atEnd() && isNameStart(input_[position_]); ++count) {
        auto found = attribute();
        if (!found) {
            return found.error();
        }
        if (count != 0 || element != attributedElement_ || found->name != attributeName_) {
            return errorAt(found->offset, {FormatError::Malformed, "unexpected attribute"});
        }
    }
    return {};
}

/// `name = "value"`, either quote; a value without markup and references, which none of ours needs.
Result<XmlScanner::Attribute> XmlScanner::attribute() {
    Attribute found{{}, {}, position_};
    found.name = name();
    passWhiteSpace();
    if (found.name.empty() || !startsWith("=")) {
        return malformed("an attribute was expected");
    }
    ++position_;
    passWhiteSpace();
    const char quote = atEnd() ? '\0' : input_[position_];
    if (quote != '"' && quote != '\'') {
        return malformed("a quoted attribute value was expected");
    }
    ++position_;
    const std::size_t end = input_.find(quote, position_);
    if (end == std::string_view::npos) {
        return malformed("attribute value without an end");
    }
    found.value = input_.substr(position_, end - position_);
    if (found.value.find_first_of("<&") != std::string_view::npos) {
        return malformed("markup inside an attribute value");
    }
    position_ = end + 1;
    return found;
}

}  // namespace ksw::plist
