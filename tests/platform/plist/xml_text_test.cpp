#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

Result<Value> readString(std::string_view text) {
    return readMarkup(std::string("<string>").append(text).append("</string>"));
}

TEST(XmlText, IsKeptAsItStands) {
    EXPECT_EQ(valueOf(readString(" a\n\tb \x7F ")), Value(" a\n\tb \x7F "));
    EXPECT_EQ(valueOf(readString("\xC3\xA4 \xE4\xB8\xAD \xF0\x9F\xA6\x85")),
              Value("\xC3\xA4 \xE4\xB8\xAD \xF0\x9F\xA6\x85"));
    EXPECT_EQ(valueOf(readString("]] > ]>")), Value("]] > ]>"));
}

TEST(XmlText, HasEveryLineEndAsALineFeed) {
    EXPECT_EQ(valueOf(readString("a\r\nb\rc\r\r\nd\n")), Value("a\nb\nc\n\nd\n"));
    EXPECT_EQ(valueOf(readString("<![CDATA[a\r\nb\rc\r]]>\n")), Value("a\nb\nc\n\n"));
}

TEST(XmlText, HasTheFiveEntities) {
    EXPECT_EQ(valueOf(readString("&lt;&gt;&amp;&quot;&apos;&amp;lt;")), Value("<>&\"'&lt;"));
}

TEST(XmlText, HasNumberedCharacters) {
    EXPECT_EQ(valueOf(readString("&#65;&#x42;&#xe4;&#x1F985;&#13;&#0000000065;")),
              Value("AB\xC3\xA4\xF0\x9F\xA6\x85\rA"));
    EXPECT_EQ(valueOf(readString("&#x10FFFF;&#xFFFD;&#xD7FF;&#xE000;")),
              Value("\xF4\x8F\xBF\xBF\xEF\xBF\xBD\xED\x9F\xBF\xEE\x80\x80"));
}

TEST(XmlText, IsRefusedForNumberedCharactersThatAreNone) {
    for (const std::string name : {"#0", "#8", "#x1F", "#xD800", "#xDFFF", "#xFFFE", "#xFFFF", "#x110000", "#",
                                   "#x", "#-65", "#+65", "#X41", "#x4g", "#99999999999", "# 65"}) {
        expectRefused(readString("&" + name + ";"), FormatError::Malformed,
                      "line 1, column 30: a numbered character that XML does not allow");
    }
}

TEST(XmlText, IsRefusedForAnotherEntity) {
    expectRefused(readString("&copy;"), FormatError::Unsupported, "line 1, column 30: an entity beyond the five");
    expectRefused(readString("&AMP;"), FormatError::Unsupported, "an entity beyond the five");
}

TEST(XmlText, IsRefusedForABareAmpersand) {
    expectRefused(readString("a & b"), FormatError::Malformed, "an ampersand that begins no reference");
    expectRefused(readString("&;"), FormatError::Malformed, "an ampersand that begins no reference");
}

TEST(XmlText, MayStandInSections) {
    EXPECT_EQ(valueOf(readString("<![CDATA[<a>&amp;]] >]]>")), Value("<a>&amp;]] >"));
    EXPECT_EQ(valueOf(readString("a<![CDATA[]]>b<![CDATA[c]]>")), Value("abc"));
    EXPECT_EQ(valueOf(readMarkup("<integer><![CDATA[4]]>2</integer>")), Value(42));
}

TEST(XmlText, IsRefusedForSectionsOutOfShape) {
    expectRefused(readString("<![CDATA[a"), FormatError::Malformed, "CDATA section without an end");
    expectRefused(readString("a]]>b"), FormatError::Malformed,
                  "line 1, column 31: end of a CDATA section without a start");
}

TEST(XmlText, IsRefusedWhenItIsNotUtf8) {
    for (const std::string bytes : {"\x80", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF",
                                    "\xE0\x80\x80", "\xF0\x80\x80\x80", "\xC3\x28"}) {
        expectRefused(readString(bytes), FormatError::Malformed, "line 1, column 30: bytes that are not UTF-8");
    }
}

TEST(XmlText, IsRefusedForControlCharacters) {
    for (const char character : {'\0', '\x01', '\x08', '\x0B', '\x1F'}) {
        expectRefused(readString(std::string(1, character)), FormatError::Malformed,
                      "a character that XML does not allow");
    }
    expectRefused(readString("\xEF\xBF\xBE"), FormatError::Malformed, "a character that XML does not allow");
}

}  // namespace
}  // namespace ksw::plist
