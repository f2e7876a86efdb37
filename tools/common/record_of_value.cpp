// What property-list values look like as records.
#include <string>
#include <string_view>
#include <variant>

#include "tools/common/record.h"

namespace tools {
namespace {

std::string hexadecimal(const ksw::Data& bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

/// "2001-01-01T00:00:00Z", as RFC 3339 has it; what is no date the library says in words.
std::string instant(const ksw::Date& date) {
    constexpr std::string_view kZone = " +0000";
    std::string text = date.string();
    if (text.ends_with(kZone)) {
        text.replace(text.size() - kZone.size(), kZone.size(), "Z");
        text[text.find(' ')] = 'T';
    }
    return text;
}

/// One overload for each kind of value.
struct AsRecord {
    Record operator()(std::monostate) const { return nullptr; }
    Record operator()(const ksw::Data& bytes) const { return hexadecimal(bytes); }
    Record operator()(const ksw::Date& date) const { return instant(date); }
    Record operator()(const ksw::Error& error) const { return error.description(); }
    Record operator()(const ksw::Dictionary& dictionary) const { return recordOf(dictionary); }
    Record operator()(const ksw::Array& array) const {
        Record list = Record::array();
        for (const ksw::Value& element : array) {
            list.push_back(recordOf(element));
        }
        return list;
    }
    template <class Plain>
    Record operator()(const Plain& plain) const {
        return plain;
    }
};

}  // namespace

Record recordOf(const ksw::Value& value) {
    return std::visit(AsRecord{}, value.storage());
}

Record recordOf(const ksw::Dictionary& dictionary) {
    Record object = Record::object();
    // The keys differ, so none is searched for; looking each up would take the square of their number.
    auto& fields = object.get_ref<Record::object_t&>();
    for (const auto& [key, value] : dictionary) {
        fields.emplace_back(key, recordOf(value));
    }
    return object;
}

}  // namespace tools
