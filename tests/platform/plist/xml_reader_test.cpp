#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

TEST(AnXmlReader, ReadsAJob) {
    const Value job = valueOf(
        readText("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<!DOCTYPE plist SYSTEM \"plist.dtd\">\n"
                 "<plist version=\"1.0\">\n<dict>\n"
                 "\t<key>Label</key>\n\t<string>com.example.helper</string>\n"
                 "\t<key>ProgramArguments</key>\n\t<array><string>/bin/helper</string><string>-v</string></array>\n"
                 "\t<key>RunAtLoad</key>\n\t<true/>\n"
                 "\t<key>Nice</key>\n\t<integer>-5</integer>\n"
                 "</dict>\n</plist>\n"));
    const Dictionary expected{{"Label", "com.example.helper"},
                              {"ProgramArguments", Array{"/bin/helper", "-v"}},
                              {"RunAtLoad", true},
                              {"Nice", -5}};
    EXPECT_EQ(job, Value(expected));
}

TEST(AnXmlReader, ReadsEachEmptyElement) {
    EXPECT_EQ(valueOf(readMarkup("<dict/>")), Value(Dictionary()));
    EXPECT_EQ(valueOf(readMarkup("<array/>")), Value(Array()));
    EXPECT_EQ(valueOf(readMarkup("<string/>")), Value(""));
    EXPECT_EQ(valueOf(readMarkup("<data/>")), Value(Data()));
    EXPECT_EQ(valueOf(readMarkup("<dict></dict>")), Value(Dictionary()));
    EXPECT_EQ(valueOf(readMarkup("<array> </array>")), Value(Array()));
    EXPECT_EQ(valueOf(readMarkup("<string></string>")), Value(""));
    EXPECT_EQ(valueOf(readMarkup("<dict><key/><true/></dict>")), Value(Dictionary{{"", true}}));
}

TEST(AnXmlReader, ReadsTrueAndFalseWithAnEndTag) {
    EXPECT_EQ(valueOf(readMarkup("<array><true></true><false> </false></array>")), Value(Array{true, false}));
}

TEST(AnXmlReader, ReadsAListWithoutDeclarationOrVersion) {
    EXPECT_EQ(valueOf(readText("<plist><true/></plist>")), Value(true));
    EXPECT_EQ(valueOf(readText(" \n<plist ><true /></plist >\n ")), Value(true));
}

TEST(AnXmlReader, PassesOverCommentsAndInstructionsAnywhere) {
    EXPECT_EQ(valueOf(readText("<!-- a --><?do it?><!DOCTYPE plist><!----><plist><!-- <b> -->"
                               "<dict><?p?><key>k<!-- c --></key><!-- d --><string>a<?x y?>b</string></dict>"
                               "</plist><!-- end --><?done?>\n")),
              Value(Dictionary{{"k", "ab"}}));
}

TEST(AnXmlReader, NamesLineAndColumnOfWhatIsWrong) {
    expectRefused(readText("<plist>\n<dict>\n  <what/>\n</dict>\n</plist>"), FormatError::Malformed,
                  "XML property list, line 3, column 3: unknown element");
}

TEST(AnXmlReader, CountsColumnsInCharactersAndEveryLineEndOnce) {
    expectRefused(readText("\xEF\xBB\xBF<plist>\r\n\r<string>\xC3\xA4\xC3\xB6&no;"), FormatError::Unsupported,
                  "line 3, column 11:");
}

TEST(AnXmlReader, RefusesAnEmptyText) {
    expectRefused(readText(""), FormatError::Malformed, "line 1, column 1: no property list");
    expectRefused(readText(" \n"), FormatError::Malformed, "line 2, column 1: no property list");
}

TEST(AnXmlReader, RefusesAnotherRootElement) {
    expectRefused(readText("<dict/>"), FormatError::Malformed, "<plist> was expected");
    expectRefused(readText("</plist>"), FormatError::Malformed, "<plist> was expected");
}

TEST(AnXmlReader, RefusesAListWithoutAValue) {
    expectRefused(readText("<plist/>"), FormatError::Malformed, "a property list without a value");
    expectRefused(readText("<plist> </plist>"), FormatError::Malformed, "a property list without a value");
}

TEST(AnXmlReader, RefusesASecondValue) {
    expectRefused(readMarkup("<true/><false/>"), FormatError::Malformed, "a second value");
}

TEST(AnXmlReader, RefusesAListInsideAnother) {
    expectRefused(readMarkup("<plist><true/></plist>"), FormatError::Malformed, "a property list inside another");
}

TEST(AnXmlReader, RefusesWhatFollowsTheList) {
    expectRefused(readText("<plist><true/></plist><true/>"), FormatError::Malformed,
                  "an element behind the property list");
    expectRefused(readText("<plist><true/></plist>x"), FormatError::Malformed,
                  "text where an element was expected");
}

