#include "platform/facts/requirement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/base/limits.h"

namespace ksw::facts {
namespace {

using ::testing::EndsWith;

std::string repeated(std::string_view text, std::size_t times) {
    std::string out;
    for (; times > 0; --times) {
        out += text;
    }
    return out;
}

/// The normal spelling; the error's text when there is none.
std::string normal(std::string_view text) {
    const auto requirement = Requirement::parse(text);
    return requirement ? requirement->text() : std::string(requirement.error().localizedDescription());
}

void expectRefused(std::string_view text, FormatError code, std::string_view why) {
    const auto requirement = Requirement::parse(text);
    ASSERT_FALSE(requirement.ok()) << text;
    EXPECT_EQ(requirement.error(), Error(code, why)) << text;
}

/// Facts that each condition of the grammar can be asked of.
CodeFacts toolFacts() {
    CodeFacts facts;
    facts.identifier = "com.example.tool";
    facts.team = "TEAM";
    facts.anchor = Anchor::Trusted;
    facts.chain = {{{}, {"Example", "Example Works"}}, {{}, {"Authority"}}};
    facts.entitlements = Dictionary{{"granted", true}, {"denied", false}, {"number", 1}, {"text", "true"}};
    return facts;
}

bool isMetBy(const CodeFacts& facts, std::string_view text) {
    const auto requirement = Requirement::parse(text);
    EXPECT_TRUE(requirement.ok()) << text;
    return requirement.ok() && requirement->isSatisfiedBy(facts);
}

bool isMet(std::string_view text) {
    return isMetBy(toolFacts(), text);
}

TEST(ARequirement, HasOneNormalSpelling) {
    const std::vector<std::pair<std::string, std::string>> spellings{
        {"anchor velmont", "anchor velmont"},
        {"\t anchor\n\r trusted ", "anchor trusted"},
        {"identifier com.example.my-tool", R"(identifier "com.example.my-tool")"},
        {R"(identifier"x")", R"(identifier "x")"},
        {R"(identifier "")", R"(identifier "")"},
        {"team 0", R"(team "0")"},
        {"certificate leaf [ subject.O ]=Example", R"(certificate leaf[subject.O] = "Example")"},
        {"entitlement [ key ]", R"(entitlement["key"])"},
        {"!anchor trusted", "!anchor trusted"},
        {"! ! ( anchor trusted )", "!!anchor trusted"},
        {"((anchor trusted))", "anchor trusted"},
        {"team a and team b or team c and team d", R"(team "a" and team "b" or team "c" and team "d")"},
        {"(team a and team b)or(team c and team d)", R"(team "a" and team "b" or team "c" and team "d")"},
        {"team a and(team b or team c)and team d", R"(team "a" and (team "b" or team "c") and team "d")"},
        {"!(team a and team b)", R"(!(team "a" and team "b"))"},
        {"!(team a or team b) and !team c", R"(!(team "a" or team "b") and !team "c")"},
        {"(team a and team b) and (team c and team d)", R"(team "a" and team "b" and team "c" and team "d")"},
        {"team a or (team b or (team c or team d))", R"(team "a" or team "b" or team "c" or team "d")"},
    };
    for (const auto& [given, expected] : spellings) {
        EXPECT_EQ(normal(given), expected) << given;
        EXPECT_EQ(normal(expected), expected) << given;
    }
}

TEST(ARequirement, IsEqualToWhatItsTextParsesTo) {
    const auto given = Requirement::parse("!(team a or identifier b)and(anchor trusted)");
    ASSERT_TRUE(given.ok());
    const auto again = Requirement::parse(given->text());
    ASSERT_TRUE(again.ok());
    EXPECT_EQ(*given, *again);
    EXPECT_FALSE(*given == *Requirement::parse("anchor trusted"));
}

TEST(ARequirement, KeepsEveryCharacterOfAQuotedValue) {
    const std::string value = std::string("a\0b\n\t", 5) + "( ! ] = and é 🦅 \xE2\x80\xAE";
    const std::string text = "identifier \"" + value + R"(\"\\")";
    EXPECT_EQ(normal(text), text);
    CodeFacts facts;
    facts.identifier = value + R"("\)";
    EXPECT_TRUE(isMetBy(facts, text));
    facts.identifier.pop_back();
    EXPECT_FALSE(isMetBy(facts, text));
}

