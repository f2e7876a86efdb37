// What may stand before the first element: byte order mark, XML declaration, document type line.
#include <algorithm>
#include <array>

#include "platform/plist/xml_character.h"
#include "platform/plist/xml_scanner.h"

namespace ksw::plist {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::array<std::string_view, 2> kUtf16Marks{"\xFE\xFF", "\xFF\xFE"};
constexpr std::string_view kDeclaration = "<?xml";
constexpr std::string_view kDocumentType = "<!DOCTYPE";

/// The parts of an XML declaration, in the order that they must have.
constexpr std::array<std::string_view, 3> kDeclarationParts{"version", "encoding", "standalone"};

bool equalsIgnoringCase(std::string_view text, std::string_view lower) {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(), [](char left, char right) {
        return (left >= 'A' && left <= 'Z' ? left - 'A' + 'a' : left) == right;
    });
}

}  // namespace

Status XmlScanner::begin(std::string_view attributed, std::string_view attribute) {
    attributedElement_ = attributed;
    attributeName_ = attribute;
    if (auto checked = checkCharacters(); !checked) {
        return checked;
    }
    if (startsWith(kByteOrderMark)) {
        position_ += kByteOrderMark.size();
    }
    if (startsWith(kDeclaration) && input_.size() - position_ > kDeclaration.size() &&
        isWhiteSpace(input_[position_ + kDeclaration.size()])) {
        if (auto declared = declaration(); !declared) {
            return declared;
        }
    }
    auto more = passMiscellany();
    if (!more) {
        return more.error();
    }
    return startsWith(kDocumentType) ? documentType() : Status();
}

Status XmlScanner::checkCharacters() const {
    if (std::any_of(kUtf16Marks.begin(), kUtf16Marks.end(),
                    [&](std::string_view mark) { return input_.starts_with(mark); })) {
        return errorAt(0, {FormatError::Unsupported, "text in UTF-16; only UTF-8 is read"});
    }
    std::size_t position = 0;
    while (position < input_.size()) {
        const auto byte = static_cast<unsigned char>(input_[position]);
        if (byte >= 0x20 && byte < 0x80) {
            ++position;
            continue;
        }
        const std::size_t start = position;
        const auto character = decodeUtf8(input_, position);
        if (!character) {
            return errorAt(start, {FormatError::Malformed, "bytes that are not UTF-8"});
        }
        if (!isXmlCharacter(*character)) {
            return errorAt(start, {FormatError::Malformed, "a character that XML does not allow"});
        }
    }
    return {};
}

Status XmlScanner::declaration() {
    position_ += kDeclaration.size();
    std::size_t next = 0;
    for (;;) {
        const bool separated = passWhiteSpace();
        if (startsWith("?>")) {
            position_ += 2;
            return next == 0 ? malformed("XML declaration without a version") : Status();
        }
        auto part = attribute();
        if (!part) {
            return part.error();
        }
        const auto place = std::find(kDeclarationParts.begin(), kDeclarationParts.end(), part->name);
        const auto index = static_cast<std::size_t>(place - kDeclarationParts.begin());
        const bool inOrder = next == 0 ? index == 0 : index >= next && index < kDeclarationParts.size();
        if (!separated || !inOrder) {
            return errorAt(part->offset, {FormatError::Malformed, "XML declaration out of order"});
        }
        next = index + 1;
        if (auto declared = declare(*part); !declared) {
            return declared;
        }
    }
}

Status XmlScanner::declare(const Attribute& attribute) {
    if (attribute.name == "version" && attribute.value != "1.0") {
        return errorAt(attribute.offset, {FormatError::Unsupported, "only version 1.0 of XML is read"});
    }
    if (attribute.name == "encoding" && !equalsIgnoringCase(attribute.value, "utf-8") &&
        !equalsIgnoringCase(attribute.value, "us-ascii")) {
        return errorAt(attribute.offset, {FormatError::Unsupported, "an encoding other than UTF-8"});
    }
    if (attribute.name == "standalone" && attribute.value != "yes" && attribute.value != "no") {
        return errorAt(attribute.offset, {FormatError::Malformed, "standalone is neither yes nor no"});
    }
    return {};
}

/// Passes the line over without reading what it names. Brackets inside quotes are part of a name.
Status XmlScanner::documentType() {
    const std::size_t start = position_;
    position_ += kDocumentType.size();
    if (!passWhiteSpace() || name().empty()) {
        return malformed("document type line without a name");
    }
    while (!atEnd() && input_[position_] != '>') {
        const char character = input_[position_];
        if (character == '[') {
            return fail(FormatError::Unsupported, "internal subset of a document type");
        }
        if (character == '<') {
            return malformed("markup inside the document type line");
        }
        if (character == '"' || character == '\'') {
            position_ = std::min(input_.find(character, position_ + 1), input_.size() - 1);
        }
        ++position_;
    }
    if (atEnd()) {
        position_ = start;
        return malformed("document type line without an end");
    }
    ++position_;
    return {};
}

}  // namespace ksw::plist
