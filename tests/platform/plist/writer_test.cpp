#include <limits>

#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

std::string written(const Value& value) {
    auto result = writeXml(value);
    EXPECT_TRUE(result.ok()) << (result ? "" : result.error().description());
    return result ? textOf(*result) : "";
}

std::string writtenBinary(const Value& value) {
    auto result = writeBinary(value);
    EXPECT_TRUE(result.ok()) << (result ? "" : result.error().description());
    return result ? textOf(*result) : "";
}

std::string wrapped(std::string_view lines) {
    return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n")
        .append(lines)
        .append("</plist>\n");
}

/// One of everything that both forms hold without loss.
Value everything() {
    Data bytes(200);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<std::uint8_t>(index);
    }
    return Dictionary{
        {"array", Array{1, -1, Array(), Dictionary(), Array{Array{"deep"}}}},
        {"bytes", bytes},
        {"dates", Array{Date{0}, Date{-978'307'200}, Date{252'423'993'599}, Date{-63'145'526'400}}},
        {"integers", Array{INT64_MIN, INT64_MAX, UINT64_MAX, 0, 255, 256, 65'535, 65'536, 1LL << 32U}},
        {"reals", Array{0.1, -0.0, 1e300, std::numeric_limits<double>::infinity()}},
        {"text", "<&>\r\n\t\"' \xF0\x9F\xA6\x85]]>"},
        {"", true},
        {"\xC3\xA4", false}};
}

TEST(AnXmlWriter, IndentsByTabs) {
    EXPECT_EQ(written(Dictionary{{"a", Array{1, "x"}}, {"b", true}}),
              wrapped("<dict>\n\t<key>a</key>\n\t<array>\n\t\t<integer>1</integer>\n\t\t<string>x</string>\n"
                      "\t</array>\n\t<key>b</key>\n\t<true/>\n</dict>\n"));
}

TEST(AnXmlWriter, ClosesEmptyContainersAtOnce) {
    EXPECT_EQ(written(Array{Array(), Dictionary()}), wrapped("<array>\n\t<array/>\n\t<dict/>\n</array>\n"));
}

TEST(AnXmlWriter, EscapesWhatMarkupWouldChange) {
    EXPECT_EQ(written("a<b>&\"'\r"), wrapped("<string>a&lt;b&gt;&amp;\"'&#13;</string>\n"));
    EXPECT_EQ(written(Dictionary{{"<", false}}), wrapped("<dict>\n\t<key>&lt;</key>\n\t<false/>\n</dict>\n"));
}

TEST(AnXmlWriter, WritesNumbersShortest) {
    EXPECT_EQ(written(0.1), wrapped("<real>0.1</real>\n"));
    EXPECT_EQ(written(std::numeric_limits<double>::quiet_NaN()), wrapped("<real>nan</real>\n"));
    EXPECT_EQ(written(-std::numeric_limits<double>::infinity()), wrapped("<real>-inf</real>\n"));
    EXPECT_EQ(written(UINT64_MAX), wrapped("<integer>18446744073709551615</integer>\n"));
}

TEST(AnXmlWriter, BreaksDataIntoLines) {
    EXPECT_EQ(written(Data(58, 0)), wrapped("<data>\n" + std::string(76, 'A') + "\nAA==\n</data>\n"));
    EXPECT_EQ(written(Data()), wrapped("<data>\n</data>\n"));
}

TEST(AnXmlWriter, CutsDatesToWholeSeconds) {
    EXPECT_EQ(written(Date{0.75}), wrapped("<date>2001-01-01T00:00:00Z</date>\n"));
    EXPECT_EQ(written(Date{-0.25}), wrapped("<date>2000-12-31T23:59:59Z</date>\n"));
}