TEST(ARequirement, TakesAWordOfTheGrammarForAValueWhereAValueStands) {
    EXPECT_EQ(normal("identifier and and team or or entitlement[anchor]"),
              R"(identifier "and" and team "or" or entitlement["anchor"])");
}

TEST(ARequirement, NamesTheColumnOfWhatIsWrong) {
    const std::vector<std::pair<std::string, std::string>> mistakes{
        {"", "column 1: a condition expected"},
        {"  ", "column 3: a condition expected"},
        {"anchor", "column 7: \"velmont\" or \"trusted\" expected"},
        {"anchor other", "column 8: \"velmont\" or \"trusted\" expected"},
        {"anchor \"trusted\"", "column 8: \"velmont\" or \"trusted\" expected"},
        {"\"anchor\" trusted", "column 1: a condition expected"},
        {"Anchor trusted", "column 1: a condition expected"},
        {"identifier", "column 11: a value expected"},
        {"identifier (x)", "column 12: a value expected"},
        {"identifier my_tool", "column 14: this needs quotes"},
        {"identifier é", "column 12: this needs quotes"},
        {"team \"é\" team x", "column 10: \"and\", \"or\" or the end expected"},
        {"anchor trusted)", "column 15: \"and\", \"or\" or the end expected"},
        {"(anchor trusted", "column 16: \")\" expected"},
        {"()", "column 2: a condition expected"},
        {"!", "column 2: a condition expected"},
        {"and team x", "column 1: a condition expected"},
        {"team x and", "column 11: a condition expected"},
        {"team x or or team y", "column 11: a condition expected"},
        {"certificate root[subject.O] = x", "column 13: \"leaf\" expected"},
        {"certificate leaf(subject.O) = x", "column 17: \"[\" expected"},
        {"certificate leaf[subject.CN] = x", "column 18: \"subject.O\" expected"},
        {"certificate leaf[subject.O = x", "column 28: \"]\" expected"},
        {"certificate leaf[subject.O] x", "column 29: \"=\" expected"},
        {"certificate leaf[subject.O] = ", "column 31: a value expected"},
        {"entitlement \"key\"", "column 13: \"[\" expected"},
        {"entitlement[]", "column 13: a value expected"},
        {"entitlement[key = x", "column 17: \"]\" expected"},
        {"team \"x", "column 6: the closing quote is missing"},
        {"team \"x\\", "column 8: only \\\" and \\\\ are escapes"},
        {"team \"é\\n\"", "column 8: only \\\" and \\\\ are escapes"},
        {"team \"x\xFF\"", "column 8: not UTF-8"},
        {"team \"\xED\xA0\x80\"", "column 7: not UTF-8"},
        {"team \xFF", "column 6: this needs quotes"},
        {std::string("team \0x", 7), "column 6: this needs quotes"},
    };
    for (const auto& [given, expected] : mistakes) {
        expectRefused(given, FormatError::Malformed, "requirement, " + expected);
    }
}

TEST(ARequirement, IsBoundedInLength) {
    const std::string most = "team \"" + std::string(limits::kFieldMax - 7, 'x') + '"';
    ASSERT_EQ(most.size(), limits::kFieldMax);
    EXPECT_EQ(normal(most), most);
    expectRefused(most + " ", FormatError::LimitPassed, "requirement: a text of more than 65536 bytes");
}

TEST(ARequirement, IsBoundedInTheLengthOfItsNormalSpelling) {
    const std::string most = "team " + std::string(limits::kFieldMax - 7, 'x');
    EXPECT_EQ(normal(most).size(), limits::kFieldMax);
    expectRefused(most + "x", FormatError::LimitPassed, "requirement: a normal spelling of more than 65536 bytes");
}

TEST(ARequirement, IsBoundedInDepth) {
    const std::string inside = "anchor trusted";
    for (const auto& [open, close] : std::vector<std::pair<std::string, std::string>>{{"(", ")"}, {"!", ""}}) {
        const auto nested = [&, opening = open, closing = close](std::size_t depth) {
            return repeated(opening, depth) + inside + repeated(closing, depth);
        };
        EXPECT_THAT(normal(nested(limits::kDepthMax)), EndsWith(inside));
        expectRefused(nested(limits::kDepthMax + 1), FormatError::LimitPassed,
                      "requirement, column 65: nested too deeply");
    }
    expectRefused(repeated("!(", 33), FormatError::LimitPassed, "requirement, column 65: nested too deeply");
    expectRefused(repeated("(", limits::kFieldMax), FormatError::LimitPassed,
                  "requirement, column 65: nested too deeply");
}

