#include "platform/base/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace ksw {
namespace {

TEST(Utf8, IsAcceptedUpToTheLastCharacter) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_TRUE(isUtf8("plain"));
    EXPECT_TRUE(isUtf8("gr\xC3\xBC\xC3\x9F"));
    EXPECT_TRUE(isUtf8("\xEF\xBF\xBF"));
    EXPECT_TRUE(isUtf8("\xF4\x8F\xBF\xBF"));
}

TEST(Utf8, IsRefusedBeyondTheLastCharacter) {
    EXPECT_FALSE(isUtf8("\xF4\x90\x80\x80"));
    EXPECT_FALSE(isUtf8("\xF5\x80\x80\x80"));
    EXPECT_FALSE(isUtf8("\xFF"));
}

TEST(Utf8, IsRefusedWhereItIsLongerThanItNeedsToBe) {
    EXPECT_FALSE(isUtf8("\xC0\x80"));
    EXPECT_FALSE(isUtf8("\xE0\x9F\xBF"));
    EXPECT_FALSE(isUtf8("\xF0\x8F\xBF\xBF"));
}

TEST(Utf8, HasNoSurrogates) {
    EXPECT_TRUE(isUtf8("\xED\x9F\xBF"));
    EXPECT_FALSE(isUtf8("\xED\xA0\x80"));
    EXPECT_FALSE(isUtf8("\xED\xBF\xBF"));
}

TEST(Utf8, IsRefusedWhenItIsCutOff) {
    EXPECT_FALSE(isUtf8("\xC3"));
    EXPECT_FALSE(isUtf8("\xE2\x82"));
    EXPECT_FALSE(isUtf8("\xF0\x9F\x92"));
    EXPECT_FALSE(isUtf8("\x80"));
}

TEST(Utf8, IsFoundAtEveryPlaceOfALongText) {
    for (std::size_t place = 0; place < 40; ++place) {
        std::string text(40, 'a');
        text[place] = '\xFF';
        EXPECT_FALSE(isUtf8(text)) << place;
        text.replace(place, 1, "\xC3\xBC");
        EXPECT_TRUE(isUtf8(text)) << place;
    }
}

TEST(Utf8, ComesBackAsItWasWritten) {
    for (const char32_t character :
         {U'a', U'\x7F', U'\x80', U'\x7FF', U'\x800', U'\xFFFF', U'\x10000', U'\x10FFFF'}) {
        std::string text;
        appendUtf8(text, character);
        std::size_t position = 0;
        EXPECT_EQ(decodeUtf8(text, position), character);
        EXPECT_EQ(position, text.size());
    }
}

}  // namespace
}  // namespace ksw
