// plist_tool: converts property lists between their forms, for tests in other languages. Answers requests on
// standard input until it ends. A request is the form wanted ("x" XML, "b" binary, "d" dump), a length of four
// bytes, big-endian, and a property list in either form. A reply is "+" and the list, or "-" and the reason,
// each with a length before it. A dump is JSON: every value is its type and its content, with texts and bytes in
// hexadecimal and floating numbers as their bits, so that nothing is lost.
#include <array>
#include <bit>
#include <cstdint>
#include <iostream>
#include <string>
#include <string_view>

#include "platform/plist/property_list.h"

namespace {

std::string hex(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4U];
        text += kDigits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return text;
}

std::string typed(std::string_view type, std::string_view content) {
    return std::string("[\"").append(type).append("\",\"").append(content).append("\"]");
}

std::string bits(std::string_view type, double number) {
    return typed(type, std::to_string(std::bit_cast<std::uint64_t>(number)));
}

/// Recursive, which a value's bounded depth permits.
std::string dump(const ksw::Value& value) {
    struct Dumper {
        std::string operator()(std::monostate) const { return typed("nothing", ""); }
        std::string operator()(bool truth) const { return typed("bool", truth ? "1" : "0"); }
        std::string operator()(std::int64_t number) const { return typed("int", std::to_string(number)); }
        std::string operator()(std::uint64_t number) const { return typed("int", std::to_string(number)); }
        std::string operator()(double number) const { return bits("real", number); }
        std::string operator()(const std::string& text) const { return typed("string", hex(text)); }
        std::string operator()(const ksw::Data& data) const {
            return typed("data", hex(std::string(data.begin(), data.end())));
        }
        std::string operator()(ksw::Date date) const { return bits("date", date.secondsSinceReference); }
        std::string operator()(const ksw::Array& array) const {
            std::string text;
            for (const ksw::Value& element : array) {
                text.append(text.empty() ? "" : ",").append(dump(element));
            }
            return std::string("[\"array\",[").append(text).append("]]");
        }
        std::string operator()(const ksw::Dictionary& dictionary) const {
            std::string text;
            for (const auto& [key, element] : dictionary) {
                text.append(text.empty() ? "" : ",").append("[\"").append(hex(key)).append("\",");
                text.append(dump(element)).append("]");
            }
            return std::string("[\"dict\",[").append(text).append("]]");
        }
        std::string operator()(const ksw::Error&) const { return typed("error", ""); }
    };
    return std::visit(Dumper(), value.storage());
}

void reply(char status, std::string_view content) {
    std::cout.put(status);
    for (unsigned shift : {24U, 16U, 8U, 0U}) {
        std::cout.put(static_cast<char>(content.size() >> shift));
    }
    std::cout << content << std::flush;
}

void answer(char form, std::string_view content) {
    const auto value = ksw::plist::read({reinterpret_cast<const std::uint8_t*>(content.data()), content.size()});
    if (!value) {
        return reply('-', value.error().localizedDescription());
    }
    if (form == 'd') {
        return reply('+', dump(*value));
    }
    const auto written = form == 'x' ? ksw::plist::writeXml(*value) : ksw::plist::writeBinary(*value);
    if (!written) {
        return reply('-', written.error().localizedDescription());
    }
    reply('+', {reinterpret_cast<const char*>(written->data()), written->size()});
}

}  // namespace

int main() {
    std::array<char, 5> head{};
    while (std::cin.read(head.data(), head.size())) {
        std::size_t length = 0;
        for (std::size_t index = 1; index < head.size(); ++index) {
            length = (length << 8U) | static_cast<unsigned char>(head[index]);
        }
        std::string content(length, '\0');
        if (!std::cin.read(content.data(), static_cast<std::streamsize>(length))) {
            return 1;
        }
        answer(head[0], content);
    }
    return 0;
}
