#include "platform/base/limits.h"

#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

std::string repeated(std::string_view text, std::size_t times) {
    std::string out;
    for (std::size_t count = 0; count < times; ++count) {
        out += text;
    }
    return out;
}

std::string nestedMarkup(std::size_t depth) {
    return document(repeated("<array>", depth) + "<true/>" + repeated("</array>", depth));
}

BinaryList nestedList(std::size_t depth) {
    BinaryList list;
    for (std::size_t level = 1; level <= depth; ++level) {
        list.objects.push_back("\xA1" + std::string(1, static_cast<char>(level)));
    }
    list.objects.push_back("\x09");
    return list;
}

Value nestedValue(std::size_t depth) {
    Value value = true;
    for (std::size_t level = 0; level < depth; ++level) {
        Array array;
        array.push_back(std::move(value));
        value = std::move(array);
    }
    return value;
}

TEST(TheDepth, HasABound) {
    constexpr std::string_view kText = "nested too deep";
    EXPECT_EQ(valueOf(readText(nestedMarkup(limits::kDepthMax))), nestedValue(limits::kDepthMax));
    expectRefused(readText(nestedMarkup(limits::kDepthMax + 1)), FormatError::LimitPassed, kText);
    EXPECT_EQ(valueOf(nestedList(limits::kDepthMax).read()), nestedValue(limits::kDepthMax));
    expectRefused(nestedList(limits::kDepthMax + 1).read(), FormatError::LimitPassed, kText);
    EXPECT_TRUE(writeXml(nestedValue(limits::kDepthMax)).ok());
    expectRefused(writeXml(nestedValue(limits::kDepthMax + 1)), FormatError::LimitPassed, kText);
    EXPECT_TRUE(writeBinary(nestedValue(limits::kDepthMax)).ok());
    expectRefused(writeBinary(nestedValue(limits::kDepthMax + 1)), FormatError::LimitPassed, kText);
}

TEST(TheDepth, IsBoundedLongBeforeTheInputEnds) {
    expectRefused(readText("<plist>" + repeated("<array>", 200'000)), FormatError::LimitPassed, "nested too deep");
}

/// Elements with room in the budget for each.
constexpr std::string_view kElement = "<string>with room for an array to grow</string>";

TEST(TheNumberOfValues, HasABoundInXml) {
    const std::size_t most = limits::kObjectsMax - 1;
    EXPECT_TRUE(readMarkup("<array>" + repeated(kElement, most) + "</array>").ok());
    expectRefused(readMarkup("<array>" + repeated(kElement, most + 1) + "</array>"), FormatError::LimitPassed,
                  "too many values");
}

TEST(TheNumberOfValues, IncludesKeys) {
    std::string entries;
    for (std::size_t count = 0; count < (limits::kObjectsMax - 2) / 2; ++count) {
        entries += "<key>" + std::to_string(count) + "</key>" + std::string(kElement);
    }
    EXPECT_TRUE(readMarkup("<dict>" + entries + "</dict>").ok());
    EXPECT_TRUE(readMarkup("<array><dict>" + entries + "</dict></array>").ok());
    expectRefused(readMarkup("<array><dict>" + entries + "</dict><true/></array>"), FormatError::LimitPassed,
                  "too many values");
    expectRefused(readMarkup("<dict>" + entries + "<key>k</key><true/></dict>"), FormatError::LimitPassed,
                  "too many values");
}

/// An array whose elements are one shared object each or one of `objects` others; long gaps make room in the
/// budget.
BinaryList wideList(std::size_t elements, std::size_t objects) {
    BinaryList list;
    list.referenceSize = 2;
    list.offsetSize = 4;
    list.behindObjects = std::string(1'000'000, '\0');
    std::string references;
    for (std::size_t count = 0; count < elements; ++count) {
        references += BinaryList::number(1, 2);
    }
    list.objects = {"\xAF\x12" + BinaryList::number(elements, 4) + references};
    list.objects.resize(objects, "\x09");
    return list;
}

TEST(TheNumberOfValues, HasABoundInBinary) {
    EXPECT_TRUE(wideList(limits::kObjectsMax - 1, 2).read().ok());
    expectRefused(wideList(limits::kObjectsMax, 2).read(), FormatError::LimitPassed, "too many values");
}

TEST(TheNumberOfObjects, HasABoundInTheTrailer) {
    EXPECT_TRUE(wideList(1, limits::kObjectsMax).read().ok());
    expectRefused(wideList(1, limits::kObjectsMax + 1).read(), FormatError::LimitPassed,
                  "trailer: too many values");
}

TEST(TheNumberOfValues, HasABoundInWriting) {
    const Array most(limits::kObjectsMax - 1, Value(true));
    EXPECT_TRUE(writeXml(most).ok());
    EXPECT_TRUE(writeBinary(most).ok());
    const Array more(limits::kObjectsMax, Value(true));
    expectRefused(writeXml(more), FormatError::LimitPassed, "too many values");
    expectRefused(writeBinary(more), FormatError::LimitPassed, "too many values");
}

TEST(TheLengthOfAText, HasABoundInXml) {
    const std::string most(limits::kStringMax, 'a');
    EXPECT_TRUE(readMarkup("<string>" + most + "</string>").ok());
    expectRefused(readMarkup("<string>" + most + "a</string>"), FormatError::LimitPassed, "text or data too long");
    EXPECT_TRUE(readMarkup("<string>&amp;" + most.substr(1) + "</string>").ok());
    expectRefused(readMarkup("<string>&amp;" + most + "</string>"), FormatError::LimitPassed,
                  "text or data too long");
    expectRefused(readMarkup("<dict><key>" + most + "a</key><true/></dict>"), FormatError::LimitPassed,
                  "text or data too long");
}

TEST(TheLengthOfData, HasABoundInXml) {
    const std::string groups(limits::kStringMax / 3 * 4, 'A');
    static_assert(limits::kStringMax % 3 == 1);
    EXPECT_TRUE(readMarkup("<data>" + groups + "AA==</data>").ok());
    expectRefused(readMarkup("<data>" + groups + "AAA=</data>"), FormatError::LimitPassed, "text or data too long");
}

TEST(TheLengthOfTextAndData, HasABoundInBinary) {
    for (const char* head : {"\x4F\x12", "\x5F\x12"}) {
        for (const std::size_t more : {0U, 1U}) {
            BinaryList list;
            list.offsetSize = 4;
            list.objects = {head + BinaryList::number(limits::kStringMax + more, 4) +
                            std::string(limits::kStringMax + more, 'a')};
            if (more == 0) {
                EXPECT_TRUE(list.read().ok());
            } else {
                expectRefused(list.read(), FormatError::LimitPassed, "text or data too long");
            }
        }
    }
}

TEST(TheLengthOfTextAndData, HasABoundInWriting) {
    for (const auto write : {writeXml, writeBinary}) {
        EXPECT_TRUE(write(std::string(limits::kStringMax, 'a')).ok());
        expectRefused(write(std::string(limits::kStringMax + 1, 'a')), FormatError::LimitPassed,
                      "text or data too long");
        EXPECT_TRUE(write(Data(limits::kStringMax)).ok());
        expectRefused(write(Data(limits::kStringMax + 1)), FormatError::LimitPassed, "text or data too long");
    }
}

}  // namespace
}  // namespace ksw::plist
