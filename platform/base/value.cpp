#include <kestrelwood/values/value.h>

#include "platform/base/numbers.h"

namespace ksw {

namespace {

/// Appends the text of each kind of value.
class Describer {
public:
    explicit Describer(std::string& text) : text_(text) {}

    void operator()(std::monostate) { text_ += "(null)"; }
    void operator()(bool value) { text_ += value ? '1' : '0'; }
    void operator()(std::int64_t value) { text_ += std::to_string(value); }
    void operator()(std::uint64_t value) { text_ += std::to_string(value); }
    void operator()(double value) { text_ += shortestText(value); }
    void operator()(const std::string& value) { text_ += value; }
    void operator()(const Data& value) { text_ += describe(Bytes(value)); }
    void operator()(const Date& value) { text_ += value.string(); }
    void operator()(const Error& value) { text_ += value.description(); }

    void operator()(const Array& values) {
        text_ += '(';
        const char* separator = "";
        for (const Value& value : values) {
            text_ += separator;
            separator = ", ";
            std::visit(*this, value.storage());
        }
        text_ += ')';
    }

    void operator()(const Dictionary& dictionary) {
        text_ += '{';
        const char* separator = "";
        for (const auto& [key, value] : dictionary) {
            text_ += separator;
            separator = "; ";
            text_ += key;
            text_ += " = ";
            std::visit(*this, value.storage());
        }
        text_ += '}';
    }

private:
    std::string& text_;
};

}  // namespace

std::string describe(const Value& value) {
    std::string text;
    std::visit(Describer(text), value.storage());
    return text;
}

std::string describe(const Dictionary& dictionary) {
    std::string text;
    Describer{text}(dictionary);
    return text;
}

}  // namespace ksw
