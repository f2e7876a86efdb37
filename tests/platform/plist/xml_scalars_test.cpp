#include <cmath>
#include <limits>

#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

Result<Value> readElement(std::string_view element, std::string_view text) {
    std::string markup = "<";
    markup.append(element).append(">").append(text).append("</").append(element).append(">");
    return readMarkup(markup);
}

double realOf(std::string_view text) {
    const Value value = valueOf(readElement("real", text));
    const double* number = value.as<double>();
    EXPECT_NE(number, nullptr) << text;
    return number == nullptr ? 0 : *number;
}

TEST(AnXmlInteger, IsDecimalOrHexadecimalWithOrWithoutSign) {
    EXPECT_EQ(valueOf(readElement("integer", "42")), Value(42));
    EXPECT_EQ(valueOf(readElement("integer", " \n-42\t")), Value(-42));
    EXPECT_EQ(valueOf(readElement("integer", "+007")), Value(7));
    EXPECT_EQ(valueOf(readElement("integer", "0xFf")), Value(255));
    EXPECT_EQ(valueOf(readElement("integer", "-0X10")), Value(-16));
    EXPECT_EQ(valueOf(readElement("integer", "-0")), Value(0));
}

TEST(AnXmlInteger, ReachesFromTheLeastSignedToTheGreatestUnsigned) {
    EXPECT_EQ(valueOf(readElement("integer", "-9223372036854775808")), Value(INT64_MIN));
    EXPECT_EQ(valueOf(readElement("integer", "9223372036854775807")), Value(INT64_MAX));
    EXPECT_EQ(valueOf(readElement("integer", "9223372036854775808")), Value(std::uint64_t{1} << 63U));
    EXPECT_EQ(valueOf(readElement("integer", "18446744073709551615")), Value(UINT64_MAX));
    EXPECT_EQ(valueOf(readElement("integer", "0xFFFFFFFFFFFFFFFF")), Value(UINT64_MAX));
    EXPECT_EQ(valueOf(readElement("integer", "-0x8000000000000000")), Value(INT64_MIN));
}

TEST(AnXmlInteger, IsRefusedOneBeyondItsRange) {
    for (const char* text : {"18446744073709551616", "-9223372036854775809", "0x10000000000000000",
                             "-0x8000000000000001", "99999999999999999999999999"}) {
        expectRefused(readElement("integer", text), FormatError::LimitPassed,
                      "line 1, column 22: integer out of range");
    }
}

TEST(AnXmlInteger, IsRefusedWhenItIsNone) {
    for (const char* text :
         {"", " ", "-", "+-1", "--1", "1 2", "1.0", "0x", "0x-1", "abc", "1a", "0xg", "&#x661;"}) {
        expectRefused(readElement("integer", text), FormatError::Malformed, "not an integer");
    }
    expectRefused(readMarkup("<integer/>"), FormatError::Malformed, "not an integer");
}

TEST(AnXmlReal, IsADecimalFraction) {
    EXPECT_EQ(realOf("1.5"), 1.5);
    EXPECT_EQ(realOf(" -1e3 "), -1000);
    EXPECT_EQ(realOf("+.5E-1"), 0.05);
    EXPECT_EQ(realOf("7"), 7);
    EXPECT_EQ(realOf("1."), 1);
    EXPECT_TRUE(std::signbit(realOf("-0.0")));
    EXPECT_EQ(realOf("5e-324"), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(realOf("1.7976931348623157e308"), std::numeric_limits<double>::max());
}

TEST(AnXmlReal, MayBeInfiniteOrNoNumber) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(realOf("inf"), kInfinity);
    EXPECT_EQ(realOf("+infinity"), kInfinity);
    EXPECT_EQ(realOf("-Infinity"), -kInfinity);
    EXPECT_EQ(realOf("-INF"), -kInfinity);
    EXPECT_TRUE(std::isnan(realOf("nan")));
    EXPECT_TRUE(std::isnan(realOf("NaN")));
}

TEST(AnXmlReal, IsRefusedBeyondADouble) {
    for (const char* text : {"1e309", "-1e999", "1e-400"}) {
        expectRefused(readElement("real", text), FormatError::LimitPassed, "number out of range");
    }
}

TEST(AnXmlReal, IsRefusedWhenItIsNone) {
    for (const char* text :
         {"", "-", "--1", "+-1", "1,5", "0x1p3", "nan(1)", "infinit", "1e", "e1", ".", "1.5f", "1 2"}) {
        expectRefused(readElement("real", text), FormatError::Malformed, "not a number");
    }
}

TEST(AnXmlDate, IsInUtcWithWholeSeconds) {
    EXPECT_EQ(valueOf(readElement("date", "2001-01-01T00:00:00Z")), Value(Date{0}));
    EXPECT_EQ(valueOf(readElement("date", " 1970-01-01T00:00:01Z\n")), Value(Date{-978'307'199}));
    EXPECT_EQ(valueOf(readElement("date", "2000-02-29T23:59:59Z")), Value(Date{-26'438'401}));
}

TEST(AnXmlDate, IsRefusedWhenItIsNone) {
    for (const char* text : {"", "2001-01-01", "2001-01-01 00:00:00 +0000", "2001-02-29T00:00:00Z",
                             "2001-01-01T24:00:00Z", "2001-01-01T00:00:00+01:00", "2001-01-01T00:00:00.5Z"}) {
        expectRefused(readElement("date", text), FormatError::Malformed, "not a date in UTC with whole seconds");
    }
}

TEST(XmlData, IsBase64WithWhiteSpaceAnywhere) {
    EXPECT_EQ(valueOf(readElement("data", "AAEC\n\t/+ 8 =")), Value(Data{0, 1, 2, 0xFF, 0xEF}));
    EXPECT_EQ(valueOf(readElement("data", "QQ==")), Value(Data{'A'}));
    EXPECT_EQ(valueOf(readElement("data", "QUI=")), Value(Data{'A', 'B'}));
    EXPECT_EQ(valueOf(readElement("data", "QUJD")), Value(Data{'A', 'B', 'C'}));
    EXPECT_EQ(valueOf(readElement("data", " ")), Value(Data()));
}

TEST(XmlData, IsRefusedWhenItIsNotBase64) {
    for (const char* text : {"Q", "QQ", "QQ=", "QQ===", "QUJ", "Q===", "=",
                             "====", "QQ==QQ==", "QR==", "QUJ=", "Q-__", "QQ=Q", "QUI=="}) {
        expectRefused(readElement("data", text), FormatError::Malformed, "not base64");
    }
}

}  // namespace
}  // namespace ksw::plist