TEST(AnXmlReader, RefusesEachPrefixOfAList) {
    const std::string whole =
        "<plist version=\"1.0\"><dict><key>a&amp;</key><array><data>AAAA</data></array></dict></plist>";
    ASSERT_TRUE(readText(whole).ok());
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const auto result = readText(whole.substr(0, length));
        ASSERT_FALSE(result.ok()) << length;
        EXPECT_EQ(result.error().code(), static_cast<std::int64_t>(FormatError::Malformed)) << length;
    }
}

TEST(AnXmlReader, RefusesADuplicateKey) {
    expectRefused(readMarkup("<dict><key>a</key><true/><key>&#97;</key><true/></dict>"), FormatError::Malformed,
                  "line 1, column 47: duplicate key");
}

TEST(AnXmlReader, RefusesAKeyWithoutAValue) {
    expectRefused(readMarkup("<dict><key>a</key></dict>"), FormatError::Malformed, "a key without a value");
    expectRefused(readMarkup("<dict><key>a</key><key>b</key></dict>"), FormatError::Malformed,
                  "a key where a value was expected");
}

TEST(AnXmlReader, RefusesAValueWithoutAKey) {
    expectRefused(readMarkup("<dict><true/></dict>"), FormatError::Malformed, "<key> was expected");
}

TEST(AnXmlReader, RefusesAKeyOutsideADictionary) {
    expectRefused(readMarkup("<array><key>a</key></array>"), FormatError::Malformed,
                  "a key where a value was expected");
    expectRefused(readMarkup("<key>a</key>"), FormatError::Malformed, "a key where a value was expected");
}

TEST(AnXmlReader, RefusesUnknownElements) {
    expectRefused(readMarkup("<set/>"), FormatError::Malformed, "unknown element");
    expectRefused(readMarkup("<Dict/>"), FormatError::Malformed, "unknown element");
}

TEST(AnXmlReader, RefusesEndTagsThatDoNotMatch) {
    constexpr std::string_view kText = "the end tag of another element";
    expectRefused(readMarkup("<array></dict>"), FormatError::Malformed, kText);
    expectRefused(readMarkup("<dict></array>"), FormatError::Malformed, kText);
    expectRefused(readMarkup("<array></plist>"), FormatError::Malformed, kText);
    expectRefused(readMarkup("<string>a</key>"), FormatError::Malformed, kText);
    expectRefused(readMarkup("</dict>"), FormatError::Malformed, kText);
}

TEST(AnXmlReader, RefusesTextBetweenElements) {
    constexpr std::string_view kText = "text where an element was expected";
    expectRefused(readMarkup("<array>a<true/></array>"), FormatError::Malformed, kText);
    expectRefused(readMarkup("<array>&#32;</array>"), FormatError::Malformed, kText);
    expectRefused(readMarkup("<dict><![CDATA[ ]]></dict>"), FormatError::Malformed, "a tag was expected");
}

TEST(AnXmlReader, RefusesElementsInsideText) {
    expectRefused(readMarkup("<string>a<true/></string>"), FormatError::Malformed,
                  "an element inside one that holds text");
}

TEST(AnXmlReader, RefusesTextInTrueAndFalse) {
    expectRefused(readMarkup("<true>1</true>"), FormatError::Malformed, "text inside an element that holds none");
}

TEST(AnXmlReader, RefusesAttributesOtherThanTheVersion) {
    constexpr std::string_view kText = "unexpected attribute";
    expectRefused(readText("<plist version='1.0' version='1.0'><true/></plist>"), FormatError::Malformed, kText);
    expectRefused(readText("<plist id='1'><true/></plist>"), FormatError::Malformed, kText);
    expectRefused(readMarkup("<true version='1.0'/>"), FormatError::Malformed, kText);
}

TEST(AnXmlReader, RefusesTagsOutOfShape) {
    expectRefused(readMarkup("< true/>"), FormatError::Malformed, "a tag was expected");
    expectRefused(readMarkup("<true/ >"), FormatError::Malformed, "the end of the tag was expected");
    expectRefused(readMarkup("<array></array/>"), FormatError::Malformed, "the end of the tag was expected");
    expectRefused(readText("<plist version><true/></plist>"), FormatError::Malformed, "an attribute was expected");
    expectRefused(readText("<plist version=1><true/></plist>"), FormatError::Malformed,
                  "a quoted attribute value was expected");
    expectRefused(readText("<plist version='<'><true/></plist>"), FormatError::Malformed,
                  "markup inside an attribute value");
    expectRefused(readText("<plist version='1.0><true/></plist>"), FormatError::Malformed,
                  "attribute value without an end");
}

}  // namespace
}  // namespace ksw::plist
