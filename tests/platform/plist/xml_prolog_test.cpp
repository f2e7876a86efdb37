#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

Result<Value> readAfter(std::string prolog) {
    return readText(prolog.append("<plist><true/></plist>"));
}

TEST(AnXmlProlog, MayHaveAByteOrderMark) {
    EXPECT_TRUE(readAfter("\xEF\xBB\xBF").ok());
    EXPECT_TRUE(readAfter("\xEF\xBB\xBF<?xml version='1.0'?>").ok());
}

TEST(AnXmlProlog, MayDeclareUtf8OrAscii) {
    EXPECT_TRUE(readAfter("<?xml version=\"1.0\" encoding=\"utf-8\" standalone='yes' ?>").ok());
    EXPECT_TRUE(readAfter("<?xml version='1.0' encoding='US-ASCII'?>").ok());
    EXPECT_TRUE(readAfter("<?xml version='1.0' standalone='no'?>").ok());
}

TEST(AnXmlProlog, IsRefusedForAnotherEncoding) {
    for (const std::string name : {"UTF-16", "ISO-8859-1", "utf-8x", "utf", ""}) {
        expectRefused(readAfter("<?xml version='1.0' encoding='" + name + "'?>"), FormatError::Unsupported,
                      "line 1, column 21: an encoding other than UTF-8");
    }
}

TEST(AnXmlProlog, IsRefusedInUtf16) {
    expectRefused(readText(raw("\xFE\xFF\0<\0p")), FormatError::Unsupported, "UTF-16");
    expectRefused(readText(raw("\xFF\xFE<\0p\0")), FormatError::Unsupported, "UTF-16");
}

TEST(AnXmlProlog, IsRefusedForAnotherVersion) {
    expectRefused(readAfter("<?xml version='1.1'?>"), FormatError::Unsupported, "only version 1.0 of XML is read");
}

TEST(AnXmlProlog, IsRefusedWhenItsDeclarationIsOutOfShape) {
    expectRefused(readAfter("<?xml ?>"), FormatError::Malformed, "XML declaration without a version");
    expectRefused(readAfter("<?xml encoding='UTF-8'?>"), FormatError::Malformed, "XML declaration out of order");
    expectRefused(readAfter("<?xml version='1.0' standalone='no' encoding='UTF-8'?>"), FormatError::Malformed,
                  "XML declaration out of order");
    expectRefused(readAfter("<?xml version='1.0'encoding='UTF-8'?>"), FormatError::Malformed,
                  "XML declaration out of order");
    expectRefused(readAfter("<?xml version='1.0' standalone='maybe'?>"), FormatError::Malformed,
                  "standalone is neither yes nor no");
    expectRefused(readAfter("<?xml version='1.0'"), FormatError::Malformed, "an attribute was expected");
}

TEST(AnXmlProlog, IsRefusedWhenItsDeclarationComesLate) {
    expectRefused(readAfter(" <?xml version='1.0'?>"), FormatError::Malformed,
                  "line 1, column 2: XML declaration that is not at the beginning");
    expectRefused(readAfter("<?XML version='1.0'?>"), FormatError::Malformed,
                  "XML declaration that is not at the beginning");
}

TEST(AnXmlProlog, MayHaveADocumentTypeThatIsNotRead) {
    EXPECT_TRUE(readAfter("<!DOCTYPE plist>").ok());
    EXPECT_TRUE(readAfter("<!DOCTYPE plist PUBLIC \"-//X//Y [>]//EN\" 'http://example.com/a.dtd' >").ok());
    EXPECT_TRUE(readAfter("<!DOCTYPE plist SYSTEM \"file:///nowhere\">").ok());
}

TEST(AnXmlProlog, IsRefusedForAnInternalSubset) {
    expectRefused(readAfter("<!DOCTYPE plist [<!ENTITY a 'b'>]>"), FormatError::Unsupported,
                  "line 1, column 17: internal subset of a document type");
    expectRefused(readAfter("<!DOCTYPE plist SYSTEM 'a' []>"), FormatError::Unsupported,
                  "internal subset of a document type");
}

TEST(AnXmlProlog, IsRefusedForADocumentTypeOutOfShape) {
    expectRefused(readAfter("<!DOCTYPE>"), FormatError::Malformed, "document type line without a name");
    expectRefused(readAfter("<!DOCTYPEplist>"), FormatError::Malformed, "document type line without a name");
    expectRefused(readText("<!DOCTYPE plist"), FormatError::Malformed, "document type line without an end");
    expectRefused(readText("<!DOCTYPE plist 'a>"), FormatError::Malformed, "document type line without an end");
    expectRefused(readAfter("<!DOCTYPE plist "), FormatError::Malformed, "markup inside the document type line");
}

TEST(AnXmlProlog, HasOneDocumentTypeAndBeforeTheList) {
    expectRefused(readAfter("<!DOCTYPE plist><!DOCTYPE plist>"), FormatError::Malformed, "a tag was expected");
    expectRefused(readText("<plist><!DOCTYPE plist><true/></plist>"), FormatError::Malformed, "a tag was expected");
}

TEST(AnXmlProlog, IsRefusedForCommentsAndInstructionsOutOfShape) {
    expectRefused(readAfter("<!-- a -- b -->"), FormatError::Malformed, "two hyphens inside a comment");
    expectRefused(readAfter("<!-- a --->"), FormatError::Malformed, "two hyphens inside a comment");
    expectRefused(readAfter("<!-- a"), FormatError::Malformed, "comment without an end");
    expectRefused(readAfter("<?a"), FormatError::Malformed, "processing instruction without an end");
    expectRefused(readAfter("<?a.?b?>"), FormatError::Malformed, "processing instruction without an end");
    expectRefused(readAfter("<? a?>"), FormatError::Malformed, "processing instruction without a target");
}

}  // namespace
}  // namespace ksw::plist
