#include "tools/common/text.h"
#include "tools/common/terminal.h"

#include <string>

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
}

}  // namespace