TEST(ARequirement, CountsOnlyWhatIsOpenAsDepth) {
    const std::string text = repeated("(!team a) or ", 1000) + "team b";
    EXPECT_EQ(normal(text), repeated("!team \"a\" or ", 1000) + "team \"b\"");
}

TEST(ARequirement, IsAsDeepAsItMayBeInEveryOperator) {
    std::string text = "anchor trusted";
    for (std::size_t level = 0; level < limits::kDepthMax / 2; ++level) {
        text = "team a or team b and !(" + text + ")";
    }
    EXPECT_EQ(normal(normal(text)), normal(text));
    EXPECT_FALSE(isMet(text));
}

TEST(AnAnchor, IsTrustedAlsoWhenItIsTheMakers) {
    CodeFacts facts;
    const auto answers = [&] {
        return std::pair(isMetBy(facts, "anchor trusted"), isMetBy(facts, "anchor velmont"));
    };
    EXPECT_EQ(answers(), std::pair(false, false));
    facts.anchor = Anchor::Trusted;
    EXPECT_EQ(answers(), std::pair(true, false));
    facts.anchor = Anchor::Maker;
    EXPECT_EQ(answers(), std::pair(true, true));
}

TEST(AnIdentifier, IsComparedByteByByte) {
    EXPECT_TRUE(isMet("identifier com.example.tool"));
    EXPECT_FALSE(isMet("identifier com.example.Tool"));
    EXPECT_FALSE(isMet("identifier com.example.tool2"));
    EXPECT_FALSE(isMet("identifier com.example"));
}

TEST(ATeam, IsComparedByteByByte) {
    EXPECT_TRUE(isMet("team TEAM"));
    EXPECT_FALSE(isMet("team team"));
}

TEST(ATeam, ThatIsAbsentIsNotTheEmptyOne) {
    CodeFacts facts;
    EXPECT_FALSE(isMetBy(facts, R"(team "")"));
    facts.team = "";
    EXPECT_TRUE(isMetBy(facts, R"(team "")"));
}

TEST(AnOrganization, IsAnyOfTheLeafsAndOfNoOtherCertificate) {
    EXPECT_TRUE(isMet("certificate leaf[subject.O] = Example"));
    EXPECT_TRUE(isMet(R"(certificate leaf[subject.O] = "Example Works")"));
    EXPECT_FALSE(isMet(R"(certificate leaf[subject.O] = "Example ")"));
    EXPECT_FALSE(isMet("certificate leaf[subject.O] = example"));
    EXPECT_FALSE(isMet("certificate leaf[subject.O] = Authority"));
    EXPECT_FALSE(isMetBy(CodeFacts(), "certificate leaf[subject.O] = Example"));
}

TEST(AnEntitlement, HoldsOnlyAsTheBoolTrue) {
    EXPECT_TRUE(isMet("entitlement[granted]"));
    for (const char* key : {"denied", "number", "text", "absent"}) {
        EXPECT_FALSE(isMet("entitlement[" + std::string(key) + "]")) << key;
    }
    EXPECT_FALSE(isMetBy(CodeFacts(), "entitlement[granted]"));
}

TEST(Operators, BindNotBeforeAndBeforeOr) {
    const std::string yes = "anchor trusted";
    const std::string no = "anchor velmont";
    EXPECT_TRUE(isMet(yes + " or " + no + " and " + no));
    EXPECT_FALSE(isMet("(" + yes + " or " + no + ") and " + no));
    EXPECT_TRUE(isMet("!" + no + " or " + yes));
    EXPECT_FALSE(isMet("!" + yes + " and " + no));
    EXPECT_TRUE(isMet("!(" + yes + " and " + no + ")"));
    EXPECT_TRUE(isMet("!" + no + " and !!" + yes));
    EXPECT_FALSE(isMet(no + " or " + no + " or !" + yes));
}

}  // namespace
}  // namespace ksw::facts
