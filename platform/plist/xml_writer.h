// xml_writer.h: the XML form of values.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <kestrelwood/values/value.h>

#include "platform/plist/value_walk.h"

namespace ksw::plist {

/// Writes one document while it is walked through a value. For one thread.
class XmlWriter final : public ValueVisitor {
public:
    XmlWriter();

    Check scalar(const Value& value) override;
    Check beginArray(const Array& array) override;
    Check beginDictionary(const Dictionary& dictionary) override;
    Check key(const std::string& key) override;
    void endArray() override { end("array"); }
    void endDictionary() override { end("dict"); }

    /// Ends the document and hands it out.
    Data finish();

private:
    void begin(std::string_view element, bool empty);
    void end(std::string_view element);
    void indent() { out_.append(depth_, '\t'); }
    void line(std::string_view element, std::string_view text);
    Check text(std::string_view element, std::string_view text);
    Check date(Date date);
    void data(Bytes bytes);

    std::string out_;
    std::size_t depth_ = 0;
    /// Whether the container just begun was written closed, having no elements.
    bool closed_ = false;
};

}  // namespace ksw::plist
