// The system's own value types, as a writer puts them: identifiers, URLs, dates, errors, property-list values.
#include <variant>

#include "platform/archive/cbor_writer.h"

namespace ksw::archive {

/// The head of an object of a class that has no table; two deeper when it answers true.
bool Writer::enterObject(std::string_view className, std::size_t keys) {
    if (!enter()) {
        return false;
    }
    if (!enter()) {
        leave();
        return false;
    }
    tag(kObjectTag);
    array(2);
    text(className);
    map(keys);
    return true;
}

void Writer::leaveObject() {
    leave();
    leave();
}

void Writer::uuid(const UUID& uuid) {
    tag(kUuidTag);
    bytes(uuid.bytes);
}

void Writer::url(const URL& url) {
    if (url.baseURL() == nullptr) {
        tag(kUrlTag);
        text(url.relativeString());
        return;
    }
    if (enterObject("URL", 2)) {
        text("relative");
        text(url.relativeString());
        text("base");
        this->url(url.baseURL()->absoluteURL());
        leaveObject();
    }
}

void Writer::date(Date date) {
    if (enterObject("Date", 1)) {
        text("seconds");
        real(date.secondsSinceReference);
        leaveObject();
    }
}

void Writer::error(const Error& error) {
    if (enterObject("Error", 3)) {
        text("domain");
        text(error.domain());
        text("code");
        integer(error.code());
        text("userInfo");
        dictionary(error.userInfo());
        leaveObject();
    }
}

void Writer::dictionary(const Dictionary& dictionary) {
    if (!enter()) {
        return;
    }
    map(dictionary.size());
    for (const auto& [key, one] : dictionary) {
        text(key);
        value(one);
    }
    leave();
}

void Writer::array(const Array& array) {
    if (!enter()) {
        return;
    }
    this->array(array.size());
    for (const Value& one : array) {
        value(one);
    }
    leave();
}

namespace {

/// Writes what a value holds.
struct ValueWriter {
    Writer& writer;

    void operator()(std::monostate) const { writer.null(); }
    void operator()(bool value) const { writer.boolean(value); }
    void operator()(std::int64_t value) const { writer.integer(value); }
    void operator()(std::uint64_t value) const { writer.unsignedInteger(value); }
    void operator()(double value) const { writer.real(value); }
    void operator()(const std::string& value) const { writer.text(value); }
    void operator()(const Data& value) const { writer.bytes(value); }
    void operator()(const Date& value) const { writer.date(value); }
    void operator()(const Array& value) const { writer.array(value); }
    void operator()(const Dictionary& value) const { writer.dictionary(value); }
    void operator()(const Error& value) const { writer.error(value); }
};

}  // namespace

void Writer::value(const Value& value) {
    std::visit(ValueWriter{*this}, value.storage());
}

}  // namespace ksw::archive
