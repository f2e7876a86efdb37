// Who is shown as the developer of a file and of a running process.

#include <kestrelwood/KSWAttributions.h>
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

#include "platform/facts/developer_name.h"
#include "tests/support/child_program.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using test::ChildCat;

std::optional<std::string> nameOf(const std::string& organization) {
    CodeFacts facts;
    facts.chain.push_back({{}, {organization}});
    return leafOrganization(facts);
}

TEST(AnOrganization, IsTrimmedAtBothEndsOnly) {
    EXPECT_EQ(nameOf("Example Works"), "Example Works");
    EXPECT_EQ(nameOf(" \t\r\n\v\f Example \n Works \n"), "Example \n Works");
    // U+0085, U+00A0, U+1680, U+2003, U+2028, U+2029, U+202F, U+205F and U+3000.
    const std::string blanks =
        "\xC2\x85\xC2\xA0\xE1\x9A\x80\xE2\x80\x83\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xAF\xE2\x81\x9F"
        "\xE3\x80\x80";
    EXPECT_EQ(nameOf(blanks + "x" + blanks), "x");
}

TEST(AnOrganization, OfNothingButWhiteSpaceIsNone) {
    EXPECT_EQ(nameOf(""), std::nullopt);
    EXPECT_EQ(nameOf(" \n\xC2\xA0"), std::nullopt);
}

TEST(AnOrganization, KeepsWhatIsNoWhiteSpace) {
    const std::string nul("\0A\0B\0", 5);
    EXPECT_EQ(nameOf(nul), nul);
    EXPECT_EQ(nameOf(" " + nul + " "), nul);
    // Marks of direction, a zero-width blank, and bytes that are no character.
    for (const std::string text : {"\xE2\x80\xAEtfel\xE2\x80\xAC", "\xE2\x80\x8B", "\xEF\xBB\xBFx", "\xFF", "\xC2",
                                   "\xE2\x80", "\xC2\xA0\xFF\xC2\xA0"}) {
        const bool isPadded = text.size() == 5 && text[2] == '\xFF';
        EXPECT_EQ(nameOf(text), isPadded ? "\xFF" : text);
    }
}

TEST(AnOrganization, IsTheFirstOfTheSignersOwnCertificate) {
    CodeFacts facts;
    EXPECT_EQ(leafOrganization(facts), std::nullopt);
    facts.chain.push_back({});
    facts.chain.push_back({{}, {"Authority"}});
    EXPECT_EQ(leafOrganization(facts), std::nullopt);
    facts.chain[0].organizations = {" First ", "Second"};
    EXPECT_EQ(leafOrganization(facts), "First");
    facts.chain[0].organizations = {" ", "Second"};
    EXPECT_EQ(leafOrganization(facts), std::nullopt);
}

TEST(AnOrganization, OfTheMakerIsNoDeveloper) {
    EXPECT_EQ(withoutMaker("Velmont Inc."), std::nullopt);
    EXPECT_EQ(withoutMaker("Velmont Inc"), "Velmont Inc");
    EXPECT_EQ(withoutMaker("velmont inc."), "velmont inc.");
    EXPECT_EQ(withoutMaker(std::nullopt), std::nullopt);
}

class ADeveloper : public SigningTest {
protected:
    /// A copy of cat that the platform's maker signed.
    std::string makersProgram(const std::string& organization = "Velmont Inc.") {
        const Identity root = certificates_.root("maker-root");
        trustAsMaker(root);
        CertificateForm form;
        form.organization = organization;
        const Identity maker = certificates_.issue(root, "maker", form);
        std::string path = copyOf("/bin/cat", "maker-cat");
        EXPECT_TRUE(sign(path, request(&maker)).ok());
        return path;
    }
};

TEST_F(ADeveloper, IsFoundByURLPathAndProcess) {
    const std::string path = signedProgram("/bin/cat", "cat");
    const ChildCat cat(path);
    const AuditToken token = cat.token();
    EXPECT_EQ(DeveloperNameForURL(URL::fileURL(path)), "Example Works");
    EXPECT_EQ(DeveloperNameForPath(path), "Example Works");
    EXPECT_EQ(DeveloperNameForAuditToken(&token), "Example Works");
}

TEST_F(ADeveloper, IsTheMakerOfAProcessButNotOfItsFile) {
    for (const char* organization : {"Velmont Inc.", " Velmont Inc.\n"}) {
        const std::string path = makersProgram(organization);
        const ChildCat cat(path);
        const AuditToken token = cat.token();
        EXPECT_EQ(DeveloperNameForPath(path), std::nullopt);
        EXPECT_EQ(DeveloperNameForURL(URL::fileURL(path)), std::nullopt);
        EXPECT_EQ(DeveloperNameForAuditToken(&token), "Velmont Inc.");
    }
}

TEST_F(ADeveloper, OfAHandleIsTheMakerToo) {
    const std::string path = makersProgram();
    const std::optional<Code> code = Code::atURL(URL::fileURL(path));
    ASSERT_TRUE(code.has_value());
    EXPECT_EQ(copyDeveloperName(*code), "Velmont Inc.");
    const ChildCat cat(path);
    EXPECT_EQ(copyDeveloperName(*Code::ofProcess(cat.token())), "Velmont Inc.");
}

TEST_F(ADeveloper, IsNobodyWithoutASigner) {
    EXPECT_EQ(DeveloperNameForPath("/bin/cat"), std::nullopt);
    EXPECT_EQ(DeveloperNameForPath("/nothing"), std::nullopt);
    EXPECT_EQ(DeveloperNameForPath(""), std::nullopt);
    EXPECT_EQ(DeveloperNameForPath(std::nullopt), std::nullopt);
    EXPECT_EQ(DeveloperNameForURL(std::nullopt), std::nullopt);
    EXPECT_EQ(DeveloperNameForURL(URL::fromString("https://example.com/bin/cat")), std::nullopt);
    const std::string path = copyOf("/bin/cat", "cat");
    ASSERT_TRUE(sign(path, request(nullptr)).ok());
    EXPECT_EQ(DeveloperNameForPath(path), std::nullopt);
}

TEST_F(ADeveloper, IsNobodyWhenTheSignatureDoesNotHold) {
    const std::string path = signedFile("file", "some code");
    Data content = contentOf(path);
    content[0] ^= 1;
    writeContent(path, content);
    EXPECT_EQ(DeveloperNameForPath(path), std::nullopt);
    const Identity stranger = certificates_.root("stranger");
    const Identity leaf = certificates_.issue(stranger, "leaf");
    ASSERT_TRUE(sign(path, request(&leaf)).ok());
    EXPECT_EQ(DeveloperNameForPath(path), std::nullopt);
}

TEST_F(ADeveloper, OfAProcessThatHasEndedIsNobody) {
    ChildCat cat(signedProgram("/bin/cat", "cat"));
    const AuditToken token = cat.token();
    cat.end();
    EXPECT_EQ(DeveloperNameForAuditToken(&token), std::nullopt);
}

TEST(ANullToken, IsAMistakeOfTheCallers) {
    try {
        DeveloperNameForAuditToken(nullptr);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& mistake) {
        EXPECT_STREQ(mistake.what(), "token is null");
    }
}

}  // namespace
}  // namespace ksw::facts
