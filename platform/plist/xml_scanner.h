// xml_scanner.h: takes an XML text apart into tags and element texts. Knows no property list.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/data.h>

#include "platform/base/result.h"
#include "platform/plist/budget.h"
#include "platform/plist/complaint.h"

namespace ksw::plist {

/// A tag, its names borrowed from the input.
struct Tag {
    enum class Kind { Start, End, SelfClosed };

    Kind kind;
    std::string_view name;
    std::size_t offset;  ///< Of its "<", in bytes.
};

/// A cursor over one document. Comments and processing instructions never come out of it. For one thread; the
/// input is borrowed for the scanner's life.
class XmlScanner {
public:
    XmlScanner(Bytes input, Budget& budget);

    /// Checks that the input is UTF-8 of XML's characters and passes all that may stand before the first element.
    /// `attributed` is the one element that may carry an attribute, and `attribute` that attribute; its value is
    /// not looked at.
    Status begin(std::string_view attributed, std::string_view attribute);

    /// The next tag; absent at the end of the input. Text other than white space is an error.
    Result<std::optional<Tag>> nextTag();

    /// The text of the element whose start tag came last; passes its end tag. Borrowed until the next call.
    Result<std::string_view> text(const Tag& start);

    /// The error with line and column of the byte at `offset`.
    Error errorAt(std::size_t offset, Complaint complaint) const;

private:
    struct Attribute {
        std::string_view name;
        std::string_view value;
        std::size_t offset;
    };

    Status checkCharacters() const;
    Status declaration();
    Status declare(const Attribute& attribute);
    Status documentType();
    Result<bool> passMiscellany();
    Status passComment();
    Status passInstruction();
    Result<Tag> tag();
    Status tagAttributes(std::string_view name);
    Result<Attribute> attribute();
    std::string_view name();

    Status special();
    Status section();
    Status reference();
    Status addPiece(std::string_view piece);
    Status finish(const Tag& start);

    Error fail(FormatError code, std::string_view text) const { return errorAt(position_, {code, text}); }
    Error malformed(std::string_view text) const { return fail(FormatError::Malformed, text); }
    bool startsWith(std::string_view prefix) const { return input_.substr(position_).starts_with(prefix); }
    bool atEnd() const { return position_ == input_.size(); }
    bool passWhiteSpace();

    std::string_view input_;
    Budget& budget_;
    std::string_view attributedElement_;
    std::string_view attributeName_;
    std::size_t position_ = 0;
    /// Text that is not one piece of the input, put together here; its room is reused.
    std::string scratch_;
};

/// White space of XML: blank, tab, line feed, carriage return.
constexpr bool isWhiteSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

}  // namespace ksw::plist
