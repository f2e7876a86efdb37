#include "platform/plist/xml_reader.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ksw::plist {

struct XmlReader::Name {
    std::string_view name;
    Element element;
};

constexpr XmlReader::Name XmlReader::kNames[] = {
    {"key", Element::Key},         {"string", Element::String},   {"true", Element::True},
    {"false", Element::False},     {"dict", Element::Dictionary}, {"array", Element::Array},
    {"integer", Element::Integer}, {"real", Element::Real},       {"date", Element::Date},
    {"data", Element::Data},       {"plist", Element::List},
};

std::optional<XmlReader::Element> XmlReader::elementNamed(std::string_view name) {
    const auto* found =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const Name& row) { return row.name == name; });
    return found == std::end(kNames) ? std::nullopt : std::optional(found->element);
}

Result<Value> XmlReader::run() {
    if (auto opened = openList(); !opened) {
        return opened.error();
    }
    for (;;) {
        auto more = step();
        if (!more) {
            return more.error();
        }
        if (!*more) {
            return builder_.takeRoot();
        }
    }
}

Status XmlReader::openList() {
    if (auto begun = scanner_.begin("plist", "version"); !begun) {
        return begun;
    }
    auto tag = scanner_.nextTag();
    if (!tag) {
        return tag.error();
    }
    if (!*tag) {
        return malformed(end_, "no property list");
    }
    if ((*tag)->name != "plist" || (*tag)->kind == Tag::Kind::End) {
        return malformed((*tag)->offset, "<plist> was expected");
    }
    if ((*tag)->kind == Tag::Kind::SelfClosed) {
        return malformed((*tag)->offset, "a property list without a value");
    }
    return {};
}

/// Handles one tag. False: it was the end of the list, and nothing follows.
Result<bool> XmlReader::step() {
    auto next = scanner_.nextTag();
    if (!next) {
        return next.error();
    }
    if (!*next) {
        return malformed(end_, "the text ends inside the property list");
    }
    const Tag& tag = **next;
    const auto element = elementNamed(tag.name);
    if (!element) {
        return malformed(tag.offset, "unknown element");
    }
    const bool ends = tag.kind == Tag::Kind::End;
    const bool last = ends && builder_.depth() == 0;
    const Status handled = last ? closeList(tag) : ends ? end(tag) : start(tag, *element);
    return handled ? Result<bool>(!last) : Result<bool>(handled.error());
}

Status XmlReader::closeList(const Tag& end) {
    if (end.name != "plist") {
        return malformed(end.offset, "the end tag of another element");
    }
    if (!builder_.isFinished()) {
        return malformed(end.offset, "a property list without a value");
    }
    auto behind = scanner_.nextTag();
    if (!behind) {
        return behind.error();
    }
    return *behind ? Status(malformed((*behind)->offset, "an element behind the property list")) : Status();
}

Status XmlReader::end(const Tag& tag) {
    if (tag.name != (builder_.isDictionary() ? "dict" : "array")) {
        return malformed(tag.offset, "the end tag of another element");
    }
    if (builder_.hasKey()) {
        return malformed(tag.offset, "a key without a value");
    }
    return checked(tag, builder_.close());
}

Status XmlReader::start(const Tag& tag, Element element) {
    if (element == Element::List) {
        return malformed(tag.offset, "a property list inside another");
    }
    if (builder_.isFinished()) {
        return malformed(tag.offset, "a second value");
    }
    if ((element == Element::Key) != builder_.wantsKey()) {
        return malformed(tag.offset,
                         builder_.wantsKey() ? "<key> was expected" : "a key where a value was expected");
    }
    if (element == Element::Dictionary || element == Element::Array) {
        return open(tag, element == Element::Array ? Builder::Kind::Array : Builder::Kind::Dictionary);
    }
    std::string_view text;
    if (tag.kind == Tag::Kind::Start) {
        auto found = scanner_.text(tag);
        if (!found) {
            return found.error();
        }
        text = *found;
    }
    return checked(tag, element == Element::Key ? builder_.key(text) : leaf(element, text));
}

Status XmlReader::open(const Tag& tag, Builder::Kind kind) {
    if (auto check = builder_.open(kind)) {
        return checked(tag, check);
    }
    return tag.kind == Tag::Kind::SelfClosed ? checked(tag, builder_.close()) : Status();
}

Check XmlReader::leaf(Element element, std::string_view text) {
    if (element == Element::String) {
        return builder_.text(text);
    }
    Parsed parsed = parse(element, text);
    if (const Complaint* complaint = std::get_if<Complaint>(&parsed)) {
        return *complaint;
    }
    return builder_.scalar(std::move(std::get<Value>(parsed)));
}

Parsed XmlReader::parse(Element element, std::string_view text) {
    switch (element) {
        case Element::Integer:
            return parseInteger(text);
        case Element::Real:
            return parseReal(text);
        case Element::Date:
            return parseDate(text);
        case Element::Data:
            return budget_.takeHeap(dataSizeMax(text.size())) ? parseData(text) : Parsed(kTooMuchHeap);
        default:
            break;
    }
    if (!trimmed(text).empty()) {
        return Complaint{FormatError::Malformed, "text inside an element that holds none"};
    }
    return Value(element == Element::True);
}

}  // namespace ksw::plist