TEST(AnXmlWriter, RefusesDatesOutsideFourDigitYears) {
    EXPECT_EQ(written(Date{252'423'993'599}), wrapped("<date>9999-12-31T23:59:59Z</date>\n"));
    EXPECT_EQ(written(Date{-63'145'526'400}), wrapped("<date>0000-01-01T00:00:00Z</date>\n"));
    for (const double seconds :
         {252'423'993'600.0, -63'145'526'401.0, 1e300, std::numeric_limits<double>::infinity(),
          std::numeric_limits<double>::quiet_NaN()}) {
        expectRefused(writeXml(Date{seconds}), FormatError::Unsupported, "a date outside the years 0 to 9999");
    }
}

TEST(AnXmlWriter, RefusesCharactersThatXmlCannotHold) {
    for (const std::string& text : {raw("\0"), raw("\x1B"), raw("\xEF\xBF\xBF")}) {
        expectRefused(writeXml(text), FormatError::Unsupported,
                      "property list, at its root: a character that XML cannot hold");
        expectRefused(writeXml(Dictionary{{text, true}}), FormatError::Unsupported, "that XML cannot hold");
    }
}

TEST(AnXmlWriter, IsReadBack) {
    EXPECT_EQ(valueOf(readText(written(everything()))), everything());
}

TEST(ABinaryWriter, IsReadBack) {
    EXPECT_EQ(valueOf(readBinary(bytesOf(writtenBinary(everything())))), everything());
}

TEST(ABinaryWriter, KeepsFractionsOfDatesAndEveryCharacter) {
    const Value value = Array{Date{0.75}, std::string("\0\x1B\xEF\xBF\xBF", 5)};
    EXPECT_EQ(valueOf(readBinary(bytesOf(writtenBinary(value)))), value);
}

TEST(ABinaryWriter, LaysOutTheSmallestSizes) {
    EXPECT_EQ(writtenBinary(Dictionary{{"k", 7}}),
              "bplist00" + raw("\xD1\x01\x02\x51k\x10\x07\x08\x0B\x0D") + std::string(6, '\0') +
                  raw("\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0F"));
}

TEST(ABinaryWriter, WritesEqualScalarsOnce) {
    const std::string once = writtenBinary(Array{"repeated text"});
    const std::string often = writtenBinary(Array{"repeated text", "repeated text", "repeated text"});
    EXPECT_EQ(often.size(), once.size() + 2);
    EXPECT_EQ(valueOf(readBinary(bytesOf(often))), Value(Array(3, "repeated text")));
}

TEST(ABinaryWriter, KeepsEqualScalarsOfDifferentTypesApart) {
    const Value value = Array{1, 1.0, true, "1", Data{'1'}, Date{1}, 0.0, -0.0};
    EXPECT_EQ(describe(valueOf(readBinary(bytesOf(writtenBinary(value))))), describe(value));
    EXPECT_EQ(valueOf(readBinary(bytesOf(writtenBinary(value)))), value);
}

TEST(ABinaryWriter, WidensReferencesAndOffsetsWithTheObjects) {
    for (const int count : {254, 255, 256, 300, 5'000}) {
        Array array;
        for (int number = 0; number < count; ++number) {
            array.emplace_back(number);
        }
        const std::string bytes = writtenBinary(array);
        EXPECT_EQ(bytes[bytes.size() - 25], count <= 255 ? 1 : 2) << count;
        EXPECT_EQ(valueOf(readBinary(bytesOf(bytes))), Value(array)) << count;
    }
}

TEST(ABinaryWriter, RefusesADateThatIsNotAFiniteNumber) {
    expectRefused(writeBinary(Date{std::numeric_limits<double>::infinity()}), FormatError::Unsupported,
                  "a date that is not a finite number");
}

TEST(EachWriter, RefusesWhatHasNoFormAndNamesItsPlace) {
    const Value value = Dictionary{{"a", Array{1, Dictionary{{"b\n", Value()}}}}};
    for (const auto& result : {writeXml(value), writeBinary(value)}) {
        expectRefused(result, FormatError::Unsupported,
                      "property list, at /a/1/b?: nothing has no form in a property list");
    }
    const Value error = Array{Error(kPosixErrorDomain, 2)};
    for (const auto& result : {writeXml(error), writeBinary(error)}) {
        expectRefused(result, FormatError::Unsupported, "at /0: an error has no form in a property list");
    }
}

TEST(EachWriter, RefusesTextThatIsNotUtf8) {
    for (const Value& value : {Value("\xFF"), Value(Dictionary{{"\xC3", 1}}), Value("\xED\xA0\x80")}) {
        for (const auto& result : {writeXml(value), writeBinary(value)}) {
            expectRefused(result, FormatError::Unsupported, "text that is not UTF-8");
        }
    }
}

}  // namespace
}  // namespace ksw::plist
