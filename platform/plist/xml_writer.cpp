#include "platform/plist/xml_writer.h"

#include <algorithm>
#include <variant>

#include "platform/base/base64.h"
#include "platform/base/limits.h"
#include "platform/plist/xml_character.h"
#include "platform/plist/xml_scalars.h"

namespace ksw::plist {
namespace {

constexpr std::string_view kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
constexpr std::string_view kTail = "</plist>\n";

/// Bytes on one line of base64: 76 characters, as mail has them (RFC 2045).
constexpr std::size_t kDataLineBytes = 57;

/// What stands for a character that markup or line-end handling would change; empty for any other.
std::string_view escaped(char character) {
    switch (character) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '\r':
            return "&#13;";
        default:
            return {};
    }
}

Check checkText(std::string_view text) {
    if (text.size() > limits::kStringMax) {
        return kTooLong;
    }
    std::size_t position = 0;
    while (position < text.size()) {
        const auto byte = static_cast<unsigned char>(text[position]);
        if (byte >= 0x20 && byte < 0x80) {
            ++position;
            continue;
        }
        const auto character = decodeUtf8(text, position);
        if (!character) {
            return Complaint{FormatError::Unsupported, "text that is not UTF-8"};
        }
        if (!isXmlCharacter(*character)) {
            return Complaint{FormatError::Unsupported, "a character that XML cannot hold"};
        }
    }
    return {};
}

}  // namespace

XmlWriter::XmlWriter() : out_(kHead) {}

Data XmlWriter::finish() {
    out_ += kTail;
    return Data(out_.begin(), out_.end());
}

Check XmlWriter::scalar(const Value& value) {
    if (const auto* string = value.as<std::string>()) {
        return text("string", *string);
    }
    if (const auto* point = value.as<Date>()) {
        return date(*point);
    }
    if (const auto* bytes = value.as<Data>()) {
        if (bytes->size() > limits::kStringMax) {
            return kTooLong;
        }
        data(*bytes);
    } else if (const auto* number = value.as<double>()) {
        std::string digits;
        appendReal(digits, *number);
        line("real", digits);
    } else if (const auto* truth = value.as<bool>()) {
        indent();
        out_ += *truth ? "<true/>\n" : "<false/>\n";
    } else if (const auto* large = value.as<std::uint64_t>()) {
        line("integer", std::to_string(*large));
    } else if (const auto* integer = value.as<std::int64_t>()) {
        line("integer", std::to_string(*integer));
    }
    return {};
}

Check XmlWriter::beginArray(const Array& array) {
    begin("array", array.empty());
    return {};
}

Check XmlWriter::beginDictionary(const Dictionary& dictionary) {
    begin("dict", dictionary.empty());
    return {};
}

Check XmlWriter::key(const std::string& key) {
    return text("key", key);
}

void XmlWriter::begin(std::string_view element, bool empty) {
    indent();
    out_.append("<").append(element).append(empty ? "/>\n" : ">\n");
    closed_ = empty;
    ++depth_;
}

void XmlWriter::end(std::string_view element) {
    --depth_;
    if (!closed_) {
        indent();
        out_.append("</").append(element).append(">\n");
    }
    closed_ = false;
}

void XmlWriter::line(std::string_view element, std::string_view text) {
    indent();
    out_.append("<").append(element).append(">").append(text);
    out_.append("</").append(element).append(">\n");
}

Check XmlWriter::text(std::string_view element, std::string_view text) {
    if (auto check = checkText(text)) {
        return check;
    }
    indent();
    out_.append("<").append(element).append(">");
    std::size_t from = 0;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (const std::string_view instead = escaped(text[index]); !instead.empty()) {
            out_.append(text.substr(from, index - from)).append(instead);
            from = index + 1;
        }
    }
    out_.append(text.substr(from)).append("</").append(element).append(">\n");
    return {};
}

Check XmlWriter::date(Date date) {
    std::string text;
    if (!appendDate(text, date)) {
        return Complaint{FormatError::Unsupported, "a date outside the years 0 to 9999"};
    }
    line("date", text);
    return {};
}

void XmlWriter::data(Bytes bytes) {
    indent();
    out_ += "<data>\n";
    for (std::size_t from = 0; from < bytes.size(); from += kDataLineBytes) {
        indent();
        const Bytes row = bytes.subspan(from, std::min(kDataLineBytes, bytes.size() - from));
        for (std::size_t group = 0; group < row.size(); group += 3) {
            appendBase64Group(out_, row.subspan(group, std::min<std::size_t>(3, row.size() - group)));
        }
        out_ += '\n';
    }
    indent();
    out_ += "</data>\n";
}

}  // namespace ksw::plist
