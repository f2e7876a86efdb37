// xml_reader.h: values from the XML form.
#pragma once

#include <kestrelwood/values/value.h>

#include "platform/base/result.h"
#include "platform/plist/budget.h"
#include "platform/plist/builder.h"
#include "platform/plist/xml_scalars.h"
#include "platform/plist/xml_scanner.h"

namespace ksw::plist {

/// Reads one document, once. For one thread; the input is borrowed for the reader's life.
class XmlReader {
public:
    explicit XmlReader(Bytes input)
        : budget_(input.size()), scanner_(input, budget_), builder_(budget_), end_(input.size()) {}

    Result<Value> run();

private:
    enum class Element { Array, Data, Date, Dictionary, False, Integer, Key, List, Real, String, True };
    struct Name;
    static const Name kNames[];
    static std::optional<Element> elementNamed(std::string_view name);

    Status openList();
    Result<bool> step();
    Status closeList(const Tag& end);
    Status start(const Tag& tag, Element element);
    Status end(const Tag& tag);
    Status open(const Tag& tag, Builder::Kind kind);
    Check leaf(Element element, std::string_view text);
    Parsed parse(Element element, std::string_view text);

    Error malformed(std::size_t offset, std::string_view text) const {
        return scanner_.errorAt(offset, {FormatError::Malformed, text});
    }
    Status checked(const Tag& tag, const Check& check) const {
        return check ? Status(scanner_.errorAt(tag.offset, *check)) : Status();
    }

    Budget budget_;
    XmlScanner scanner_;
    Builder builder_;
    std::size_t end_;
};

}  // namespace ksw::plist
