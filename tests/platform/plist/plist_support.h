// plist_support.h: property lists by hand, and the error that a reading must end with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform/plist/property_list.h"

namespace ksw::plist {

inline Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string textOf(const Data& data) {
    return {data.begin(), data.end()};
}

/// A document around one value's markup.
inline std::string document(std::string_view markup) {
    return std::string("<plist version=\"1.0\">").append(markup).append("</plist>");
}

inline Result<Value> readText(std::string_view text) {
    return readXml(bytesOf(text));
}
inline Result<Value> readMarkup(std::string_view markup) {
    return readText(document(markup));
}

/// The value of a reading that must succeed.
inline Value valueOf(const Result<Value>& result) {
    if (!result) {
        ADD_FAILURE() << result.error().description();
        return {};
    }
    return *result;
}

/// Expects the error's code and that its text contains `part`.
template <class T>
void expectRefused(const Result<T>& result, FormatError code, std::string_view part) {
    ASSERT_FALSE(result.ok()) << "no error, but one with: " << part;
    EXPECT_EQ(result.error().domain(), kFormatErrorDomain);
    EXPECT_EQ(result.error().code(), static_cast<std::int64_t>(code)) << result.error().description();
    EXPECT_NE(result.error().localizedDescription().find(part), std::string_view::npos)
        << result.error().description() << " lacks: " << part;
}

/// A binary property list, put together object by object. Sizes and trailer may be made wrong.
struct BinaryList {
    std::vector<std::string> objects;
    std::uint64_t root = 0;
    std::uint8_t offsetSize = 2;
    std::uint8_t referenceSize = 1;
    std::string magic = "bplist00";
    std::string behindObjects;

    static std::string number(std::uint64_t value, std::size_t size) {
        std::string bytes;
        for (std::size_t index = size; index-- > 0;) {
            bytes.push_back(index >= 8 ? '\0' : static_cast<char>(value >> (8U * index)));
        }
        return bytes;
    }

    std::string bytes() const {
        std::string out = magic;
        std::string table;
        for (const std::string& object : objects) {
            table += number(out.size(), offsetSize);
            out += object;
        }
        return finish(std::move(out), table, objects.size());
    }

    std::string finish(std::string out, const std::string& table, std::uint64_t count) const {
        out += behindObjects;
        const std::uint64_t tableStart = out.size();
        out += table;
        out += std::string(6, '\0') + number(offsetSize, 1) + number(referenceSize, 1);
        out += number(count, 8) + number(root, 8) + number(tableStart, 8);
        return out;
    }

    Result<Value> read() const { return readBinary(bytesOf(bytes())); }
};

/// A list of one object.
inline Result<Value> readObject(std::string object) {
    BinaryList list;
    list.objects = {std::move(object)};
    return list.read();
}

/// The bytes of a literal that may contain zeros.
template <std::size_t Size>
std::string raw(const char (&literal)[Size]) {
    return std::string(literal, Size - 1);
}

}  // namespace ksw::plist
