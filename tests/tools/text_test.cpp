#include "tools/common/text.h"
#include "tools/common/columns.h"
#include "tools/common/terminal.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using tools::printable;

TEST(PrintableText, KeepsOrdinaryCharactersOfEveryLength) {
    const std::string text = "plain caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x99\x82 ~";
    EXPECT_EQ(printable(text), text);
}

TEST(PrintableText, EscapesControlCharacters) {
    EXPECT_EQ(printable(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(printable("\x1b[2J\t\r\n\x1f"), "\\x1b[2J\\x09\\x0d\\x0a\\x1f");
    EXPECT_EQ(printable("\x7f"), "\\x7f");
    EXPECT_EQ(printable("\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0"), "\\u0080\\u009b\\u009f\xc2\xa0");
}

TEST(PrintableText, EscapesMarksThatTurnTheDirectionOfWriting) {
    EXPECT_EQ(printable("\xe2\x80\xae"), "\\u202e");
    EXPECT_EQ(printable("\xe2\x81\xa6\xe2\x81\xa9"), "\\u2066\\u2069");
    EXPECT_EQ(printable("\xd8\x9c\xe2\x80\x8e\xe2\x80\x8f"), "\\u061c\\u200e\\u200f");
}

TEST(PrintableText, EscapesSeparatorsOfLinesAndParagraphsAndTheByteOrderMark) {
    EXPECT_EQ(printable("\xe2\x80\xa8\xe2\x80\xa9\xef\xbb\xbf"), "\\u2028\\u2029\\ufeff");
}

TEST(PrintableText, DoublesTheBackslashSoThatNoEscapeCanBeForged) {
    EXPECT_EQ(printable("\\x1b"), "\\\\x1b");
}

TEST(PrintableText, KeepsTheBackslashOfWhatIsEscapedAlready) {
    EXPECT_EQ(printable("\\x1b\x1b", tools::Backslash::Kept), "\\x1b\\x1b");
}

TEST(PrintableText, EscapesBytesThatAreNotUtf8) {
    EXPECT_EQ(printable("\xff"), "\\xff");
    EXPECT_EQ(printable("\x9b"), "\\x9b");                             // a continuation without a lead
    EXPECT_EQ(printable("\xc3"), "\\xc3");                             // cut short
    EXPECT_EQ(printable("\xe2\x82x"), "\\xe2\\x82x");                  // cut short in the middle
    EXPECT_EQ(printable("\xc0\x9b"), "\\xc0\\x9b");                    // overlong
    EXPECT_EQ(printable("\xe0\x80\x9b"), "\\xe0\\x80\\x9b");           // overlong
    EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");           // a surrogate
    EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // beyond the last character
}

TEST(ALineOnATerminal, IsWholeWhereItFits) {
    EXPECT_EQ(tools::fitted("12345", 5), "12345");
    EXPECT_EQ(tools::fitted("\xe2\x82\xac\xe2\x82\xac", 2), "\xe2\x82\xac\xe2\x82\xac");
    EXPECT_EQ(tools::fitted("", 0), "");
}

TEST(ALineOnATerminal, EndsInDotsWhereItDoesNotFit) {
    EXPECT_EQ(tools::fitted("123456", 5), "12...");
    EXPECT_EQ(tools::fitted("\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac", 4), "\xe2\x82\xac...");
    EXPECT_EQ(tools::fitted("123456", 2), "..");
    EXPECT_EQ(tools::fitted("\u65e5\u672c\u8a9e", 5), "\u65e5...");
}

TEST(Columns, AreTwoForWideCharactersAndNoneForAccents) {
    EXPECT_EQ(tools::columnsOf("ab\u00e9\u20ac"), 4U);
    EXPECT_EQ(tools::columnsOf("\u65e5\ud55c\U0001f642"), 6U);
    EXPECT_EQ(tools::columnsOf("e\u0301"), 1U);
    EXPECT_EQ(tools::endOfColumns("\u65e5\u672c", 3), 3U);  // half a character is none
    EXPECT_EQ(tools::endOfColumns("e\u0301x", 1), 3U);
}

using Lines = std::vector<std::string>;

TEST(ARecordOnATerminal, GoesOnBelowItsValue) {
    EXPECT_EQ(tools::folded("name  one two three", 19, 6), (Lines{"name  one two three"}));
    EXPECT_EQ(tools::folded("name  one two three", 18, 6), (Lines{"name  one two", "      three"}));
    EXPECT_EQ(tools::folded("name  1234567890", 12, 6), (Lines{"name  123456", "      7890"}));
    EXPECT_EQ(tools::folded("name  \u65e5\u672c\u8a9e\u65e5", 13, 6),
              (Lines{"name  \u65e5\u672c\u8a9e", "      \u65e5"}));
    EXPECT_EQ(tools::folded("name  ", 12, 6), (Lines{"name"}));
    EXPECT_EQ(tools::folded("", 12, 6), (Lines{""}));
}

TEST(ARecordOnATerminal, BeginsFurtherToTheLeftWhereItWouldBecomeTooNarrow) {
    EXPECT_EQ(tools::folded("name  1234567890", 9, 6), (Lines{"name", "  1234567", "  890"}));
    EXPECT_EQ(tools::folded("\u65e5\u672c", 1, 6), (Lines{"\u65e5", "\u672c"}));
}

}  // namespace
